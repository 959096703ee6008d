#pragma once

#include "platform/raster/raster_source.h"

class CBaseProgress;
using CDataProgress = CBaseProgress;
class CRasterAOI;

/// What is computed of whole rasters, and of pixel types.
class FUSION_API CRasterAlgorithm {
 public:
  /// The range of a pixel type; the float types their lowest and highest finite value. False for an unknown type.
  static bool GetMaxMinVal(PixelDataType type, double& maximum, double& minimum);

  /// Principal components of all bands over the pixels that are valid in every band (inside the area of interest where
  /// one is given), in one streaming pass (Hotelling, Analysis of a complex of statistical variables into principal
  /// components, 1933: the eigenvectors of the population covariance). Of a source with a survey whose pass is pending
  /// nothing is known: false.
  /// @param source an open raster of n bands
  /// @param aoi null for no area
  /// @param count number of pixels used; -1 where there was no reading or looking through all of them
  /// @param means, stdDevs, eigenvalues n values each (population figures, eigenvalues falling)
  /// @param components n x n, row-major, one component a row. Row signs are fixed so that a row's sum is not negative
  ///   (a row of sum 0: its first non-zero entry positive); the first row is divided by its sum where that exceeds
  ///   1e-6, so that the first component is a weighted mean of the bands; the other rows have length 1.
  /// @param approximate taken for its published place; figures are always exact
  /// @param progress asked whether to go on, not stepped; may be null
  /// @return false without a valid pixel, after a cancellation or after a failed read; the arrays are then left
  /// untouched.
  static bool ComputeStaticsFromAOI(CRasterSource* source, CRasterAOI* aoi, long long& count, double* means,
                                    double* stdDevs, double* eigenvalues, double* components, bool approximate,
                                    CDataProgress* progress);
};
