#pragma once

#include "highpass/hpf_fusion.h"

/// The fusion step of simple pan-sharpening: out(b) = pan / smoothed pan x ms(b) + pan, with a ratio of 1 where the
/// smoothed pan is 0 (at most 1e-8). The record's m_strSecondHpfFile is the smoothed pan image, m_bSecondFilter must be
/// on. CSimplePanSharpeningFusionProcessAlg makes the smoothed image and runs this class.
///
/// Source: the ratio to a smoothed pan is the smoothing-filter-based intensity modulation of Liu, Smoothing
/// filter-based intensity modulation: a spectral preserve image fusion technique for improving spatial details,
/// International Journal of Remote Sensing 21(18), 2000; here the pan value is added on top.
class FUSION_API CSimplePanSharpeningFusion : public CHpfFusion {
 public:
  explicit CSimplePanSharpeningFusion(FusionParam* param);
  ~CSimplePanSharpeningFusion() override;
  CSimplePanSharpeningFusion(const CSimplePanSharpeningFusion&);
  CSimplePanSharpeningFusion& operator=(const CSimplePanSharpeningFusion&);

  /// Needs no statistics.
  GISError Preproccess() override;
  GISError StartBolckProcess() override;
  void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                          PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) override;
  /// The rows of the block are shared out among the OpenMP threads.
  void** AlgorithmProcess(double* panBlock, CRect* blockRect, double* smoothBlock, double** msBlocks, int msBandCount,
                          CRect* msRect, PixelDataType outType, int outBandCount, CRect* readRect,
                          CRasterAOI* aoi) override;
};
