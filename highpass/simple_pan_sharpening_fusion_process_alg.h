#pragma once

#include "framework/fusion.h"

namespace fusion {
class StagePipeline;
}

/// Simple pan-sharpening from files to file: smooths the pan image with a 7 x 7 mean, mixes near infrared into green
/// where m_bMakeGreen is on, fuses with CSimplePanSharpeningFusion into the record's pixel type, with m_bDataStretch on
/// adjusts the level, and builds pyramids. Resampling is always bicubic. Temporary files lie beside the output.
class FUSION_API CSimplePanSharpeningFusionProcessAlg : public CFusion {
 public:
  /// The record should be an HpfFusionParam; of a plain one the rest keeps its defaults.
  explicit CSimplePanSharpeningFusionProcessAlg(FusionParam* param);
  ~CSimplePanSharpeningFusionProcessAlg() override;
  CSimplePanSharpeningFusionProcessAlg(const CSimplePanSharpeningFusionProcessAlg&);
  CSimplePanSharpeningFusionProcessAlg& operator=(const CSimplePanSharpeningFusionProcessAlg&);

  /// A stage's error type and message become the run's; files left are those that were there before, and the output of
  /// a successful run.
  void Process() override;
  /// Not used by a pipeline: null.
  void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                          PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) override;

 private:
  bool RunStages(fusion::StagePipeline& pipeline);
  bool Fuse(fusion::StagePipeline& pipeline, const std::wstring& smooth, PixelDataType type,
            const std::wstring& output);

  HpfFusionParam m_hpfParam;
};
