#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "evaluation/fusion_evaluate.h"
#include "tests/evaluation/evaluation_fixture.h"

namespace test_support {

/// Records what the driver does over one pass, or as many as asked.
class Probe : public CFusionEvaluate {
 public:
  explicit Probe(FusionEvaluateParam* param) : CFusionEvaluate(param) {}

  GISError Preproccess() override {
    calls.emplace_back("Preproccess");
    m_pMulMax = m_pMulMin = m_pFusionMax = m_pFusionMin = SharedArray(1);
    return preprocessResult;
  }
  void GetBlockSize(int& width, int& height) override {
    CFusionEvaluate::GetBlockSize(width, height);
    blockSize = {width, height};
    if (blockWidth) width = blockWidth;
    if (blockHeight) height = blockHeight;
  }
  bool GetReadBufferRect(CRect* block, CRect* read) override {
    const bool found = CFusionEvaluate::GetReadBufferRect(block, read);
    return found && seen++ != skipBlock;
  }
  GISError StartBolckProcess() override {
    calls.emplace_back("Start");
    return startResult;
  }
  void FusionEvaluate(double* panBuf, CRect* panRect, double** mulBufs, int mulCount, CRect* mulRect,
                      double** fusionBufs, int fusionCount, CRect* blockRect) override {
    calls.emplace_back("Evaluate");
    blocks.push_back(*blockRect);
    panRects.push_back(*panRect);
    readRects.push_back(*mulRect);
    steps.push_back(m_nProcessStep);
    counts = {mulCount, fusionCount};
    firstPan.push_back(panBuf[0]);
    for (int b = 0; b < mulCount; ++b) mul.emplace_back(mulBufs[b], mulBufs[b] + mulRect->Area());
    for (int b = 0; b < fusionCount; ++b) fused.emplace_back(fusionBufs[b], fusionBufs[b] + blockRect->Area());
    if (inEvaluate) inEvaluate();
  }
  void EndBolckProcess() override { calls.emplace_back("End"); }
  bool IsFinished(int step) override { return step >= passes; }
  void EndProccess() override {
    calls.emplace_back("EndProccess");
    stillOpen = m_pPanSource->IsOpen() && m_pMulSource->IsOpen() && m_pFusionSource->IsOpen();
    CFusionEvaluate::EndProccess();
    freed = !m_pMulMax && !m_pMulMin && !m_pFusionMax && !m_pFusionMin;
  }
  std::ptrdiff_t Count(const std::string& call) const { return std::count(calls.begin(), calls.end(), call); }
  bool HasSources() const { return m_pPanSource || m_pMulSource || m_pFusionSource || m_pReproject; }

  int passes = 1;
  int blockWidth = 0;
  int blockHeight = 0;
  int skipBlock = -1;
  GISError preprocessResult = GIS_SUCCESS;
  GISError startResult = GIS_SUCCESS;
  std::function<void()> inEvaluate;

  int seen = 0;
  bool stillOpen = false;
  bool freed = false;
  std::pair<int, int> blockSize;
  std::pair<int, int> counts;
  std::vector<int> steps;
  std::vector<CRect> blocks;
  std::vector<CRect> panRects;
  std::vector<CRect> readRects;
  std::vector<double> firstPan;
  std::vector<Band> mul;
  std::vector<Band> fused;
  std::vector<std::string> calls;
};

/// Values that tell their place: 100 y + x.
inline Band Places(int width, int height) {
  Band band;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) band.push_back(100.0 * y + x);
  }
  return band;
}

class EvaluationDriver : public EvaluationTest {
 protected:
  /// A fused image of 20 x 12 pixels, its multispectral image of 10 x 6, the pan image 3 columns and 2 rows larger.
  void WriteSmall() {
    Write(MakeImage(23, 14, 1.0, {Places(23, 14)}, -3.0, 2.0), MakeImage(10, 6, 2.0, {Places(10, 6)}),
          MakeImage(20, 12, 1.0, {Places(20, 12)}));
    param.m_rcPanOffset = {3, 2, 0, 0};
  }
  std::unique_ptr<Probe> RunProbe(const std::function<void(Probe&)>& prepare = {}) {
    auto probe = std::make_unique<Probe>(&param);
    if (prepare) prepare(*probe);
    probe->SetProgress(&progress);
    probe->Process();
    EXPECT_FALSE(probe->HasSources()) << "sources outlive the run";
    return probe;
  }
  static void FourBlocks(Probe& probe) { probe.blockWidth = probe.blockHeight = 10; }
};

}  // namespace test_support
