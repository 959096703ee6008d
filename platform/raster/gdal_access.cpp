#include "platform/raster/gdal_access.h"

#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <cerrno>
#include <memory>
#include <mutex>

#include "platform/raster/raster_source.h"
#include "platform/raster/references.h"
#include "platform/system/process.h"
#include "platform/utility/common_fun.h"

namespace platform {
namespace {

constexpr GDALDataType kTypes[] = {GDT_Unknown, GDT_Byte,  GDT_UInt16,  GDT_Int16,
                                   GDT_UInt32,  GDT_Int32, GDT_Float32, GDT_Float64};

void CPL_STDCALL CountError(CPLErr level, CPLErrorNum number, const char* text) {
  if (level >= CE_Failure) static_cast<GdalErrors*>(CPLGetErrorHandlerUserData())->Count(number, text);
}

}  // namespace

void InitialiseGdal() {
  static std::once_flag once;
  std::call_once(once, GDALAllRegister);
}

GdalErrors::GdalErrors() {
  CPLErrorReset();
  CPLPushErrorHandlerEx(CountError, this);
  errno = 0;
}

void GdalErrors::Count(int number, const char* text) {
  // The libraries below GDAL tell a failed allocation in words of their own.
  if (number == CPLE_OutOfMemory || errno == ENOMEM) m_bOutOfMemory = true;
  if (m_nFailures++ == 0 && text) m_strReason = text;
}

GdalErrors::~GdalErrors() { CPLPopErrorHandler(); }

bool IsGeoTiff(GDALDataset& dataset) {
  return dataset.GetDriver() && EQUAL(dataset.GetDriver()->GetDescription(), "GTiff");
}

bool HasLargePlainStrips(GDALDataset& dataset) {
  constexpr std::int64_t kLarge = std::int64_t{1} << 20;
  GDALRasterBand* band = dataset.GetRasterBand(1);
  if (!band || !IsGeoTiff(dataset) || dataset.GetMetadataItem("COMPRESSION", "IMAGE_STRUCTURE")) return false;
  int width = 0;
  int height = 0;
  band->GetBlockSize(&width, &height);
  const std::int64_t bytes = std::int64_t{width} * height * GDALGetDataTypeSizeBytes(band->GetRasterDataType());
  return width == band->GetXSize() && bytes > kLarge;
}

/// Whether threads of GDAL's can decode a file's blocks of a band: those of several bands together would be decoded
/// anew for every band.
bool DecodesBandByBand(GDALDataset& dataset) {
  if (!IsGeoTiff(dataset) || !dataset.GetMetadataItem("COMPRESSION", "IMAGE_STRUCTURE")) return false;
  const char* interleave = dataset.GetMetadataItem("INTERLEAVE", "IMAGE_STRUCTURE");
  return dataset.GetRasterCount() == 1 || (interleave && EQUAL(interleave, "BAND"));
}

GDALDataset* OpenNamed(const std::string& name, unsigned int flags, const char* const* options) {
  VSIStatBufL status;
  const bool exists = VSIStatL(name.c_str(), &status) == 0;
  if (exists && !VSI_ISREG(status.st_mode) && !VSI_ISDIR(status.st_mode)) {
    CPLError(CE_Failure, CPLE_OpenFailed, "it is no regular file");
    return nullptr;
  }
  const ReferencePolicy* policy = CurrentReferences();
  if (!policy) return GDALDataset::Open(name.c_str(), flags, nullptr, options);
  const std::string fault = ForbiddenReference(name, *policy);
  if (!fault.empty()) {
    CPLError(CE_Failure, CPLE_OpenFailed, "%s", fault.c_str());
    return nullptr;
  }
  // Of what descriptions of rare kinds name, too.
  std::unique_ptr<CPLConfigOptionSetter> nothingElsewhere;
  if (!policy->network && !IsElsewhere(name)) {
    nothingElsewhere = std::make_unique<CPLConfigOptionSetter>("CPL_VSIL_CURL_ALLOWED_FILENAME", "none", true);
  }
  GDALDataset* dataset = GDALDataset::Open(name.c_str(), flags, nullptr, options);
  if (!dataset || !policy->confined) return dataset;
  const CPLStringList files(dataset->GetFileList());
  const std::string part = ForbiddenPart(name, *policy, files.List());
  if (part.empty()) return dataset;
  GDALClose(dataset);
  CPLError(CE_Failure, CPLE_OpenFailed, "%s", part.c_str());
  return nullptr;
}

/// Bytes of a decoded block of a GeoTIFF, with all bands where they lie in it together.
double BlockBytes(GDALDataset& dataset) {
  GDALRasterBand& band = *dataset.GetRasterBand(1);
  int width = 0;
  int height = 0;
  band.GetBlockSize(&width, &height);
  const char* interleave = dataset.GetMetadataItem("INTERLEAVE", "IMAGE_STRUCTURE");
  const int bands = interleave && EQUAL(interleave, "PIXEL") ? dataset.GetRasterCount() : 1;
  return 1.0 * width * height * bands * GDALGetDataTypeSizeBytes(band.GetRasterDataType());
}

/// Why a GeoTIFF cannot hold what it declares a block to be; empty where it may. GDAL makes room for one before it
/// looks.
std::string BeyondItsFile(GDALDataset& dataset, const std::string& name) {
  constexpr double kWorthALook = 1 << 28;
  if (!IsGeoTiff(dataset)) return {};
  const double bytes = BlockBytes(dataset);
  if (bytes <= kWorthALook) return {};
  const char* compression = dataset.GetMetadataItem("COMPRESSION", "IMAGE_STRUCTURE");
  // These tell of a block in a few bytes that it is the same all over.
  if (compression && (STARTS_WITH_CI(compression, "LERC") || EQUAL(compression, "JXL"))) return {};
  VSIStatBufL status;
  // Not every name is that of a file.
  if (VSIStatL(name.c_str(), &status) != 0) return {};
  const auto fileBytes = static_cast<double>(status.st_size);
  // No other packs that well: ZSTD, the best of them, comes to 33,000.
  constexpr double kMostPacked = 1e5;
  if (bytes <= fileBytes * (compression ? kMostPacked : 1.0)) return {};
  return CPLSPrintf("it declares blocks of %.3g bytes and has %.3g itself: it is damaged or cut off", bytes, fileBytes);
}

/// Why a raster that opens is none to work with; empty where it is one.
std::string WhatCannotBe(GDALDataset& dataset, const std::string& name) {
  if (dataset.GetRasterCount() == 0) {
    return "it has no band of its own; an image inside it is opened by that image's name";
  }
  // Sums over an image count its pixels in doubles.
  constexpr double kMostPixels = 9007199254740992.0;
  const double pixels = static_cast<double>(dataset.GetRasterXSize()) * dataset.GetRasterYSize();
  if (pixels > kMostPixels) return CPLSPrintf("it declares %.3g pixels, more than can be counted", pixels);
  return BeyondItsFile(dataset, name);
}

GDALDataset* OpenDataset(const std::string& name, bool update) {
  CPLStringList options;
  const auto open = [&] {
    return OpenNamed(name,
                     static_cast<unsigned int>(GDAL_OF_RASTER | GDAL_OF_VERBOSE_ERROR |
                                               (update ? GDAL_OF_UPDATE : GDAL_OF_READONLY)),
                     options.List());
  };
  GDALDataset* dataset = open();
  if (dataset && !update && HasLargePlainStrips(*dataset)) {
    // GDAL looks at this when it opens a file.
    const CPLConfigOptionSetter directly("GTIFF_DIRECT_IO", "YES", true);
    GDALClose(dataset);
    dataset = open();
  }
  if (dataset && !update && CodecThreads() > 1 && DecodesBandByBand(*dataset)) {
    options.SetNameValue("NUM_THREADS", std::to_string(CodecThreads()).c_str());
    GDALClose(dataset);
    dataset = open();
  }
  if (!dataset) return nullptr;
  const std::string fault = WhatCannotBe(*dataset, name);
  if (fault.empty()) return dataset;
  GDALClose(dataset);
  CPLError(CE_Failure, CPLE_OpenFailed, "%s", fault.c_str());
  return nullptr;
}

GDALDataset* DatasetOf(const CRasterSource& source) { return static_cast<GDALDataset*>(source.NativeHandle()); }
GDALRasterBand* AlphaOf(const CRasterSource& source) { return static_cast<GDALRasterBand*>(source.AlphaHandle()); }

int ToGdalType(PixelDataType type) { return type > PDT_UNKNOWN && type <= PDT_FLOAT64 ? kTypes[type] : GDT_Unknown; }

PixelDataType FromGdalType(int type) {
  for (int known = PDT_UINT8; known <= PDT_FLOAT64; ++known) {
    if (kTypes[known] == type) return static_cast<PixelDataType>(known);
  }
  if (type == GDT_Unknown) return PDT_UNKNOWN;
  // Complex numbers are read by their real part, 64-bit integers as doubles.
  const auto gdalType = static_cast<GDALDataType>(type);
  return GDALDataTypeIsComplex(gdalType) ? FromGdalType(GDALGetNonComplexDataType(gdalType)) : PDT_FLOAT64;
}

bool ReadWkt(const std::wstring& wkt, OGRSpatialReference& crs) {
  if (wkt.empty()) return false;
  const GdalErrors quiet;
  // Text only: neither a file nor a web address is looked up.
  if (crs.SetFromUserInput(CommonFun::U2Utf8(wkt).c_str(),
                           OGRSpatialReference::SET_FROM_USER_INPUT_LIMITATIONS_get()) != OGRERR_NONE) {
    return false;
  }
  crs.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  return true;
}

}  // namespace platform
