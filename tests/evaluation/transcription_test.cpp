// All four metrics against the definition written out pixel by pixel, over random scenes and every kind of block.
#include <cmath>
#include <cstring>
#include <memory>
#include <random>

#include "evaluation/entropy_evaluate.h"
#include "evaluation/grad_evaluate.h"
#include "evaluation/snr_evaluate.h"
#include "evaluation/statistic_evaluate.h"
#include "platform/raster/gis_data_source.h"
#include "platform/raster/reproject.h"
#include "tests/evaluation/evaluation_fixture.h"
#include "tests/evaluation/reference_evaluation.h"

namespace {

using reference::Evaluation;
using reference::Image;

struct Case {
  const char* name;
  int width = 61;
  int height = 47;
  int bands = 2;
  double ratio = 4.0;   ///< multispectral pixel over fused pixel
  double shiftX = 0.0;  ///< of the multispectral origin, in fused pixels
  double shiftY = 0.0;
  int msWidth = 0;  ///< 0: enough to cover the fused image
  int msHeight = 0;
  int offsetX = 0;  ///< of the fused image in the pan image
  int offsetY = 0;
  bool reproject = false;
  std::optional<double> noData = std::nullopt;  ///< of all three images
  double low = 1.0;
  double high = 200.0;
  PixelDataType type = PDT_UINT8;
  std::vector<std::string> options = {};
  int blockWidth = 1024;
  int blockHeight = 1024;
};

std::ostream& operator<<(std::ostream& out, const Case& c) { return out << c.name; }

const std::vector<std::string> k256Tiles = {"TILED=YES", "BLOCKXSIZE=256", "BLOCKYSIZE=256"};
const std::vector<std::string> kWideTiles = {"TILED=YES", "BLOCKXSIZE=2048", "BLOCKYSIZE=512"};
const std::vector<std::string> kFlatTiles = {"TILED=YES", "BLOCKXSIZE=1024", "BLOCKYSIZE=256"};

const Case kCases[] = {
    {.name = "plain"},
    {.name = "wholeRatioShifted", .shiftX = -3.0, .shiftY = 2.0},
    {.name = "unevenRatio", .ratio = 3.7, .shiftX = -1.3, .shiftY = 0.4},
    {.name = "sameSize", .ratio = 1.0},
    {.name = "finerMultispectral", .width = 20, .height = 17, .ratio = 0.3},
    {.name = "noData", .noData = 3.0, .low = 1.0, .high = 8.0},
    {.name = "negativeValues", .low = -300.0, .high = -1.0, .type = PDT_INT16},
    {.name = "realValues", .noData = -2.25, .low = -4.0, .high = 4.0, .type = PDT_FLOAT32},
    {.name = "oneBandOneRow", .width = 33, .height = 1, .bands = 1},
    {.name = "panIsLarger", .offsetX = 7, .offsetY = 4},
    {.name = "partlyCovered", .shiftX = 9.0, .shiftY = -6.0, .msWidth = 7, .msHeight = 6},
    {.name = "tilesOf256", .width = 1100, .height = 1060, .bands = 1, .options = k256Tiles},
    {.name = "wideTilesVisitedInPart",
     .width = 2700,
     .height = 530,
     .bands = 1,
     .options = kWideTiles,
     .blockWidth = 2048,
     .blockHeight = 512},
    {.name = "flatTilesVisitedInPart",
     .width = 2100,
     .height = 300,
     .bands = 1,
     .options = kFlatTiles,
     .blockWidth = 1024,
     .blockHeight = 256},
    {.name = "stripsOfOneRow",
     .width = 1030,
     .height = 60,
     .options = {"BLOCKYSIZE=1"},
     .blockWidth = 1030,
     .blockHeight = 1},
    {.name = "stripsOfOneRowNoData",
     .width = 1030,
     .height = 40,
     .ratio = 2.0,
     .shiftY = 3.3,
     .noData = 3.0,
     .low = 1.0,
     .high = 8.0,
     .options = {"BLOCKYSIZE=1"},
     .blockWidth = 1030,
     .blockHeight = 1},
    {.name = "stripsOfSevenRows",
     .width = 1030,
     .height = 60,
     .ratio = 0.8,
     .options = {"BLOCKYSIZE=7"},
     .blockWidth = 1030,
     .blockHeight = 7},
    {.name = "narrowStrips", .width = 700, .height = 60, .options = {"BLOCKYSIZE=1"}},
    {.name = "reprojected", .reproject = true},
    {.name = "reprojectedNoData", .reproject = true, .noData = 3.0, .low = 1.0, .high = 8.0},
    {.name = "reprojectedStrips",
     .width = 1030,
     .height = 20,
     .bands = 1,
     .reproject = true,
     .options = {"BLOCKYSIZE=1"},
     .blockWidth = 1030,
     .blockHeight = 1},
    {.name = "reprojectedPartlyCovered", .shiftX = 9.0, .shiftY = -6.0, .msWidth = 7, .msHeight = 6, .reproject = true},
};

class Transcription : public test_support::EvaluationTest, public testing::WithParamInterface<Case> {
 protected:
  void SetUp() override {
    const Case& c = GetParam();
    const double step = 10.0;
    const double x = 440000.0;
    const double y = 4470000.0;
    const int msWidth = c.msWidth ? c.msWidth : static_cast<int>(std::ceil(c.width / c.ratio)) + 1;
    const int msHeight = c.msHeight ? c.msHeight : static_cast<int>(std::ceil(c.height / c.ratio)) + 1;
    pan = Random(c.width + c.offsetX, c.height + c.offsetY, 1, step, x - c.offsetX * step, y + c.offsetY * step);
    fused = Random(c.width, c.height, c.bands, step, x, y);
    if (c.reproject) {
      // Degrees; the fused image's corner lies at -3.70682, 40.37843.
      const double degree = step * c.ratio / 111000.0;
      ms = Random(msWidth, msHeight, c.bands, degree, -3.7071 + c.shiftX * step / 85000.0,
                  40.3787 - c.shiftY * step / 111000.0);
    } else {
      ms = Random(msWidth, msHeight, c.bands, step * c.ratio, x + c.shiftX * step, y - c.shiftY * step);
    }
    for (auto* storage : {&panStorage, &msStorage, &fusedStorage}) {
      storage->type = c.type;
      storage->noData = c.noData;
      storage->wkt = test_support::UtmWkt();
    }
    if (c.reproject) msStorage.wkt = test_support::Wgs84Wkt();
    fusedStorage.options = c.options;
    Write(pan, ms, fused);
    param.m_bReproject = c.reproject;
    param.m_rcPanOffset = {c.offsetX, c.offsetY, 0, 0};
    // Pairs of unlike numbers.
    std::reverse(param.m_vecFusionBands.begin(), param.m_vecFusionBands.end());
    Describe();
  }

  Image Random(int width, int height, int bands, double step, double left, double top) {
    const Case& c = GetParam();
    std::uniform_real_distribution<double> value(c.low, c.high);
    const double digits = c.type == PDT_FLOAT32 ? 4.0 : 1.0;
    std::vector<test_support::Band> values(static_cast<std::size_t>(bands));
    for (auto& band : values) {
      for (int i = 0; i < width * height; ++i) band.push_back(std::floor(value(random) * digits) / digits);
    }
    return test_support::MakeImage(width, height, step, std::move(values), left, top);
  }

  void Describe() {
    const Case& c = GetParam();
    definition.pan = &pan;
    definition.ms = &ms;
    definition.fused = &fused;
    definition.msBands.assign(param.m_vecMulBands.begin(), param.m_vecMulBands.end());
    definition.fusedBands.assign(param.m_vecFusionBands.begin(), param.m_vecFusionBands.end());
    definition.offsetX = c.offsetX;
    definition.offsetY = c.offsetY;
    definition.panNoData = definition.msNoData = definition.fusedNoData = c.noData;
    definition.blockWidth = c.blockWidth;
    definition.blockHeight = c.blockHeight;
    if (!c.reproject) return;
    CRasterSource source;
    CRasterSource target;
    ASSERT_TRUE(source.Open(msFile, GDA_READ, true));
    ASSERT_TRUE(target.Open(fusedFile, GDA_READ, true));
    reproject.reset(CReproject::Create(&source, target.GetSpatialReferenceWKT(), nullptr, nullptr));
    ASSERT_TRUE(reproject);
    CBoundingBox box;
    ASSERT_TRUE(reproject->Src2DestBox(CGISDataSource::GetExtent(&source), box, 0.0, 0.0));
    reproject->CreateGrid(box, 0.0, 0.0, 3);
    definition.reproject = [this](double x, double y) {
      reference::Position p{};
      reproject->GetSrcPos(&x, &y, &p.x, &p.y, 1);
      return p;
    };
    definition.reprojectedRect = [this](double left, double top, double right, double bottom) {
      CRect rect;
      EXPECT_TRUE(reproject->GetInImgEnveFromGeoOut({left, top, right, bottom}, rect, 0.0, 0.0));
      return rect;
    };
  }

  static void ExpectFigure(const reference::Figures& expected, const char* name, const double* actual) {
    const std::vector<double>& values = expected.at(name);
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (std::isnan(values[i])) {
        EXPECT_TRUE(std::isnan(actual[i])) << name << ' ' << i << ": " << actual[i];
      } else if (std::isinf(values[i])) {
        EXPECT_EQ(actual[i], values[i]) << name << ' ' << i;
      } else {
        EXPECT_NEAR(actual[i], values[i], 1e-10 * std::max(1.0, std::fabs(values[i]))) << name << ' ' << i;
      }
    }
  }

  std::mt19937 random{20240607};
  Image pan;
  Image ms;
  Image fused;
  Evaluation definition;
  std::unique_ptr<CReproject> reproject;
};

TEST_P(Transcription, Entropy) {
  const auto expected = reference::Entropy(definition);
  const auto metric = Run<CEntropyEvaluate>();
  ExpectFigure(expected, "m_pEntropy", metric->m_pEntropy);
  ExpectFigure(expected, "m_pRelativeEntropy", metric->m_pRelativeEntropy);
  ExpectFigure(expected, "m_pDeviationEntropy", metric->m_pDeviationEntropy);
  ExpectFigure(expected, "m_pJointEntropy", metric->m_pJointEntropy);
}

TEST_P(Transcription, Statistic) {
  const auto expected = reference::Statistic(definition);
  const auto metric = Run<CStatisticEvaluate>();
  ExpectFigure(expected, "m_pMulMean", metric->m_pMulMean);
  ExpectFigure(expected, "m_pFusionMean", metric->m_pFusionMean);
  ExpectFigure(expected, "m_pMulStdDev", metric->m_pMulStdDev);
  ExpectFigure(expected, "m_pFusionStdDev", metric->m_pFusionStdDev);
  ExpectFigure(expected, "m_pCorrelation", metric->m_pCorrelation);
  ExpectFigure(expected, "m_pRelativeDeviation", metric->m_pRelativeDeviation);
  ExpectFigure(expected, "m_pRelativeError", metric->m_pRelativeError);
}

TEST_P(Transcription, SignalToNoise) {
  const auto expected = reference::SignalToNoise(definition);
  const auto metric = Run<CSNREvaluate>();
  ExpectFigure(expected, "m_pSNR", metric->m_pSNR);
  ExpectFigure(expected, "m_pPSNR", metric->m_pPSNR);
}

TEST_P(Transcription, Gradient) {
  const auto expected = reference::Gradient(definition);
  const auto metric = Run<CGradEvaluate>();
  ExpectFigure(expected, "m_pFusionMeanGrad", metric->m_pFusionMeanGrad);
  ExpectFigure(expected, "m_pMulMeanGrad", metric->m_pMulMeanGrad);
  ExpectFigure(expected, "m_pFusionRmsGrad", metric->m_pFusionRmsGrad);
  ExpectFigure(expected, "m_pMulRmsGrad", metric->m_pMulRmsGrad);
  ExpectFigure(expected, "m_pMeanAbsDiff", metric->m_pMeanAbsDiff);
  ExpectFigure(expected, "m_pDiffNorm", metric->m_pDiffNorm);
}

/// All figures of a metric, run in the ways that must not change them.
template <typename Metric>
void ExpectSameOnThreads(FusionEvaluateParam param, const std::vector<SharedArray Metric::*>& figures) {
  const std::size_t n = param.m_vecFusionBands.size();
  std::vector<std::vector<double>> expected;
  for (const std::int64_t mostPixels : {0, 1 << 20}) {
    for (const int threads : {1, 2, 7}) {
      param.m_nMostBlockPixels = mostPixels;
      Metric metric(&param);
      metric.SetThreads(threads);
      metric.SetOverlappedIo(threads % 2 == 0);
      metric.Process();
      ASSERT_EQ(metric.GetLastErrorType(), 0);
      std::vector<std::vector<double>> actual;
      for (const auto figure : figures) actual.emplace_back(&(metric.*figure)[0], &(metric.*figure)[0] + n);
      if (expected.empty()) expected = actual;
      for (std::size_t f = 0; f < figures.size(); ++f) {
        EXPECT_EQ(std::memcmp(actual[f].data(), expected[f].data(), n * sizeof(double)), 0)
            << "figure " << f << ", " << threads << " threads, blocks of " << mostPixels;
      }
    }
  }
}

TEST_P(Transcription, IsTheSameOnEveryNumberOfThreads) {
  using E = CEntropyEvaluate;
  ExpectSameOnThreads<E>(param, {&E::m_pEntropy, &E::m_pRelativeEntropy, &E::m_pDeviationEntropy, &E::m_pJointEntropy});
  using S = CStatisticEvaluate;
  ExpectSameOnThreads<S>(param, {&S::m_pMulMean, &S::m_pFusionMean, &S::m_pMulStdDev, &S::m_pFusionStdDev,
                                 &S::m_pCorrelation, &S::m_pRelativeDeviation, &S::m_pRelativeError});
  using N = CSNREvaluate;
  ExpectSameOnThreads<N>(param, {&N::m_pSNR, &N::m_pPSNR});
  using G = CGradEvaluate;
  ExpectSameOnThreads<G>(param, {&G::m_pFusionMeanGrad, &G::m_pMulMeanGrad, &G::m_pFusionRmsGrad, &G::m_pMulRmsGrad,
                                 &G::m_pMeanAbsDiff, &G::m_pDiffNorm});
}

INSTANTIATE_TEST_SUITE_P(Scenes, Transcription, testing::ValuesIn(kCases),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
