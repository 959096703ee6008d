// The runs over blocks against the pipelines of stages with files between them, byte for byte.
#include <gdal_priv.h>

#include <cmath>
#include <functional>
#include <memory>

#include "framework/match_targets.h"
#include "highpass/block_hpf.h"
#include "highpass/block_sharpening.h"
#include "highpass/hpf_fusion_process_alg.h"
#include "highpass/simple_pan_sharpening_fusion_process_alg.h"
#include "platform/processing/stretch_of_multi_band.h"
#include "platform/utility/common_fun.h"
#include "tests/highpass/pipeline_fixture.h"
#include "tests/support/gap_scene.h"
#include "tests/support/method_sweep.h"

namespace {

using highpass_test::HighPass;
using test_support::GapScene;
using test_support::GapShape;
using test_support::ReadImage;
using test_support::Scene;
using test_support::SceneOptions;

struct Setting {
  std::string name;
  std::function<void(HpfFusionParam&)> choose;
};

/// What a record may ask of both ways.
std::vector<Setting> Settings() {
  return {
      {"one kernel", [](HpfFusionParam&) {}},
      {"two kernels",
       [](HpfFusionParam& p) {
         p.m_bSecondFilter = true;
         p.m_dDetailWeight1 = 0.8;
         p.m_dDetailWeight2 = 0.6;
       }},
      {"a kernel of its own",
       [](HpfFusionParam& p) {
         p.m_filter1 = {0.3, {0.5, -1.0, 0.25, 2.0, -0.75, 1.5}, 3, 2, 0, 1};
       }},
      {"green mix", [](HpfFusionParam& p) { p.m_bMakeGreen = true; }},
      {"green mix, two kernels",
       [](HpfFusionParam& p) {
         p.m_bMakeGreen = true;
         p.m_bSecondFilter = true;
       }},
      {"levelled", [](HpfFusionParam& p) { p.m_bDataStretch = true; }},
      {"levelled green mix",
       [](HpfFusionParam& p) {
         p.m_bMakeGreen = true;
         p.m_bDataStretch = true;
       }},
      {"edges and range",
       [](HpfFusionParam& p) {
         p.m_bRepeatMsEdges = true;
         p.m_bKeepSampleRange = true;
       }},
  };
}

class BlockPipelines : public testing::Test {
 protected:
  ~BlockPipelines() override {
    for (const auto& file : {m_blocks, m_stages}) CRasterSource::DeleteFileW(file);
  }

  HpfFusionParam Record(const Scene& scene) const {
    HpfFusionParam param;
    static_cast<FusionParam&>(param) = scene.Param(PDT_UNKNOWN);
    param.m_filter1 = HighPass(5);
    param.m_filter2 = HighPass(3);
    return param;
  }

  /// Runs the record both ways, as high-pass fusion.
  void ExpectSame(HpfFusionParam param, bool caps = false) const {
    param.m_strOutFile = m_stages;
    CHpfFusionProcessAlg stages(&param);
    stages.CapDetail(caps);
    stages.Process();
    test_support::ExpectSuccess(stages);
    for (const bool overlapped : {false, true}) {
      SCOPED_TRACE(overlapped ? "overlapped" : "one thread");
      param.m_strOutFile = m_blocks;
      fusion::BlockHpf blocks(&param);
      blocks.CapDetail(caps);
      blocks.SetOverlappedIo(overlapped);
      blocks.Process();
      test_support::ExpectSuccess(blocks);
      EXPECT_EQ(blocks.GetDetailWeight(), stages.GetDetailWeight());
      EXPECT_EQ(blocks.HasCappedDetail(), stages.HasCappedDetail());
      ExpectSameOutput();
    }
  }

  /// Runs the record both ways, as simple pan-sharpening.
  void ExpectSameSharpened(HpfFusionParam param) const {
    param.m_strOutFile = m_stages;
    CSimplePanSharpeningFusionProcessAlg stages(&param);
    stages.Process();
    test_support::ExpectSuccess(stages);
    for (const bool overlapped : {false, true}) {
      param.m_strOutFile = m_blocks;
      fusion::BlockSharpening blocks(&param);
      blocks.SetOverlappedIo(overlapped);
      blocks.Process();
      test_support::ExpectSuccess(blocks);
      ExpectSameOutput();
    }
  }

  /// The same with the matching behind it: a stage over the whole result, of which it cuts the run's part.
  void ExpectSameMatched(HpfFusionParam param, PixelDataType type, bool robust) const {
    const std::wstring raw = L"/vsimem/by_stages_raw.tif";
    std::vector<double> means = {400.0, 300.0, 512.5, 90.0};
    std::vector<double> stdDevs = {90.0, 40.0, 33.25, 20.0};
    HpfFusionParam whole = param;
    if (!param.m_rcScene.IsRectEmpty()) {
      whole.m_rcProcess = param.m_rcScene;
      whole.m_rcScene = {};
    }
    whole.m_strOutFile = raw;
    whole.m_eOutDataType = fusion::TypeToMatch(type);
    CSimplePanSharpeningFusionProcessAlg stages(&whole);
    stages.Process();
    test_support::ExpectSuccess(stages);
    // Opacity, which a fourth band of bytes is, is none of the bands of a run that masks.
    const std::size_t count = ReadImage(raw).bands.size();
    ASSERT_TRUE(count == 3 || count == 4);
    means.resize(count);
    stdDevs.resize(count);
    CStretchAlgorithmParam stretch;
    stretch.m_strInFile = raw;
    stretch.m_strOutFile = m_stages;
    stretch.m_strAoiFile = param.m_strAoiFile;
    stretch.m_bMaskNoData = param.m_bMaskNoData;
    stretch.m_bOpenOption = param.m_bOpenOption;
    stretch.m_eOutDataType = type;
    stretch.m_pMeans = means.data();
    stretch.m_pStdDevs = stdDevs.data();
    stretch.m_bRobust = robust;
    if (!param.m_rcScene.IsRectEmpty()) {
      CRasterSource pan;
      CRasterSource result;
      ASSERT_TRUE(pan.OpenSimple(param.m_strPanFile) && result.OpenSimple(raw));
      stretch.m_rcProcess = result.GroundToImage(pan.ImageToGround(param.m_rcProcess));
    }
    CStretchOfMultiBand matching(&stretch);
    matching.CMultiBandIOProcess::Process();
    test_support::ExpectSuccess(matching);
    CRasterSource::DeleteFileW(raw);

    param.m_strOutFile = m_blocks;
    param.m_eOutDataType = type;
    fusion::BlockSharpening blocks(&param);
    fusion::MatchTargets targets{means, stdDevs};
    targets.robust = robust;
    blocks.MatchBlocks(targets);
    blocks.SetOverlappedIo(true);
    blocks.Process();
    test_support::ExpectSuccess(blocks);
    ExpectSameOutput();
  }

  void ExpectAllSettings(const HpfFusionParam& param) const { ExpectSettings(param, 1); }
  /// Every so-manieth of them.
  void ExpectSettings(const HpfFusionParam& param, std::size_t step) const {
    const std::vector<Setting> settings = Settings();
    for (std::size_t i = 0; i < settings.size(); i += step) {
      const Setting& setting = settings[i];
      SCOPED_TRACE(setting.name);
      HpfFusionParam chosen = param;
      setting.choose(chosen);
      ExpectSame(chosen);
      if (chosen.m_bSecondFilter) continue;
      ExpectSameSharpened(chosen);
      if (HasFailure()) return;
      if (chosen.m_bDataStretch) continue;
      for (const PixelDataType type : {PDT_UINT16, PDT_INT32, PDT_FLOAT32}) {
        ExpectSameMatched(chosen, type, type == PDT_UINT16);
      }
      if (HasFailure()) return;
    }
  }

  void ExpectSameOutput() const {
    const auto open = [](const std::wstring& file) {
      return std::unique_ptr<GDALDataset>(GDALDataset::Open(CommonFun::U2Utf8(file).c_str()));
    };
    const auto actual = open(m_blocks);
    const auto expected = open(m_stages);
    ASSERT_TRUE(actual && expected);
    const int width = expected->GetRasterXSize();
    const int height = expected->GetRasterYSize();
    ASSERT_EQ(actual->GetRasterXSize(), width);
    ASSERT_EQ(actual->GetRasterYSize(), height);
    ASSERT_EQ(actual->GetRasterCount(), expected->GetRasterCount());
    EXPECT_STREQ(actual->GetProjectionRef(), expected->GetProjectionRef());
    double places[2][6] = {};
    ASSERT_EQ(actual->GetGeoTransform(places[0]), expected->GetGeoTransform(places[1]));
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(places[0][i], places[1][i], 1e-12 * std::fabs(places[1][i])) << i;
    for (int b = 1; b <= expected->GetRasterCount(); ++b) {
      GDALRasterBand& mine = *actual->GetRasterBand(b);
      GDALRasterBand& theirs = *expected->GetRasterBand(b);
      const GDALDataType type = theirs.GetRasterDataType();
      ASSERT_EQ(mine.GetRasterDataType(), type);
      int declared[2] = {};
      const double values[] = {mine.GetNoDataValue(declared), theirs.GetNoDataValue(declared + 1)};
      EXPECT_EQ(declared[0], declared[1]);
      if (declared[0]) {
        EXPECT_EQ(values[0], values[1]);
      }
      const auto bytes = [&](GDALRasterBand& band) {
        std::vector<unsigned char> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                                          static_cast<std::size_t>(GDALGetDataTypeSizeBytes(type)));
        EXPECT_EQ(band.RasterIO(GF_Read, 0, 0, width, height, pixels.data(), width, height, type, 0, 0), CE_None);
        return pixels;
      };
      const auto pixels = bytes(mine);
      const auto wanted = bytes(theirs);
      std::size_t differing = 0;
      for (std::size_t i = 0; i < pixels.size(); ++i) differing += pixels[i] != wanted[i];
      ASSERT_EQ(differing, 0U) << "bytes of band " << b << " of " << pixels.size();
    }
  }

  std::wstring m_blocks = L"/vsimem/by_blocks.tif";
  std::wstring m_stages = L"/vsimem/by_stages.tif";
};

SceneOptions FourBands() {
  SceneOptions options;
  options.msBands = 4;
  return options;
}

TEST_F(BlockPipelines, GiveTheBytesOfTheStages) {
  SceneOptions options = FourBands();
  options.panWidth = 61;
  options.panHeight = 47;
  const Scene scene(1, options);
  HpfFusionParam param = Record(scene);
  ExpectAllSettings(param);
  // Weights that are cut to the details' shares of pan.
  param.m_bSecondFilter = true;
  param.m_dDetailWeight1 = 4.0;
  param.m_dDetailWeight2 = 3.0;
  ExpectSame(param, true);
}

TEST_F(BlockPipelines, GiveTheBytesOfTheStagesOverManyBlocksAndPieces) {
  // More than one block, tile of columns, window of statistics and strip.
  SceneOptions options = FourBands();
  options.panWidth = 2301;
  options.panHeight = 530;
  options.ratio = 4.0;
  const Scene wide(2, options);
  ExpectSame(Record(wide), true);
  ExpectSameSharpened(Record(wide));
  options.panWidth = 43;
  options.panHeight = 1100;
  const Scene high(3, options);
  ExpectSettings(Record(high), 3);
}

TEST_F(BlockPipelines, GiveTheBytesOfTheStagesWhereStatisticsTakeManyWindowsOfManyRows) {
  // Strips of several rows, which windows of the statistics follow.
  SceneOptions options = FourBands();
  options.panWidth = 301;
  options.panHeight = 3600;
  options.ratio = 6.0;
  const Scene scene(4, options);
  HpfFusionParam param = Record(scene);
  param.m_bMakeGreen = true;
  ExpectSame(param, true);
}

TEST_F(BlockPipelines, GiveTheBytesOfTheStagesInEveryPixelType) {
  for (int type = PDT_UINT8; type <= PDT_FLOAT64; ++type) {
    SCOPED_TRACE(type);
    SceneOptions options = FourBands();
    options.panType = options.msType = static_cast<PixelDataType>(type);
    options.high = 200.0;
    ExpectSettings(Record(Scene(5, options)), 3);
  }
}

TEST_F(BlockPipelines, GiveTheBytesOfTheStagesWithPixelsWithoutData) {
  for (const GapShape shape : test_support::kGapShapes) {
    for (const PixelDataType type : {PDT_UINT8, PDT_FLOAT32}) {
      SCOPED_TRACE(test_support::NameOf(shape) + " " + std::to_string(type));
      SceneOptions options = FourBands();
      options.panWidth = 53;
      options.panHeight = 41;
      GapScene gaps(6, shape, type, options);
      const double fill = type == PDT_FLOAT32 ? std::nan("") : 0.0;
      gaps.Write(fill);
      HpfFusionParam param = Record(gaps.scene);
      ExpectSettings(param, 3);
      param.m_bMaskNoData = true;
      ExpectAllSettings(param);
      // Zero is a value where another one is declared.
      gaps.Write(type == PDT_FLOAT32 ? -1.0 : 255.0);
      ExpectSettings(param, 3);
      gaps.Write(fill, false);
      test_support::AddMask(gaps.scene.panFile, gaps.panGaps);
      test_support::AddMask(gaps.scene.msFile, gaps.msGaps[0]);
      ExpectSettings(param, 3);
      if (HasFailure()) return;
    }
  }
}

TEST_F(BlockPipelines, GiveTheBytesOfTheStagesInsideAnArea) {
  SceneOptions options = FourBands();
  options.panWidth = 70;
  options.panHeight = 600;
  const Scene scene(7, options);
  const std::wstring area = L"/vsimem/block_pipelines_area.csv";
  const auto& t = scene.pan.geoTransform;
  const auto ground = [&](double x, double y) { return reference::Position{t[0] + x * t[1], t[3] + y * t[5]}; };
  test_support::WriteTriangle(area, ground(8.3, 20.1), ground(61.7, 222.2), ground(17.4, 577.6));
  HpfFusionParam param = Record(scene);
  param.m_strAoiFile = area;
  ExpectAllSettings(param);
  param.m_bMaskNoData = true;
  ExpectAllSettings(param);
}

TEST_F(BlockPipelines, GiveTheBytesOfTheStagesWhereAnAreaEndsInPixelCentres) {
  // Whether such a pixel is inside hangs on the last bit of its position.
  SceneOptions options = FourBands();
  options.panWidth = 71;
  options.panHeight = 64;
  const Scene scene(10, options);
  reference::Image pan = scene.pan;
  reference::Image ms = scene.ms;
  for (reference::Image* image : {&pan, &ms}) {
    image->geoTransform[0] = 440000.1;
    image->geoTransform[3] = 4470000.7;
  }
  pan.geoTransform[1] = 0.3;
  pan.geoTransform[5] = -0.3;
  ms.geoTransform[1] = 0.6;
  ms.geoTransform[5] = -0.6;
  test_support::WriteImage(pan, scene.panFile, PDT_UINT16);
  test_support::WriteImage(ms, scene.msFile, PDT_UINT16);
  const std::wstring area = L"/vsimem/block_pipelines_centres.csv";
  const auto& t = pan.geoTransform;
  const auto ground = [&](double x, double y) { return reference::Position{t[0] + x * t[1], t[3] + y * t[5]}; };
  HpfFusionParam param = Record(scene);
  param.m_strAoiFile = area;
  for (int i = 0; i < 20; ++i) {
    SCOPED_TRACE(i);
    test_support::WriteTriangle(area, ground(3.5 + i, 2.5), ground(40.5 + i, 2.5 + i), ground(3.5 + i, 59.5));
    ExpectSame(param);
    param.m_bMaskNoData = i % 2 == 0;
    ExpectSame(param);
    ExpectSameMatched(param, PDT_UINT16, false);
  }
}

TEST_F(BlockPipelines, GiveTheBytesOfTheStagesOfTurnedImagesAndOfThoseUpsideDown) {
  SceneOptions options = FourBands();
  options.southUp = true;
  ExpectSettings(Record(Scene(11, options)), 3);
  options.southUp = false;
  const Scene scene(12, options);
  reference::Image pan = scene.pan;
  reference::Image ms = scene.ms;
  for (reference::Image* image : {&pan, &ms}) {
    image->geoTransform[2] = 0.05 * image->geoTransform[1];
    image->geoTransform[4] = 0.05 * image->geoTransform[1];
  }
  test_support::WriteImage(pan, scene.panFile, PDT_UINT16, test_support::UtmWkt());
  test_support::WriteImage(ms, scene.msFile, PDT_UINT16, test_support::UtmWkt());
  for (const bool view : {true, false}) {
    SCOPED_TRACE(view);
    HpfFusionParam param = Record(scene);
    param.m_bOpenOption = view;
    // What images share that are taken as they lie reaches beyond them.
    if (!view) param.m_rcProcess = {4, 6, 31, 27};
    ExpectSettings(param, 3);
    param.m_bMaskNoData = true;
    ExpectSettings(param, 3);
  }
}

TEST_F(BlockPipelines, GiveTheBytesOfTheStagesOverPartsAndPartialOverlap) {
  SceneOptions options = FourBands();
  options.panWidth = 60;
  options.panHeight = 50;
  options.msShiftX = 9.0;
  options.msShiftY = -7.0;
  options.msWidth = 20;
  options.msHeight = 18;
  const Scene scene(8, options);
  HpfFusionParam param = Record(scene);
  ExpectAllSettings(param);
  param.m_rcProcess = {15, 8, 31, 20};
  ExpectAllSettings(param);
  // A part of a run over a larger area.
  param.m_rcScene = {10, 3, 44, 26};
  ExpectAllSettings(param);
}

TEST_F(BlockPipelines, GiveTheBytesOfTheStagesBetweenCoordinateSystems) {
  SceneOptions options = FourBands();
  options.panWidth = 60;
  options.panHeight = 50;
  options.panWkt = test_support::UtmWkt();
  const Scene scene(9, options);
  reference::Image ms = scene.ms;
  ms.geoTransform[0] = -3.70810;
  ms.geoTransform[1] = 2.4e-4;
  ms.geoTransform[3] = 40.37860;
  ms.geoTransform[5] = -1.9e-4;
  test_support::WriteImage(ms, scene.msFile, PDT_UINT16, test_support::Wgs84Wkt());
  HpfFusionParam param = Record(scene);
  param.m_bNeedReproject = true;
  ExpectAllSettings(param);
  param.m_rcProcess = {15, 8, 31, 20};
  param.m_rcScene = {10, 3, 44, 26};
  ExpectAllSettings(param);
}

}  // namespace
