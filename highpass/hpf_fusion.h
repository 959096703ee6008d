#pragma once

#include <vector>

#include "framework/fusion.h"

/// The fusion step of high-pass-filter fusion: adds the detail of one or two high-pass filtered pan images to the
/// resampled multispectral bands. The detail is scaled so that its spread is that of the band, times a weight:
/// out(b) = gain1(b) x first + gain2(b) x second + ms(b) with gain(b) = band deviation / detail deviation x weight.
///
/// m_strPanFile of the record is the first high-pass image, m_strSecondHpfFile the second one, which has the size of
/// the first and is read only when m_bSecondFilter is on. CHpfFusionProcessAlg makes both and runs this class.
///
/// Source: Schowengerdt, Reconstruction of multispatial, multispectral image data using spatial frequency content,
/// Photogrammetric Engineering and Remote Sensing 46(10), 1980; the modulation by standard deviations follows
/// Gangkofner, Pradhan and Holcomb, Optimizing the high-pass filter addition technique for image fusion,
/// Photogrammetric Engineering and Remote Sensing 74(9), 2008.
class FUSION_API CHpfFusion : public CFusion {
 public:
  /// The record should be an HpfFusionParam; of a plain one the rest keeps its defaults.
  explicit CHpfFusion(FusionParam* param);
  ~CHpfFusion() override;
  /// Copies share the gains.
  CHpfFusion(const CHpfFusion&);
  CHpfFusion& operator=(const CHpfFusion&);

  /// Means and standard deviations of the multispectral bands in band order, one per processed band; not owned, needed
  /// until the run ends. The deviations must be set before Process.
  void SetMulMeanValue(double* means) { m_pMulMeans = means; }
  void SetMulStdvValue(double* stdvs) { m_pMulStdvs = stdvs; }

  /// Of the first detail, or of the second one, in the bands of the last run; empty where it has none.
  std::vector<double> GetGains(bool second) const;

  void Process() override;
  using CFusion::ConfigDstRaster;
  /// Opens the three inputs and creates the output. False, with the error state set, also when the second high-pass
  /// image has another size than the first.
  virtual bool ConfigDstRaster(FusionParam* param, CRasterSource* pan, CRasterSource* secondHighPass, CRasterSource* ms,
                               CRasterSource* dst, std::vector<int>* bands, CRect* outRect, CRasterAOI** aoi);
  /// The gains. An image without spread (a deviation below 1e-8) is error type 10.
  GISError Preproccess() override;
  GISError StartBolckProcess() override;
  /// Not used by this family: null.
  void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                          PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) override;
  /// Fuses one block, as in CFusion.
  /// @param secondBlock the second high-pass image over blockRect, null where there is none
  /// @param readRect the block in output pixel coordinates
  virtual void** AlgorithmProcess(double* panBlock, CRect* blockRect, double* secondBlock, double** msBlocks,
                                  int msBandCount, CRect* msRect, PixelDataType outType, int outBandCount,
                                  CRect* readRect, CRasterAOI* aoi);
  void EndBolckProcess() override;
  /// Nothing: spectral correction is a stage of its own in the pipelines.
  void EndProccess() override;

  /// Maps a value linearly from inMin..inMax to 0..outMax and cuts it to outMin..outMax; 0, and any value where inMax
  /// or outMax is not positive, stays as it is.
  double ChangeDataType(double v, double inMin, double inMax, double outMin, double outMax);

 protected:
  /// The gains of the first detail, or of the second one, from its deviation and the multispectral ones. False, with
  /// the error state set, where the detail has no spread.
  bool SetGains(bool second, double stdv, double weight);
  /// What a run of this class varies, but for where its details come from.
  fusion::RunVariation Variation();

  HpfFusionParam m_hpfParam;

 private:
  CRasterSource* m_pSecondSrc = nullptr;  ///< open only while Process runs with second filtering on
  double* m_pMulMeans = nullptr;
  double* m_pMulStdvs = nullptr;
  double m_dFirstMean = 0.0;  ///< of the high-pass images
  double m_dFirstStdv = 0.0;
  double m_dSecondMean = 0.0;
  double m_dSecondStdv = 0.0;
  SharedArray m_pFirstGains;   ///< one per processed band, null until Preproccess
  SharedArray m_pSecondGains;  ///< the same, only with second filtering
};
