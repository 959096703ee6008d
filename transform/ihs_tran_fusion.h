#pragma once

#include "framework/row_fusion.h"

/// IHS fusion: three bands go to the geometric intensity-hue-saturation model, pan takes the place of the intensity,
/// and back. Input of other types than bytes is first brought to 1..254; further bands keep their resampled values.
///
/// Source: Carper, Lillesand and Kiefer, The use of intensity-hue-saturation transformations for merging SPOT
/// panchromatic and multispectral image data, Photogrammetric Engineering and Remote Sensing 56(4), 1990; the HSI model
/// of Gonzalez and Woods, Digital Image Processing.
class FUSION_API CIhsTranFusion : public CRowFusion {
 public:
  explicit CIhsTranFusion(FusionParam* param);
  ~CIhsTranFusion() override;
  CIhsTranFusion(const CIhsTranFusion&);
  CIhsTranFusion& operator=(const CIhsTranFusion&);

  /// The common block loop, with blocks brought to scale after they are read. Ends with overviews of the output where
  /// there is a progress reporter.
  void Process() override;
  /// Ranges of pan and the chosen bands. Refuses fewer than three bands and RGB positions that do not exist.
  GISError Preproccess() override;
  /// The kernel shares a block's rows out among OpenMP threads.
  void EndProccess() override;

  /// The geometric model; H as a fraction of a full turn, 0 to 1. Grey gives H = S = 0.
  void RGB2IHS(double R, double G, double B, double& I, double& H, double& S);
  void IHS2RGB(double I, double H, double S, double& R, double& G, double& B);

 protected:
  double m_dPanMax = 255.0;
  double m_dPanMin = 0.0;
  SharedArray m_pMulMax;  ///< one per chosen band, null until Preproccess
  SharedArray m_pMulMin;

 private:
  static fusion::RowMethod MakeRows(CRowFusion& fusion, const fusion::FusionBlock& block);
  void ReplaceIntensity(const fusion::FusionRow& row, int red, int green, int blue);
  void FillRgbPositions();
  bool HasRgbPositions() const;
  void ScaleBlock(CRasterBand& band, int msIndex, double* values, std::int64_t count) const;
};
