// The runs over blocks beside what they make: files, reads, failures, cancellation.
#include <cmath>
#include <memory>

#include "highpass/block_hpf.h"
#include "highpass/block_sharpening.h"
#include "highpass/hpf_fusion_process_alg.h"
#include "highpass/simple_pan_sharpening_fusion_process_alg.h"
#include "tests/highpass/pipeline_fixture.h"
#include "tests/support/method_sweep.h"

namespace {

using highpass_test::ForEachFailingOperation;
using highpass_test::ImpatientProgress;
using platform::RasterOperation;

struct Outcome {
  int type = 0;
  std::wstring message;
  int reported = 0;
  bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
  return out << "type " << outcome.type << ", message of " << outcome.message.size() << ", reported "
             << outcome.reported;
}

template <typename Algorithm>
Outcome Fuse(HpfFusionParam param, bool overlapped = false, CBaseProgress* progress = nullptr) {
  test_support::RecordingProgress recording;
  Algorithm algorithm(&param);
  algorithm.SetProgress(progress ? progress : &recording);
  algorithm.SetOverlappedIo(overlapped);
  algorithm.Process();
  return {algorithm.GetLastErrorType(), algorithm.GetLastErrorMessage(), recording.Errors() > 0};
}

/// Everything at once, so that a run has all its passes.
HpfFusionParam Rich(HpfFusionParam param) {
  param.m_bSecondFilter = true;
  param.m_bMakeGreen = true;
  param.m_bDataStretch = true;
  return param;
}

class BlockRuns : public highpass_test::PipelineFiles {
 protected:
  /// What is created and read, in order.
  struct Watched {
    std::vector<std::wstring> created;
    std::vector<CRect> panReads;
  };
  Watched Watch(const std::function<void()>& run) const {
    Watched watched;
    platform::SetRasterFault([&](RasterOperation operation, const std::wstring& path, int, const CRect& rect) {
      if (operation == RasterOperation::kCreate) watched.created.push_back(path);
      if (operation == RasterOperation::kRead && path == m_panFile) watched.panReads.push_back(rect);
      return false;
    });
    run();
    platform::SetRasterFault({});
    return watched;
  }

  template <typename Blocks, typename Stages>
  void ExpectSameFailure(const HpfFusionParam& param) {
    const Outcome expected = Fuse<Stages>(param);
    EXPECT_TRUE(expected.type != 0 || !expected.message.empty());
    EXPECT_EQ(Fuse<Blocks>(param), expected);
    EXPECT_EQ(Fuse<Blocks>(param, true), expected);
  }
  void ExpectSameFailures(const HpfFusionParam& param) {
    ExpectSameFailure<fusion::BlockHpf, CHpfFusionProcessAlg>(param);
    ExpectSameFailure<fusion::BlockSharpening, CSimplePanSharpeningFusionProcessAlg>(param);
  }
};

TEST_F(BlockRuns, CreateTheirOutputAndNothingElse) {
  for (const bool rich : {false, true}) {
    const HpfFusionParam param = rich ? Rich(Param()) : Param();
    for (const auto& run : {Fuse<fusion::BlockHpf>, Fuse<fusion::BlockSharpening>}) {
      const Watched watched = Watch([&] { EXPECT_EQ(run(param, false, nullptr), Outcome()); });
      EXPECT_EQ(watched.created, std::vector<std::wstring>{m_outFile});
      EXPECT_EQ(NewFiles(), std::vector<std::wstring>{L"融合.tif"});
    }
  }
}

TEST_F(BlockRuns, ReadOfPanWhatAWindowNeeds) {
  HpfFusionParam param = Param();
  param.m_rcProcess = {9, 12, 31, 22};
  const auto reads = Watch([&] { EXPECT_EQ(Fuse<fusion::BlockSharpening>(param), Outcome()); }).panReads;
  ASSERT_FALSE(reads.empty());
  for (const CRect& rect : reads) {
    EXPECT_GE(rect.top, 12 - 3);
    EXPECT_LE(rect.bottom, 22 + 3);
  }
}

TEST_F(BlockRuns, ReadAllOfPanForItsFiguresAloneWhereAWindowIsWanted) {
  HpfFusionParam param = Param();
  param.m_rcProcess = {9, 20, 31, 24};
  param.m_rcScene = {2, 14, 40, 30};
  const auto reads = Watch([&] { EXPECT_EQ(Fuse<fusion::BlockHpf>(param), Outcome()); }).panReads;
  // The figures, the statistics of the scene, the window; each with two rows of the kernel's reach.
  ASSERT_EQ(reads.size(), 3U);
  EXPECT_EQ(reads[0].Height(), 38);
  EXPECT_EQ(reads[1].top, 12);
  EXPECT_EQ(reads[1].bottom, 32);
  EXPECT_EQ(reads[2].top, 18);
  EXPECT_EQ(reads[2].bottom, 26);
}

TEST_F(BlockRuns, FailAsTheStagesDo) {
  const auto with = [&](const std::function<void(HpfFusionParam&)>& spoil) {
    HpfFusionParam param = Param();
    spoil(param);
    return param;
  };
  ExpectSameFailures(with([](auto& p) { p.m_strPanFile = L"/vsimem/none.tif"; }));
  ExpectSameFailures(with([](auto& p) { p.m_strMSFile = L"/vsimem/none.tif"; }));
  ExpectSameFailures(with([](auto& p) {
    p.m_strMSFile = L"/vsimem/none.tif";
    p.m_bMakeGreen = true;
  }));
  ExpectSameFailures(with([](auto& p) { p.m_nPanBand = 1; }));
  ExpectSameFailures(with([](auto& p) { p.m_strAoiFile = L"/vsimem/none.csv"; }));
  ExpectSameFailures(with([](auto& p) { p.m_strOutFile = p.m_strPanFile; }));
  ExpectSameFailures(with([](auto& p) { p.m_strOutFile = p.m_strMSFile; }));
  using Hpf = fusion::BlockHpf;
  ExpectSameFailure<Hpf, CHpfFusionProcessAlg>(with([](auto& p) { p.m_filter1.m_nWidth = 4; }));
  ExpectSameFailure<Hpf, CHpfFusionProcessAlg>(with([](auto& p) {
    p.m_bSecondFilter = true;
    p.m_filter2.m_dScale = std::nan("");
  }));
  m_pan.bands[0].assign(m_pan.bands[0].size(), 7.0);
  WriteInputs();
  ExpectSameFailure<Hpf, CHpfFusionProcessAlg>(Param());
  m_ms.geoTransform[0] += 1e6;
  WriteInputs();
  ExpectSameFailures(Param());
}

TEST_F(BlockRuns, FailWithWhatCannotBeReadOrWritten) {
  const HpfFusionParam param = Rich(Param());
  for (const auto& run : {Fuse<fusion::BlockHpf>, Fuse<fusion::BlockSharpening>}) {
    for (const bool overlapped : {false, true}) {
      const auto expect = [&](RasterOperation failing, int type, const wchar_t* message) {
        const int runs = ForEachFailingOperation([=](RasterOperation operation) { return operation == failing; }, false,
                                                 [&](int n) {
                                                   const Outcome outcome = run(param, overlapped, nullptr);
                                                   if (outcome == Outcome()) return;
                                                   EXPECT_EQ(outcome.type, type) << n;
                                                   EXPECT_EQ(outcome.message, message) << n;
                                                   EXPECT_EQ(outcome.reported, 1) << n;
                                                 });
        EXPECT_GT(runs, 1);
      };
      expect(RasterOperation::kWrite, ERR_WRITE, L"写数据失败！");
      expect(RasterOperation::kRead, ERR_READ, L"读取数据失败！");
    }
  }
}

TEST_F(BlockRuns, TellALackOfMemoryInAnyOperation) {
  const HpfFusionParam param = Rich(Param());
  for (const auto& run : {Fuse<fusion::BlockHpf>, Fuse<fusion::BlockSharpening>}) {
    for (const bool overlapped : {false, true}) {
      const auto transfers = [](RasterOperation operation) {
        return operation == RasterOperation::kRead || operation == RasterOperation::kWrite;
      };
      ForEachFailingOperation(transfers, true, [&](int n) {
        const Outcome outcome = run(param, overlapped, nullptr);
        if (outcome == Outcome()) return;
        EXPECT_EQ(outcome.type, ERR_EXCEPTION) << n;
      });
    }
  }
}

TEST_F(BlockRuns, AreCancelledAtAnyStep) {
  WriteLargeInputs();
  const HpfFusionParam param = Rich(Param());
  for (const auto& run : {Fuse<fusion::BlockHpf>, Fuse<fusion::BlockSharpening>}) {
    for (const bool overlapped : {false, true}) {
      int step = 1;
      for (;; ++step) {
        ImpatientProgress progress(step);
        const Outcome outcome = run(param, overlapped, &progress);
        if (progress.Steps() < step) {
          EXPECT_EQ(outcome, Outcome());
          break;
        }
        // A cancellation at the very last step finds everything done, or is one.
        if (outcome == Outcome()) continue;
        EXPECT_EQ(outcome.type, ERR_CANCELLED) << step;
        EXPECT_EQ(progress.Errors(), 0) << step;
      }
      EXPECT_GT(step, 4);
    }
  }
}

}  // namespace
