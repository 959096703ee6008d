#pragma once

#include <vector>

#include "framework/row_fusion.h"

/// Principal-component fusion: every resampled multispectral vector goes through the component matrix of the whole
/// image, the pan value takes the place of the first component as it is, and back through the inverse matrix.
///
/// Source: Chavez, Sides and Anderson, Comparison of three different methods to merge multiresolution and multispectral
/// data, Photogrammetric Engineering and Remote Sensing 57(3), 1991. The first component is scaled to be a weighted
/// mean of the bands (see CRasterAlgorithm::ComputeStaticsFromAOI), so that pan can take its place.
class FUSION_API CPrinComponentFusion : public CRowFusion {
 public:
  explicit CPrinComponentFusion(FusionParam* param);
  ~CPrinComponentFusion() override;
  CPrinComponentFusion(const CPrinComponentFusion&);
  CPrinComponentFusion& operator=(const CPrinComponentFusion&);

  /// Lets the next runs bring pan to the mean and the standard deviation of the first component before it takes that
  /// one's place, turned over where it goes against that one. Pan's own are taken over the run's pixels, in one more
  /// pass.
  void MatchPan(bool matches) { m_matchesPan = matches; }
  /// What pan was multiplied by, and what was added then.
  double GetPanFactor() const { return m_panFactor; }
  double GetPanOffset() const { return m_panOffset; }

  /// Of the last run: the means of the bands, and the components, n x n, row-major, one a row.
  const std::vector<double>& GetMeans() const { return m_means; }
  const std::vector<double>& GetComponents() const { return m_components; }

  /// The component matrix and its inverse. Refuses a number of output bands that is not the image's.
  GISError Preproccess() override;
  void EndProccess() override;

 protected:
  double m_dPanMax = 255.0;
  double m_dPanMin = 0.0;
  SharedArray m_pFirstStatics;      ///< n values, not read by the kernel
  SharedArray m_pSecondStatics;     ///< likewise
  SharedArray m_pTransform;         ///< n x n, row-major, one component a row
  SharedArray m_pInverseTransform;  ///< n x n, row-major

 private:
  static fusion::RowMethod MakeRows(CRowFusion& fusion, const fusion::FusionBlock& block);
  /// @param mean, stdDev of the first component
  bool FitPan(double mean, double stdDev);

  bool m_matchesPan = false;
  double m_panFactor = 1.0;
  double m_panOffset = 0.0;
  std::vector<double> m_means;
  std::vector<double> m_components;
};
