#pragma once

#include "apps/methods.h"

namespace app {

/// The high-pass kernels' size for a ratio of multispectral to pan pixel widths.
int DefaultKernelSize(double ratio);
/// Multispectral over pan pixel width of a run, both on pan's ground. Throws CommandError.
double PixelRatio(const FusionParam& param);

/// Fills in the kernels and weights and makes the HPF pipeline. Throws CommandError.
std::unique_ptr<CBaseAlgorithm> MakeHpf(HpfFusionParam& param, const FuseOptions& options, CBaseProgress& progress);
/// Estimates the model over both whole images and hands it to the fusion. Throws CommandError.
std::unique_ptr<CBaseAlgorithm> MakeBayesian(HpfFusionParam& param, const FuseOptions& options,
                                             CBaseProgress& progress);

}  // namespace app
