#include "platform/raster/jpeg.h"

#include <cpl_string.h>
#include <cpl_vsi.h>
#include <gdal_priv.h>

#include <atomic>
#include <memory>

#include "platform/raster/gdal_access.h"

namespace platform {

std::string EncodeJpeg(const std::vector<std::vector<std::uint8_t>>& bands, int width, int height, int quality) {
  static std::atomic<int> count{0};
  InitialiseGdal();
  const GdalErrors quiet;
  GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("MEM");
  GDALDriver* jpeg = GetGDALDriverManager()->GetDriverByName("JPEG");
  if (!memory || !jpeg) return {};
  const auto bandCount = static_cast<int>(bands.size());
  const std::unique_ptr<GDALDataset> image(memory->Create("", width, height, bandCount, GDT_Byte, nullptr));
  if (!image) return {};
  for (int b = 0; b < bandCount; ++b) {
    // GDAL's transfers take what they only read as no constant.
    auto* samples = const_cast<std::uint8_t*>(bands[static_cast<std::size_t>(b)].data());
    if (image->GetRasterBand(b + 1)->RasterIO(GF_Write, 0, 0, width, height, samples, width, height, GDT_Byte, 0, 0,
                                              nullptr) != CE_None) {
      return {};
    }
  }
  const std::string name = "/vsimem/fusion_picture_" + std::to_string(++count) + ".jpg";
  CPLStringList options;
  options.SetNameValue("QUALITY", std::to_string(quality).c_str());
  const std::unique_ptr<GDALDataset> written(
      jpeg->CreateCopy(name.c_str(), image.get(), FALSE, options.List(), nullptr, nullptr));
  std::string bytes;
  if (written) {
    vsi_l_offset size = 0;
    const GByte* buffer = VSIGetMemFileBuffer(name.c_str(), &size, FALSE);
    if (buffer) bytes.assign(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(size));
  }
  VSIUnlink(name.c_str());
  return bytes;
}

}  // namespace platform
