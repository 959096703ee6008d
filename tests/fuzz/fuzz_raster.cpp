// A raster of any bytes: opened, asked for all it tells, and read. The first byte chooses what it is called.
#include <cpl_error.h>
#include <cpl_vsi.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "platform/raster/raster_source.h"
#include "platform/raster/references.h"
#include "platform/utility/common_fun.h"

namespace {

void Put(const std::string& name, const std::uint8_t* data, std::size_t size) {
  VSILFILE* file = VSIFOpenL(name.c_str(), "wb");
  VSIFWriteL(data, 1, size, file);
  VSIFCloseL(file);
}

void Read(CRasterBand& band) {
  constexpr int kMost = 64;
  const int width = std::min(band.GetWidth(), kMost);
  const int height = std::min(band.GetHeight(), kMost);
  std::vector<double> values(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  for (const int left : {0, band.GetWidth() - width}) {
    for (const int top : {0, band.GetHeight() - height}) {
      static_cast<void>(band.ReadBlock(left, top, width, height, values.data(), width, height, PDT_FLOAT64));
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const char* const kNames[] = {"in.tif", "in.vrt", "in.img", "in.dat", "in.png"};
  if (size < 2) return 0;
  CPLSetErrorHandler(CPLQuietErrorHandler);
  const std::string name = std::string("/vsimem/fuzz/") + kNames[data[0] % std::size(kNames)];
  if (data[0] % std::size(kNames) == 3) {
    // A header beside pixels.
    Put("/vsimem/fuzz/in.hdr", data + 1, size - 1);
    Put(name, data + 1, size - 1);
  } else {
    Put(name, data + 1, size - 1);
  }
  {
    const platform::ReferenceScope confined({false, true});
    CRasterSource source;
    const bool northUp = (data[0] & 0x80) != 0;
    if (source.Open(CommonFun::Utf82U(name), GDA_READ, northUp)) {
      source.SetMaskNoData((data[0] & 0x40) != 0);
      double x = 0.0;
      double y = 0.0;
      source.GroundToImage(1e9, -1e9, x, y);
      for (int b = 0; b < std::min(source.GetBandCount(), 4); ++b) Read(*source.GetRasterBand(b));
    }
  }
  VSIRmdirRecursive("/vsimem/fuzz");
  return 0;
}
