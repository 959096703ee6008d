// Two fusion methods of one's own, written on the installed library: own_method PAN MS OUT1 OUT2
//
// Both add the deviation of pan from its mean to every resampled band. The first gives the library the arithmetic of a
// row; the second does the whole block by itself.
#include <algorithm>
#include <cmath>
#include <iostream>
#include <vector>

#include "fusion_api.h"

namespace {

/// out = ms + (pan - mean of pan), as arithmetic on rows.
class DetailByRows : public CRowFusion {
 public:
  explicit DetailByRows(FusionParam* param) : CRowFusion(param, MakeRows) {}

  GISError Preproccess() override {
    const GISError result = CRowFusion::Preproccess();
    CRasterBand* pan = ExistingBand(*m_pPanSrc, m_param.m_nPanBand);
    double unused = 0.0;
    if (!pan || !MeasureBand(*pan, unused, unused, m_panMean, unused)) return GIS_FAILED;
    return result;
  }

 private:
  static fusion::RowMethod MakeRows(CRowFusion& fusion, const fusion::FusionBlock&) {
    const double mean = static_cast<DetailByRows&>(fusion).m_panMean;
    return {{}, [mean](const fusion::FusionRow& row) {
              for (int b = 0; b < row.outBandCount; ++b) {
                for (int i = 0; i < row.width; ++i) row.out[b][i] = row.ms[b][i] + (row.pan[i] - mean);
              }
            }};
  }

  double m_panMean = 0.0;
};

/// The same with a statistics pass over the blocks, and an AlgorithmProcess of its own for float outputs of images
/// whose grids are neither turned nor in different coordinate systems.
class DetailByBlocks : public CFusion {
 public:
  using CFusion::CFusion;

  GISError Preproccess() override {
    double sum = 0.0;
    double count = 0.0;
    const bool complete = VisitBlocks(L"Mean of pan", [&](const fusion::FusionBlock& block) {
      const auto pixels = static_cast<int>(block.panRect->Area());
      for (int i = 0; i < pixels; ++i) sum += block.pan[i];
      count += pixels;
    });
    m_panMean = count > 0.0 ? sum / count : 0.0;
    return complete ? GIS_SUCCESS : GIS_FAILED;
  }

  void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                          PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI*) override {
    if (outType != PDT_FLOAT32) return nullptr;
    const platform::Affine toGround = m_pPanSrc->PixelToGround();
    const platform::Affine toMs = m_pMSSrc->GroundToPixel();
    std::vector<const double*> bands(ms, ms + msBandCount);
    std::vector<double> values(bands.size());
    void** out = new void*[static_cast<std::size_t>(outBandCount)];
    for (int b = 0; b < outBandCount; ++b) out[b] = new float[static_cast<std::size_t>(dstBlock->Area())]();
    for (int y = panRect->top, i = 0; y < panRect->bottom; ++y) {
      for (int x = panRect->left; x < panRect->right; ++x, ++i) {
        const double east = toGround.X(x + 0.5, y + 0.5);
        const double north = toGround.Y(x + 0.5, y + 0.5);
        const double column = std::clamp(toMs.X(east, north) - 0.5, 0.0, m_pMSSrc->GetWidth() - 1.0);
        const double row = std::clamp(toMs.Y(east, north) - 0.5, 0.0, m_pMSSrc->GetHeight() - 1.0);
        Resample(column, row, bands.data(), msBandCount, msRect, values.data());
        for (int b = 0; b < std::min(outBandCount, msBandCount); ++b) {
          static_cast<float*>(out[b])[i] =
              static_cast<float>(values[static_cast<std::size_t>(b)] + (pan[i] - m_panMean));
        }
      }
    }
    return out;
  }

 private:
  double m_panMean = 0.0;
};

template <typename Method>
bool Fuse(FusionParam param, const char* out) {
  param.m_strOutFile = CommonFun::M2U(out);
  Method fusion(&param);
  fusion.Process();
  if (fusion.Succeeded()) return true;
  std::cerr << "error " << fusion.GetLastErrorType() << ": " << CommonFun::U2Utf8(fusion.GetLastErrorMessage()) << '\n';
  return false;
}

/// The largest difference between two images.
double Difference(const char* first, const char* second) {
  CRasterSource a;
  CRasterSource b;
  if (!a.OpenSimple(CommonFun::M2U(first)) || !b.OpenSimple(CommonFun::M2U(second))) return 1e300;
  double most = 0.0;
  std::vector<double> left(static_cast<std::size_t>(a.GetWidth()) * static_cast<std::size_t>(a.GetHeight()));
  std::vector<double> right(left.size());
  for (int band = 0; band < a.GetBandCount(); ++band) {
    const auto read = [&](CRasterSource& source, std::vector<double>& values) {
      return source.GetRasterBand(band)->ReadBlock(0, 0, a.GetWidth(), a.GetHeight(), values.data(), a.GetWidth(),
                                                   a.GetHeight(), PDT_FLOAT64) == 0;
    };
    if (!read(a, left) || !read(b, right)) return 1e300;
    for (std::size_t i = 0; i < left.size(); ++i) most = std::max(most, std::abs(left[i] - right[i]));
  }
  return most;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::cerr << "usage: own_method PAN MS OUT1 OUT2\n";
    return 2;
  }
  FusionParam param;
  param.m_strPanFile = CommonFun::M2U(argv[1]);
  param.m_strMSFile = CommonFun::M2U(argv[2]);
  param.m_eOutDataType = PDT_FLOAT32;
  param.m_eResampleType = RT_BILINEAR;
  if (!Fuse<DetailByRows>(param, argv[3]) || !Fuse<DetailByBlocks>(param, argv[4])) return 1;
  const double difference = Difference(argv[3], argv[4]);
  std::cout << "both ways differ by at most " << difference << '\n';
  return difference < 1e-3 ? 0 : 1;
}
