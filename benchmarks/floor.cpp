// fusion_floor PAN MS OUT: the least that any fusion through GDAL takes. Reads both inputs and writes as many bytes as
// a fused image has, band-interleaved, in blocks of 512 rows with 64 MB of block cache; computes nothing.
#include <gdal_priv.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

constexpr int kBlockHeight = 512;
constexpr GIntBig kCache = 64 << 20;

struct Closer {
  void operator()(GDALDataset* dataset) const { GDALClose(dataset); }
};
using Dataset = std::unique_ptr<GDALDataset, Closer>;

Dataset Open(const char* path) { return Dataset(GDALDataset::Open(path, GDAL_OF_RASTER | GDAL_OF_READONLY)); }

/// Whole rows of one band in its own type.
bool Transfer(GDALRWFlag flag, GDALDataset& dataset, int band, int top, int rows, std::vector<char>& buffer) {
  GDALRasterBand* source = dataset.GetRasterBand(band);
  const int width = dataset.GetRasterXSize();
  const GDALDataType type = source->GetRasterDataType();
  const auto size = static_cast<std::size_t>(width) * static_cast<std::size_t>(rows) *
                    static_cast<std::size_t>(GDALGetDataTypeSizeBytes(type));
  if (buffer.size() < size) buffer.resize(size);
  return rows == 0 ||
         source->RasterIO(flag, 0, top, width, rows, buffer.data(), width, rows, type, 0, 0, nullptr) == CE_None;
}

bool Copy(GDALDataset& pan, GDALDataset& ms, GDALDataset& out) {
  const int height = pan.GetRasterYSize();
  const int bands = ms.GetRasterCount();
  // The row of ms that a row of pan starts in.
  const auto msRow = [&](int row) {
    return static_cast<int>(static_cast<GIntBig>(row) * ms.GetRasterYSize() / height);
  };
  std::vector<char> panRows;
  std::vector<char> msRows;
  for (int top = 0; top < height; top += kBlockHeight) {
    const int rows = std::min(kBlockHeight, height - top);
    if (!Transfer(GF_Read, pan, 1, top, rows, panRows)) return false;
    for (int b = 1; b <= bands; ++b) {
      if (!Transfer(GF_Read, ms, b, msRow(top), msRow(top + rows) - msRow(top), msRows)) return false;
    }
    for (int b = 1; b <= bands; ++b) {
      if (!Transfer(GF_Write, out, b, top, rows, panRows)) return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: fusion_floor PAN MS OUT\n");
    return 2;
  }
  GDALAllRegister();
  GDALSetCacheMax64(kCache);
  const Dataset pan = Open(argv[1]);
  const Dataset ms = Open(argv[2]);
  if (!pan || !ms) return 1;
  const char* const options[] = {"INTERLEAVE=BAND", "BIGTIFF=IF_SAFER", nullptr};
  Dataset out(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
      argv[3], pan->GetRasterXSize(), pan->GetRasterYSize(), ms->GetRasterCount(),
      ms->GetRasterBand(1)->GetRasterDataType(), const_cast<char**>(options)));
  return out && Copy(*pan, *ms, *out) ? 0 : 1;
}
