#include "runs/sample.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>

#include "platform/algorithm/base_algorithm.h"
#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/write_guard.h"
#include "platform/utility/common_fun.h"
#include "runs/failures.h"
#include "runs/fuse_checks.h"
#include "runs/notices.h"
#include "runs/output_file.h"
#include "runs/run_progress.h"
#include "runs/sample_scene.h"
#include "runs/sample_sensor.h"

namespace fusion {
namespace {

constexpr double kPixel = 0.5;  // metres of ground
constexpr double kEast = 440000.0;
constexpr double kNorth = 4475000.0;
// UTM zone 30 north.
constexpr wchar_t kCrs[] = L"EPSG:32630";

/// In pixels.
struct Size {
  int width;
  int height;
};

/// A folder, with those above it, made where missing. What was made goes again where nothing has come into it.
class NewFolder {
 public:
  /// Throws RunFailure.
  explicit NewFolder(const std::string& name) {
    std::error_code failed;
    auto path = CommonFun::ToPath(CommonFun::Utf82U(name));
    for (auto missing = path; !missing.empty() && !std::filesystem::exists(missing, failed);
         missing = missing.parent_path()) {
      m_made.push_back(missing);
    }
    std::filesystem::create_directories(path, failed);
    if (failed) {
      Remove();
      throw FolderFailure(name, failed);
    }
  }
  ~NewFolder() { Remove(); }
  NewFolder(const NewFolder&) = delete;
  NewFolder& operator=(const NewFolder&) = delete;

 private:
  void Remove() const {
    // The innermost first, and only empty ones.
    std::error_code ignored;
    for (const auto& folder : m_made) std::filesystem::remove(folder, ignored);
  }

  std::vector<std::filesystem::path> m_made;
};

/// One of the scene's files while it is written.
class SceneFile {
 public:
  SceneFile(const std::wstring& path, Size size, int bands, PixelDataType type, double pixel, bool overwrite)
      : m_path(path), m_pending(path, overwrite), m_size(size), m_bands(bands), m_type(type), m_pixel(pixel) {
    ThrowObstacle(m_pending.Foresee(kFormatGeoTiff), m_path);
  }

  void Create() {
    const double geoTransform[6] = {kEast, m_pixel, 0.0, kNorth, 0.0, -m_pixel};
    if (!m_pending.Begin() || !m_source.CreateRaster(kFormatGeoTiff, m_pending.WorkPath(), m_size.width, m_size.height,
                                                     m_bands, m_type, geoTransform, kCrs, nullptr)) {
      throw FileFailure(m_path, "created");
    }
  }
  void WriteRow(int band, int row, const std::vector<double>& values) {
    // GDAL rounds and clamps to the file's type.
    Check(m_source.GetRasterBand(band)->WriteBlock(0, row, m_size.width, 1, values.data(), m_size.width, 1,
                                                   PDT_FLOAT64) == 0);
  }
  void Close() { Check(m_source.Close()); }
  platform::PendingOutput& Pending() { return m_pending; }
  SampleFile Description() const { return {CommonFun::U2Utf8(m_path), m_size.width, m_size.height, m_bands, m_pixel}; }

 private:
  void Check(bool written) const {
    if (!written) throw FileFailure(m_path);
  }

  std::wstring m_path;
  platform::PendingOutput m_pending;
  Size m_size;
  int m_bands;
  PixelDataType m_type;
  double m_pixel;
  CRasterSource m_source;
};

/// From reflectance to the numbers a sensor would deliver in a type. It counts, so there are none below 0.
double Scale(PixelDataType type, double reflectance) {
  return std::max(0.0, reflectance) * (type == PDT_UINT8 ? 250.0 : 10000.0);
}

/// The three files of a scene in one walk down the landscape.
class SceneWriter {
 public:
  SceneWriter(const SampleRequest& request, const SampleScene& scene, PixelDataType type, SceneFile& pan, SceneFile& ms,
              SceneFile& truth)
      : m_scene(scene),
        m_type(type),
        m_noise(request.noise),
        m_pan(pan),
        m_ms(ms),
        m_truth(truth),
        m_panSensor({scene.Width(), scene.Height(), 1, 1, kPanSpread}),
        m_msSensor({scene.Width() / request.ratio, scene.Height() / request.ratio, scene.BandCount(), request.ratio,
                    kMsSpread * request.ratio, request.shift.empty() ? 0.0 : request.shift[0],
                    request.shift.empty() ? 0.0 : request.shift[1]}),
        m_reach(std::max(m_panSensor.Reach(), m_msSensor.Reach())),
        m_rows(static_cast<std::size_t>(scene.BandCount()), Row(scene.Width() + 2 * m_reach)),
        m_panRow(1, Row(scene.Width() + 2 * m_reach)) {}

  int FirstRow() const { return -m_reach; }
  int EndRow() const { return m_scene.Height() + m_reach; }

  /// Rows come in order.
  void Write(int row) {
    m_scene.Row(row, -m_reach, m_rows);
    if (row >= 0 && row < m_scene.Height()) WriteTruth(row);
    auto& pan = m_panRow.front();
    std::fill(pan.begin(), pan.end(), 0.0);
    for (std::size_t b = 0; b < m_rows.size(); ++b) {
      const double share = m_scene.PanShare(static_cast<int>(b));
      for (std::size_t i = 0; i < pan.size(); ++i) pan[i] += share * m_rows[b][i];
    }
    WriteSeen(m_panSensor, row, m_panRow, 100, m_pan);
    WriteSeen(m_msSensor, row, m_rows, 200, m_ms);
  }

 private:
  // In pixels of the sensor. Pan's keeps 0.18 of a pattern of single pixels. The other keeps 0.3 of the finest pattern
  // that its pixels can hold, as sensors in orbit do: the root of -2 ln 0.3, over pi.
  static constexpr double kPanSpread = 0.7;
  static constexpr double kMsSpread = 0.4939391655001425;

  static std::vector<double> Row(int width) { return std::vector<double>(static_cast<std::size_t>(width)); }

  void WriteTruth(int row) {
    std::vector<double> values = Row(m_scene.Width());
    for (std::size_t b = 0; b < m_rows.size(); ++b) {
      const double* ground = m_rows[b].data() + m_reach;
      for (std::size_t i = 0; i < values.size(); ++i) values[i] = Scale(m_type, ground[i]);
      m_truth.WriteRow(static_cast<int>(b), row, values);
    }
  }

  /// @param channel of the first band's noise
  void WriteSeen(SampleSensor& sensor, int row, const SampleRows& landscape, unsigned channel, SceneFile& file) {
    const int complete = sensor.Take(row, -m_reach, landscape);
    if (complete < 0) return;
    std::vector<double> values;
    for (std::size_t b = 0; b < sensor.Seen().size(); ++b) {
      values = sensor.Seen()[b];
      for (std::size_t i = 0; i < values.size(); ++i) {
        const double noise = m_scene.Noise(channel + static_cast<unsigned>(b), static_cast<int>(i), complete);
        values[i] = Scale(m_type, values[i] + m_noise * noise);
      }
      file.WriteRow(static_cast<int>(b), complete, values);
    }
  }

  const SampleScene& m_scene;
  PixelDataType m_type;
  double m_noise;
  SceneFile& m_pan;
  SceneFile& m_ms;
  SceneFile& m_truth;
  SampleSensor m_panSensor;
  SampleSensor m_msSensor;
  int m_reach;
  SampleRows m_rows;
  SampleRows m_panRow;
};

void CheckSample(const SampleRequest& o) {
  const auto fits = [](int size) { return size > 0 && size <= kLargestSample; };
  if (!fits(o.width) || !fits(o.height)) {
    throw UsageError("A scene has 1 to " + std::to_string(kLargestSample) + " pan pixels on either side.");
  }
  if (o.ratio < 1 || o.ratio > 16) throw UsageError("--ratio must lie between 1 and 16.");
  if (o.bands < 1 || o.bands > 16) throw UsageError("--bands must lie between 1 and 16.");
  const auto isShift = [](double pixels) { return std::fabs(pixels) <= kLargestShift; };
  if (!o.shift.empty() && (o.shift.size() != 2 || !isShift(o.shift[0]) || !isShift(o.shift[1]))) {
    throw UsageError("--shift is DX,DY in pan pixels, each from -16 to 16.");
  }
  if (!(o.noise >= 0.0 && o.noise <= 1.0)) throw UsageError("--noise must lie between 0 and 1.");
  if (!(o.clouds >= 0.0 && o.clouds <= 1.0)) throw UsageError("--clouds must lie between 0 and 1.");
}

SampleReport WriteScene(const SampleRequest& o, Notices& notices, RunProgress& progress) {
  CheckSample(o);
  const PixelDataType type = ParsePixelType(o.type);
  const auto roundUp = [&](int n) { return (n + o.ratio - 1) / o.ratio * o.ratio; };
  const Size size{roundUp(o.width), roundUp(o.height)};
  if (size.width != o.width || size.height != o.height) {
    notices.Add("The size is rounded up to " + std::to_string(size.width) + "x" + std::to_string(size.height) +
                ", a multiple of the ratio.");
  }

  const auto file = [&](const wchar_t* name) { return CommonFun::Utf82U(o.folder) + L"/" + name; };
  const Size msSize{size.width / o.ratio, size.height / o.ratio};
  const NewFolder folder(o.folder);
  SceneFile pan(file(L"pan.tif"), size, 1, type, kPixel, o.overwrite);
  SceneFile ms(file(L"ms.tif"), msSize, o.bands, type, kPixel * o.ratio, o.overwrite);
  SceneFile truth(file(L"truth.tif"), size, o.bands, type, kPixel, o.overwrite);
  const std::array<SceneFile*, 3> files{&pan, &ms, &truth};
  for (SceneFile* made : files) made->Create();
  const SampleScene scene(o.seed, size.width, size.height, o.bands, o.clouds);
  SceneWriter writer(o, scene, type, pan, ms, truth);
  progress.Begin({"sample"}, L"sample", writer.EndRow() - writer.FirstRow());
  for (int row = writer.FirstRow(); row < writer.EndRow(); ++row) {
    writer.Write(row);
    progress.Advance(row + 1 - writer.FirstRow());
  }
  progress.Finish();
  for (SceneFile* done : files) done->Close();
  const platform::OutputObstacle obstacle =
      platform::PendingOutput::Publish({&pan.Pending(), &ms.Pending(), &truth.Pending()});
  ThrowObstacle(obstacle, obstacle.file);
  return {{pan.Description(), ms.Description(), truth.Description()}, notices.All()};
}

}  // namespace

SampleRequest::SampleRequest() = default;
SampleRequest::~SampleRequest() = default;
SampleRequest::SampleRequest(const SampleRequest&) = default;
SampleRequest& SampleRequest::operator=(const SampleRequest&) = default;

SampleReport MakeSample(const SampleRequest& request, RunObserver* observer) {
  platform::ClearWriteError();
  return AsRun([&] {
    Notices notices(observer);
    RunProgress progress(observer);
    return WriteScene(request, notices, progress);
  });
}

}  // namespace fusion
