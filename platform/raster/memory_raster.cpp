#include "platform/raster/memory_raster.h"

#include <cpl_conv.h>
#include <cpl_string.h>
#include <cpl_vsi.h>
#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <memory>
#include <stdexcept>

#include "platform/raster/gdal_access.h"
#include "platform/raster/pixel_type.h"

namespace platform {
namespace {

std::int64_t BytesOf(const MemorySamples& s) {
  return (s.width - 1) * s.pixelSpace + (s.height - 1) * s.lineSpace + (s.bands - 1) * s.bandSpace + PixelSize(s.type);
}

void Check(const MemorySamples& s) {
  if (!s.first || !IsPixelType(s.type) || s.width < 1 || s.height < 1 || s.bands < 1) {
    throw std::invalid_argument("there are no samples");
  }
  // How far the library below can step.
  constexpr std::int64_t kFarthest = std::numeric_limits<int>::max();
  const auto steps = [](int count, std::int64_t space, std::int64_t farthest) {
    return count == 1 || (space > 0 && space <= farthest);
  };
  if (!steps(s.width, s.pixelSpace, kFarthest) || !steps(s.height, s.lineSpace, kFarthest) ||
      !steps(s.bands, s.bandSpace, std::numeric_limits<std::int64_t>::max())) {
    throw std::invalid_argument("the samples of a row, or the rows, lie in falling order or too far apart");
  }
}

bool ReadSystem(const std::string& text, OGRSpatialReference& system) {
  const GdalErrors quiet;
  // Neither a file nor a web address is looked up.
  if (system.SetFromUserInput(text.c_str(), OGRSpatialReference::SET_FROM_USER_INPUT_LIMITATIONS_get()) !=
      OGRERR_NONE) {
    return false;
  }
  system.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  return true;
}

}  // namespace

MemoryRaster::MemoryRaster(const MemorySamples& samples, const double* geoTransform, const std::string& system,
                           std::optional<double> noData) {
  static std::atomic<int> count{0};
  Check(samples);
  InitialiseGdal();
  OGRSpatialReference reference;
  if (!system.empty() && !ReadSystem(system, reference)) {
    throw std::invalid_argument("'" + system + "' is no coordinate system");
  }

  const std::string stem = kMemoryRasterStem + std::to_string(++count);
  const std::string raw = stem + ".raw";
  // It is opened for reading only.
  auto* bytes = static_cast<GByte*>(const_cast<void*>(samples.first));
  VSILFILE* file = VSIFileFromMemBuffer(raw.c_str(), bytes, static_cast<vsi_l_offset>(BytesOf(samples)), FALSE);
  if (!file) throw std::bad_alloc();
  VSIFCloseL(file);
  m_samples = raw;

  const GdalErrors errors;
  const std::string path = stem + ".vrt";
  GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("VRT");
  std::unique_ptr<GDALDataset> view(driver->Create(path.c_str(), samples.width, samples.height, 0, GDT_Byte, nullptr));
  bool made = view != nullptr;
  const bool isLittle = (CPL_IS_LSB != 0) != samples.swapped;
  for (int b = 0; b < samples.bands && made; ++b) {
    CPLStringList options;
    options.SetNameValue("subclass", "VRTRawRasterBand");
    options.SetNameValue("SourceFilename", raw.c_str());
    options.SetNameValue("RelativeToVRT", "false");
    options.SetNameValue("ImageOffset", std::to_string(b * samples.bandSpace).c_str());
    options.SetNameValue("PixelOffset", std::to_string(samples.pixelSpace).c_str());
    options.SetNameValue("LineOffset", std::to_string(samples.lineSpace).c_str());
    options.SetNameValue("ByteOrder", isLittle ? "LSB" : "MSB");
    made = view->AddBand(static_cast<GDALDataType>(ToGdalType(samples.type)), options.List()) == CE_None;
    if (made && noData) view->GetRasterBand(b + 1)->SetNoDataValue(*noData);
  }
  if (made && geoTransform) {
    double t[6];
    std::copy_n(geoTransform, 6, t);
    view->SetGeoTransform(t);
  }
  if (made && !system.empty()) view->SetSpatialRef(&reference);
  // Written down when it is closed.
  view.reset();
  if (made && !errors.Any()) {
    m_path = path;
    return;
  }
  VSIUnlink(path.c_str());
  VSIUnlink(raw.c_str());
  if (errors.OutOfMemory()) throw std::bad_alloc();
  throw std::runtime_error("the samples cannot be read as an image: " + errors.Reason());
}

MemoryRaster::~MemoryRaster() {
  VSIUnlink(m_path.c_str());
  // The memory itself is somebody else's.
  VSIUnlink(m_samples.c_str());
}

}  // namespace platform
