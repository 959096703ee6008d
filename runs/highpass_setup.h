#pragma once

#include "runs/methods.h"

namespace fusion {

/// The high-pass kernels' size for a ratio of multispectral to pan pixel widths.
int DefaultKernelSize(double ratio);
/// Multispectral over pan pixel width of a run, both on pan's ground. Throws RunFailure.
double PixelRatio(const CRasterSource& pan, CRasterSource& ms, bool needsReprojection);

/// Fills in the kernels and weights and makes the HPF pipeline.
std::unique_ptr<CBaseAlgorithm> MakeHpf(HpfFusionParam& param, const MethodSetup& setup);

}  // namespace fusion
