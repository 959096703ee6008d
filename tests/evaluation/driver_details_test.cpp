// The driver in detail: what is opened how, in which order things happen, and what it hands to every metric.
#include <gdal_priv.h>

#include <memory>

#include "evaluation/entropy_evaluate.h"
#include "evaluation/grad_evaluate.h"
#include "evaluation/ms_cells.h"
#include "evaluation/snr_evaluate.h"
#include "evaluation/statistic_evaluate.h"
#include "platform/raster/raster_fault.h"
#include "platform/utility/common_fun.h"
#include "tests/evaluation/evaluation_probe.h"
#include "tests/support/test_raster.h"

namespace {

using platform::RasterOperation;
using test_support::Band;
using test_support::EvaluationDriver;
using test_support::MakeImage;
using test_support::Places;
using test_support::Probe;

TEST_F(EvaluationDriver, AnyValueButZeroAsksForTheReprojection) {
  // Which cannot be built between images without coordinate systems.
  for (const std::int32_t value : {2, -1, 256, INT32_MIN, INT32_MAX}) {
    WriteSmall();
    param.m_bReproject = value;
    EXPECT_EQ(RunProbe()->GetLastErrorType(), 20) << value;
  }
}

TEST_F(EvaluationDriver, InputsThatAreNotNorthUpAreOpenedThroughAWarp) {
  class Opened : public Probe {
   public:
    using Probe::Probe;
    GISError Preproccess() override {
      for (const CRasterSource* source : {m_pPanSource, m_pMulSource, m_pFusionSource}) {
        isUpright.push_back(source->PixelToGround().IsAxisAligned());
        widths.push_back(source->GetWidth());
      }
      Probe::Preproccess();
      return GIS_FAILED;
    }
    std::vector<bool> isUpright;
    std::vector<int> widths;
  };
  for (int turned = 0; turned < 3; ++turned) {
    reference::Image images[3];
    for (int i = 0; i < 3; ++i) {
      images[i] = MakeImage(20, 20, 1.0, {Places(20, 20)});
      if (i != turned) continue;
      const double transform[6] = {0.0, 0.8, 0.6, 0.0, 0.6, -0.8};
      std::copy_n(transform, 6, images[i].geoTransform);
    }
    Write(images[0], images[1], images[2]);
    Opened probe(&param);
    probe.Process();
    EXPECT_EQ(probe.isUpright, (std::vector<bool>{true, true, true})) << turned;
    for (int i = 0; i < 3; ++i) {
      // A square turned so covers 28 x 28 pixels.
      EXPECT_EQ(probe.widths[static_cast<std::size_t>(i)] > 20, i == turned) << turned;
    }
  }
}

TEST_F(EvaluationDriver, StepCounterStartsAtZeroAndIsNeverSetBack) {
  class Counting : public Probe {
   public:
    using Probe::Probe;
    GISError Preproccess() override {
      before.push_back(m_nProcessStep);
      return Probe::Preproccess();
    }
    std::vector<int> before;
  };
  WriteSmall();
  Counting probe(&param);
  probe.Process();
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorType(), 0);
  EXPECT_EQ(probe.before, (std::vector<int>{0, 1}));
  EXPECT_EQ(probe.steps, (std::vector<int>{1, 2}));
}

TEST_F(EvaluationDriver, RunBeginsWithoutTheErrorOfTheOneBefore) {
  WriteSmall();
  FailRead(fusedFile, 0);
  Probe probe(&param);
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorType(), 2);
  platform::SetRasterFault({});
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorType(), 0);
  EXPECT_TRUE(probe.GetLastErrorMessage().empty());
}

TEST_F(EvaluationDriver, BlockReadsTheFusedBandsThenTheMultispectralOnesThenPan) {
  const Band zeros(16, 0.0);
  Write(MakeImage(4, 4, 1.0, {zeros, zeros}), MakeImage(4, 4, 1.0, {zeros, zeros, zeros}),
        MakeImage(4, 4, 1.0, {zeros, zeros, zeros}));
  param.m_nPanBand = 1;
  param.m_vecMulBands = {2, 0};
  param.m_vecFusionBands = {1, 2};
  using Read = std::pair<std::wstring, int>;
  std::vector<Read> reads;
  std::size_t failing = 100;
  platform::SetRasterFault([&](RasterOperation operation, const std::wstring& path, int band, const CRect&) {
    if (operation != RasterOperation::kRead) return false;
    reads.emplace_back(path, band);
    return reads.size() == failing;
  });
  const std::vector<Read> expected = {{fusedFile, 1}, {fusedFile, 2}, {msFile, 2}, {msFile, 0}, {panFile, 1}};
  EXPECT_EQ(RunProbe()->GetLastErrorType(), 0);
  EXPECT_EQ(reads, expected);
  // Nothing is read behind what fails.
  for (failing = 1; failing <= expected.size(); ++failing) {
    reads.clear();
    EXPECT_EQ(RunProbe()->GetLastErrorType(), 2);
    EXPECT_EQ(reads.size(), failing);
  }
}

TEST_F(EvaluationDriver, PanComesFromItsBand) {
  Write(MakeImage(2, 1, 1.0, {{1, 2}, {10, 20}}), MakeImage(2, 1, 1.0, {{0, 0}}), MakeImage(2, 1, 1.0, {{0, 0}}));
  param.m_nPanBand = 1;
  EXPECT_EQ(RunProbe()->firstPan, std::vector<double>{10.0});
}

TEST_F(EvaluationDriver, ReadHasFivePixelsOfMarginOnEverySide) {
  const Band zeros(4, 0.0);
  Write(MakeImage(2, 2, 1.0, {zeros}, 20.0, -30.0), MakeImage(60, 60, 1.0, {Places(60, 60)}),
        MakeImage(2, 2, 1.0, {zeros}, 20.0, -30.0));
  EXPECT_EQ(RunProbe()->readRects, std::vector<CRect>{CRect(15, 25, 27, 37)});
}

TEST_F(EvaluationDriver, StagesAndStepsComeInTheirOrder) {
  class Ordered : public Probe {
   public:
    Ordered(FusionEvaluateParam* record, test_support::RecordingProgress& reporter)
        : Probe(record), m_reporter(reporter) {
      SetProgress(&reporter);
    }
    GISError Preproccess() override {
      atPreproccess = m_reporter.Calls().size();
      return Probe::Preproccess();
    }
    void EndBolckProcess() override {
      atEnd.push_back(m_reporter.Steps());
      EXPECT_EQ(calls.back(), "Evaluate");
      Probe::EndBolckProcess();
    }
    void EndProccess() override {
      EXPECT_FALSE(m_reporter.Finished());
      Probe::EndProccess();
    }
    std::size_t atPreproccess = 0;
    std::vector<int> atEnd;

   private:
    test_support::RecordingProgress& m_reporter;
  };
  WriteSmall();
  Ordered probe(&param, progress);
  FourBlocks(probe);
  probe.Process();
  EXPECT_EQ(probe.atPreproccess, 2u) << "before the second stage";
  EXPECT_EQ(probe.atEnd, (std::vector<int>{1, 2, 3, 4})) << "each before its step";
  EXPECT_TRUE(progress.Finished());
}

template <typename Metric>
class EachMetric : public EvaluationDriver {};
using Metrics = testing::Types<CEntropyEvaluate, CStatisticEvaluate, CSNREvaluate, CGradEvaluate>;
TYPED_TEST_SUITE(EachMetric, Metrics);

TYPED_TEST(EachMetric, AnswersListsOfUnequalLengthWithFour) {
  const auto prepare = [](std::vector<std::int32_t> mul, std::vector<std::int32_t> fused) {
    FusionEvaluateParam record;
    record.m_vecMulBands = std::move(mul);
    record.m_vecFusionBands = std::move(fused);
    return TypeParam(&record).Preproccess();
  };
  EXPECT_EQ(prepare({0, 1}, {2, 3}), 0);
  EXPECT_EQ(prepare({}, {}), 0);
  EXPECT_EQ(prepare({0}, {0, 1}), 4);
  EXPECT_EQ(prepare({0, 1}, {0}), 4);
}

TYPED_TEST(EachMetric, IsFinishedByItsLastPass) {
  TypeParam metric(&this->param);
  const bool hasTwoPasses =
      std::is_same_v<TypeParam, CEntropyEvaluate> || std::is_same_v<TypeParam, CStatisticEvaluate>;
  for (const int step : {-1, 0, 1, 2, 3, 4}) EXPECT_EQ(metric.IsFinished(step), !hasTwoPasses || step == 2) << step;
}

/// Images of two bands of which the second alone declares no-data values of its own.
class BandsOfTheirOwn : public EvaluationDriver {
 protected:
  void WriteBands(const std::wstring& path, const Band& values, double noData) {
    test_support::TestRaster raster;
    raster.width = static_cast<int>(values.size());
    raster.height = 1;
    raster.bands = {Band(values.size(), 1.0), values};
    raster.driver = "HFA";
    raster.geoTransform = std::vector<double>{0.0, 1.0, 0.0, 0.0, 0.0, -1.0};
    ASSERT_TRUE(test_support::WriteRaster(raster, path));
    const std::unique_ptr<GDALDataset> file(
        GDALDataset::Open(CommonFun::U2Utf8(path).c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    ASSERT_EQ(file->GetRasterBand(2)->SetNoDataValue(noData), CE_None);
  }
};

TEST_F(BandsOfTheirOwn, SayWhatTheirNoDataIs) {
  WriteBands(panFile, {0, 5, 70, 20}, 70.0);
  WriteBands(msFile, {2, 4, 6, 80}, 80.0);
  WriteBands(fusedFile, {90, 1, 7, 4}, 90.0);
  param.m_nPanBand = 1;
  param.m_vecMulBands = param.m_vecFusionBands = {1};
  struct Entropy : CEntropyEvaluate {
    using CEntropyEvaluate::CEntropyEvaluate;
    using CEntropyEvaluate::m_dPanMax;
  };
  EXPECT_EQ(Run<Entropy>()->m_dPanMax, 20.0);
  const auto statistic = Run<CStatisticEvaluate>();
  EXPECT_DOUBLE_EQ(statistic->m_pMulMean[0], 4.0);
  EXPECT_DOUBLE_EQ(statistic->m_pFusionMean[0], 4.0);
}

TEST_F(EvaluationDriver, AnImageHigherThanWideIsComparedDownToItsLastRow) {
  const Band values = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
  WritePair(2, 5, values, values);
  const auto metric = Run<CStatisticEvaluate>();
  EXPECT_EQ(metric->m_pRelativeError[0], 0.0);
  EXPECT_DOUBLE_EQ(metric->m_pMulMean[0], 5.5);
}

TEST_F(EvaluationDriver, CellsAreThoseOfTheBlockAndOfTheBufferAskedFor) {
  WritePair(4, 1, Band(4, 0.0), Band(4, 0.0));
  CRasterSource fused;
  CRasterSource ms;
  ASSERT_TRUE(fused.OpenSimple(fusedFile) && ms.OpenSimple(msFile));
  fusion::MsCells cells(fused, ms, nullptr, 0);
  const auto row = [&](int left, int right, int bufferLeft, int bufferRight) {
    return cells.Columns(CRect(left, 0, right, 1), CRect(bufferLeft, 0, bufferRight, 1));
  };
  // Of equal pixels a column's cell is its distance from the buffer's first; one end changes at a time.
  using Cells = std::vector<std::int64_t>;
  EXPECT_EQ(row(0, 4, 0, 4), (Cells{0, 1, 2, 3}));
  EXPECT_EQ(row(2, 4, 0, 4), (Cells{2, 3}));
  EXPECT_EQ(row(2, 3, 0, 4), (Cells{2}));
  EXPECT_EQ(row(2, 3, 1, 4), (Cells{1}));
  EXPECT_EQ(row(2, 3, 1, 2), (Cells{0})) << "no further than the buffer's last";
}

TEST_F(EvaluationDriver, ImagesOpenedAsTheyLieAreMappedPixelByPixel) {
  // The multispectral image is turned by a right angle: its column runs down, its row to the right.
  class AsTheyLie : public CStatisticEvaluate {
   public:
    using CStatisticEvaluate::CStatisticEvaluate;
    bool OpenRasterSource(FusionEvaluateParam* record, CRasterSource* pan, CRasterSource* mul, CRasterSource* fused,
                          std::vector<int>* mulBands, std::vector<int>* fusedBands) override {
      *mulBands = record->m_vecMulBands;
      *fusedBands = record->m_vecFusionBands;
      return pan->OpenSimple(record->m_strPanFile) && mul->OpenSimple(record->m_strMulFile) &&
             fused->OpenSimple(record->m_strFusionFile);
    }
  };
  reference::Image ms = MakeImage(3, 3, 1.0, {{1, 4, 7, 2, 5, 8, 3, 6, 9}});
  const double transform[6] = {0.0, 0.0, 1.0, 0.0, -1.0, 0.0};
  std::copy_n(transform, 6, ms.geoTransform);
  const Band fused = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  Write(MakeImage(3, 3, 1.0, {fused}), ms, MakeImage(3, 3, 1.0, {fused}));
  const auto metric = Run<AsTheyLie>();
  EXPECT_EQ(metric->m_pRelativeError[0], 0.0);
  EXPECT_DOUBLE_EQ(metric->m_pCorrelation[0], 1.0);
}

}  // namespace
