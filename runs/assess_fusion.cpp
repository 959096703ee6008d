#include "runs/assess_fusion.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <random>

#include "framework/overlap.h"
#include "framework/row_kernel.h"
#include "framework/run/block_buffers.h"
#include "platform/raster/reproject.h"
#include "platform/system/files.h"
#include "platform/system/second_attempt.h"
#include "platform/utility/common_fun.h"
#include "runs/failures.h"
#include "runs/fuse_checks.h"
#include "runs/methods.h"
#include "runs/open_input.h"
#include "runs/run_failure.h"

namespace fusion {
namespace {

std::string Utf8(const std::filesystem::path& path) {
  const auto text = path.u8string();
  return {text.begin(), text.end()};
}

/// A band with its edges repeated around it, count times.
std::vector<double> WithEdges(const std::vector<double>& band, int width, int height, int count) {
  std::vector<double> large;
  for (int y = -count; y < height + count; ++y) {
    for (int x = -count; x < width + count; ++x) {
      const int row = std::clamp(y, 0, height - 1);
      const int column = std::clamp(x, 0, width - 1);
      large.push_back(
          band[static_cast<std::size_t>(row) * static_cast<std::size_t>(width) + static_cast<std::size_t>(column)]);
    }
  }
  return large;
}

void MakeFolder(const std::filesystem::path& folder) {
  std::error_code failed;
  std::filesystem::create_directories(folder, failed);
  if (failed) throw FolderFailure(Utf8(folder), failed);
}

}  // namespace

ScratchFolder::ScratchFolder() {
  std::error_code failed;
  const std::filesystem::path parent = std::filesystem::temp_directory_path(failed);
  // The name is nobody's business but another run's.
  std::random_device random;
  for (int attempt = 0; !failed && attempt < 100; ++attempt) {
    m_path = parent / ("fusion-assess-" + std::to_string(random()));
    if (std::filesystem::create_directory(m_path, failed)) return;
  }
  m_path.clear();
  throw RunFailure(RunFailure::Kind::kFailed,
                   "Cannot create a folder for temporary files" + Reason(failed.value()) + ".");
}

ScratchFolder::~ScratchFolder() {
  if (!m_path.empty()) platform::WithSecondAttempt([this] { platform::RemoveTree(m_path); });
}

TileFiles::TileFiles(const std::filesystem::path& folder, const AssessTile& tile, PixelDataType type, bool replace)
    : m_folder(folder), m_tile(tile), m_type(type) {
  MakeFolder(folder);
  if (!replace && (Has("pan") || Has("ms"))) {
    throw UsageError(Utf8(folder) + " has the images of an earlier run; add --overwrite to replace them.");
  }
  Write("pan", tile.Pan());
  Write("ms", tile.Ms());
}

std::wstring TileFiles::File(const std::string& name) const {
  return CommonFun::Utf82U(Utf8(m_folder / (name + ".tif")));
}

void TileFiles::Write(const std::string& name, const PlacedImage& placed) const {
  const quality::Image& image = placed.image;
  const std::wstring file = File(name);
  CRasterSource raster;
  bool written =
      raster.CreateRaster(kFormatGeoTiff, file, image.width, image.height, static_cast<int>(image.bands.size()), m_type,
                          placed.geoTransform, placed.wkt, nullptr);
  // The marks say where pixels are measured, the samples themselves where there is data.
  for (std::size_t b = 0; written && b < image.bands.size(); ++b) {
    written = raster.GetRasterBand(static_cast<int>(b))
                  ->WriteBlock(0, 0, image.width, image.height, image.bands[b].data(), image.width, image.height,
                               PDT_FLOAT64) == 0;
  }
  if (written && raster.Close()) return;
  throw FileFailure(file);
}

FuseRequest TileFiles::Complete(FuseRequest request) const {
  request.pan = CommonFun::U2Utf8(File("pan"));
  request.ms = CommonFun::U2Utf8(File("ms"));
  request.out = CommonFun::U2Utf8(File(request.method));
  const Method* method = FindMethod(request.method);
  if (method && method->Takes(kTakesType)) request.type = TypeName(m_type);
  request.noOverviews = true;
  request.noProvenance = true;
  request.overwrite = true;
  return request;
}

bool TileFiles::Has(const std::string& name) const { return CommonFun::IsExistingFile(File(name)); }

quality::Image TileFiles::Read(const std::string& name) const {
  const quality::Image& pan = m_tile.Pan().image;
  const std::wstring file = File(name);
  CRasterSource raster;
  OpenInput(raster, file);
  raster.SetMaskNoData(true);
  const auto refuse = [&](const std::string& what) {
    return RunFailure(RunFailure::Kind::kFailed, CommonFun::U2Utf8(file) + " " + what + ".");
  };
  if (raster.GetBandCount() < static_cast<int>(m_tile.Ms().image.bands.size())) {
    throw refuse("has fewer bands than the multispectral image");
  }
  CRasterSource onto;
  OpenInput(onto, File("pan"));
  double groundX = 0.0;
  double groundY = 0.0;
  raster.ImageToGround(0, 0, groundX, groundY);
  const int left = static_cast<int>(std::lround(onto.GroundToPixel().X(groundX, groundY)));
  const int top = static_cast<int>(std::lround(onto.GroundToPixel().Y(groundX, groundY)));
  const int width = raster.GetWidth();
  const int height = raster.GetHeight();
  if (left < 0 || top < 0 || left + width > pan.width || top + height > pan.height) {
    throw refuse("does not lie on the pixels of its pan image");
  }
  quality::Image image;
  image.width = pan.width;
  image.height = pan.height;
  std::vector<double> part(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  for (std::size_t b = 0; b < m_tile.Ms().image.bands.size(); ++b) {
    if (raster.GetRasterBand(static_cast<int>(b))
            ->ReadBlock(0, 0, width, height, part.data(), width, height, PDT_FLOAT64) != 0) {
      throw refuse("cannot be read");
    }
    std::vector<double> band(image.PixelCount(), std::numeric_limits<double>::quiet_NaN());
    for (int y = 0; y < height; ++y) {
      const auto from = part.begin() + static_cast<std::ptrdiff_t>(y) * width;
      std::copy(from, from + width, band.begin() + static_cast<std::ptrdiff_t>(top + y) * image.width + left);
    }
    image.bands.push_back(std::move(band));
  }
  return image;
}

quality::Image TileFiles::Upsampled() const {
  CRasterSource pan;
  CRasterSource ms;
  OpenInput(pan, File("pan"));
  OpenInput(ms, File("ms"));
  const quality::Image& bands = m_tile.Ms().image;
  const quality::Image& onto = m_tile.Pan().image;
  bool reproject = false;
  FindOverlap(pan, ms, reproject);
  const std::unique_ptr<CReproject> carrier(
      reproject ? CReproject::Create(&ms, pan.GetSpatialReferenceWKT(), nullptr, nullptr) : nullptr);
  // As the command's kernels see it: with its edges repeated around it.
  constexpr int kEdge = kRepeatedEdge;
  constexpr double kCentre = 0.5;
  const RowGeometry geometry{pan.PixelToGround(), kCentre,     CRect(0, 0, onto.width, onto.height),
                             ms.GroundToPixel(),  bands.width, bands.height,
                             carrier.get(),       kEdge};
  const CRect around(-kEdge, -kEdge, bands.width + kEdge, bands.height + kEdge);
  std::vector<std::vector<double>> repeated;
  std::vector<const double*> samples;
  samples.reserve(bands.bands.size());
  for (const auto& band : bands.bands) repeated.push_back(WithEdges(band, bands.width, bands.height, kEdge));
  for (const auto& band : repeated) samples.push_back(band.data());
  RowResampler resampler(RT_BICUBIC, samples.data(), static_cast<int>(samples.size()), around);
  quality::Image image;
  image.width = onto.width;
  image.height = onto.height;
  image.bands.assign(samples.size(), std::vector<double>(image.PixelCount()));
  std::vector<double> x(static_cast<std::size_t>(image.width));
  std::vector<double> y(x.size());
  std::vector<double*> rows(samples.size());
  for (int row = 0; row < image.height; ++row) {
    MapPixels(geometry, 0, image.width, row, x.data(), y.data());
    for (std::size_t b = 0; b < rows.size(); ++b) {
      rows[b] = image.bands[b].data() + static_cast<std::ptrdiff_t>(row) * image.width;
    }
    resampler.ResamplePoints(x.data(), y.data(), image.width, rows.data());
  }
  return image;
}

}  // namespace fusion
