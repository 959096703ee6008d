#include "runs/sample.h"

#include <array>
#include <filesystem>

#include "platform/algorithm/base_algorithm.h"
#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/write_guard.h"
#include "platform/utility/common_fun.h"
#include "runs/fuse_checks.h"
#include "runs/notices.h"
#include "runs/output_file.h"
#include "runs/run_failure.h"
#include "runs/run_progress.h"
#include "runs/sample_scene.h"

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
      throw RunFailure(RunFailure::Kind::kFailed, "Cannot create the folder " + name + Reason(failed.value()) + ".");
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
      throw Failure("created");
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
    if (!written) throw Failure("written");
  }
  RunFailure Failure(const std::string& done) const {
    return {RunFailure::Kind::kFailed,
            CommonFun::U2Utf8(m_path) + " cannot be " + done + Reason(platform::FirstWriteError()) + "."};
  }

  std::wstring m_path;
  platform::PendingOutput m_pending;
  Size m_size;
  int m_bands;
  PixelDataType m_type;
  double m_pixel;
  CRasterSource m_source;
};

/// From reflectance to the numbers a sensor would deliver in a type.
double Scale(PixelDataType type, double reflectance) {
  return type == PDT_UINT8 ? 5.0 + 240.0 * reflectance : 200.0 + 9800.0 * reflectance;
}

class SceneWriter {
 public:
  SceneWriter(const SampleScene& scene, PixelDataType type, int ratio, SceneFile& pan, SceneFile& ms, SceneFile& truth)
      : m_scene(scene),
        m_type(type),
        m_ratio(ratio),
        m_pan(pan),
        m_ms(ms),
        m_truth(truth),
        m_rows(Bands(scene.Width())),
        m_sums(Bands(scene.Width() / ratio)) {}

  void WriteMsRow(int msRow) {
    for (auto& sum : m_sums) std::fill(sum.begin(), sum.end(), 0.0);
    for (int r = 0; r < m_ratio; ++r) WritePanRow(msRow * m_ratio + r);
    constexpr double kNoise = 0.002;
    for (std::size_t b = 0; b < m_sums.size(); ++b) {
      for (std::size_t i = 0; i < m_sums[b].size(); ++i) {
        const double mean = m_sums[b][i] / (m_ratio * m_ratio);
        m_sums[b][i] =
            Scale(m_type, mean + kNoise * m_scene.Noise(200U + static_cast<unsigned>(b), static_cast<int>(i), msRow));
      }
      m_ms.WriteRow(static_cast<int>(b), msRow, m_sums[b]);
    }
  }

 private:
  std::vector<std::vector<double>> Bands(int width) const {
    return {static_cast<std::size_t>(m_scene.BandCount()), std::vector<double>(static_cast<std::size_t>(width))};
  }

  void WritePanRow(int row) {
    m_scene.Row(row, m_rows);
    const auto width = static_cast<std::size_t>(m_scene.Width());
    const auto ratio = static_cast<std::size_t>(m_ratio);
    std::vector<double> pan(width, 0.0);
    std::vector<double> scaled(width);
    for (std::size_t b = 0; b < m_rows.size(); ++b) {
      const double share = m_scene.PanShare(static_cast<int>(b));
      for (std::size_t i = 0; i < width; ++i) {
        pan[i] += share * m_rows[b][i];
        m_sums[b][i / ratio] += m_rows[b][i];
        scaled[i] = Scale(m_type, m_rows[b][i]);
      }
      m_truth.WriteRow(static_cast<int>(b), row, scaled);
    }
    constexpr double kNoise = 0.004;
    for (std::size_t i = 0; i < width; ++i) {
      pan[i] = Scale(m_type, pan[i] + kNoise * m_scene.Noise(100, static_cast<int>(i), row));
    }
    m_pan.WriteRow(0, row, pan);
  }

  const SampleScene& m_scene;
  PixelDataType m_type;
  int m_ratio;
  SceneFile& m_pan;
  SceneFile& m_ms;
  SceneFile& m_truth;
  std::vector<std::vector<double>> m_rows;
  std::vector<std::vector<double>> m_sums;
};

void CheckSample(const SampleRequest& o) {
  const auto fits = [](int size) { return size > 0 && size <= kLargestSample; };
  if (!fits(o.width) || !fits(o.height)) {
    throw UsageError("A scene has 1 to " + std::to_string(kLargestSample) + " pan pixels on either side.");
  }
  if (o.ratio < 1 || o.ratio > 16) throw UsageError("--ratio must lie between 1 and 16.");
  if (o.bands < 1 || o.bands > 16) throw UsageError("--bands must lie between 1 and 16.");
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
  const SampleScene scene(o.seed, size.width, o.bands);
  SceneWriter writer(scene, type, o.ratio, pan, ms, truth);
  progress.Begin({"sample"}, L"sample", msSize.height);
  for (int row = 0; row < msSize.height; ++row) {
    writer.WriteMsRow(row);
    if (!progress.Step(row + 1, L"")) throw RunError(ERR_CANCELLED, L"");
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
  try {
    Notices notices(observer);
    RunProgress progress(observer);
    return WriteScene(request, notices, progress);
  } catch (const RunFailure&) {
    throw;
  } catch (const std::exception& e) {
    throw ExceptionError(e);
  }
}

}  // namespace fusion
