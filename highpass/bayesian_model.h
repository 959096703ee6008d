#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "framework/fusion_param.h"
#include "platform/algorithm/base_algorithm.h"

namespace fusion {
class BayesianScene;
class BayesianSource;
class LowPassFill;
struct InjectionModel;
struct RegistrationResult;
}  // namespace fusion

namespace platform {
class RunningCovariance;
class SurveyPass;
}  // namespace platform

/// The model that BayesPanSharpeningFusion applies: a linear estimate of the fused bands from what it reads, see there.
struct BayesianModel {
  double weight = 0.0;                ///< w
  double panMean = 0.0;               ///< m
  double panVariance = 0.0;           ///< s; a variance below 1e-8 counts as 1
  std::vector<double> panCovariance;  ///< c, one per band
  std::vector<double> transform;      ///< M, row-major, bands x bands
  /// What an estimated model is for: the chosen bands and the low-passed pan behind them, in place of the record's
  /// multispectral image. Null for a model from elsewhere, of the record's bands alone.
  std::shared_ptr<const fusion::BayesianSource> source;
  /// Pan pixels that a run without an area of its own covers; empty: what both images have in common.
  CRect area;
};

/// What BayesianModelEstimator makes of a shift between the images.
enum class BayesianRegistration {
  kOff,     ///< none is looked for
  kReport,  ///< it is found and told
  kMove     ///< the multispectral image is moved before anything else is estimated
};

/// Why an estimated model does less than could be.
enum class BayesianDoubt {
  kNone,
  kNoDetail,    ///< pan shows nothing on the common ground that could be added: the bands stay as they are
  kFewSamples,  ///< too few pixels with data for more than one gain a band
  kUnsolvable,  ///< a system without a solution; likewise
  kUnlike       ///< the detail of pan is not that of the bands; likewise
};

/// What an estimation has found.
struct BayesianEstimate {
  bool isBox = false;      ///< the bands are best explained by pan's mean over their pixels,
  double blur = 1.0;       ///< else by a Gaussian; 1 leaves a gain of 0.3 at their Nyquist frequency, more blurs more
  double restoring = 1.0;  ///< how much wider the low-pass is that the gains are fitted with
  double score = 0.0;      ///< share of the low-passed pan's detail that the detail of the bands explains, 0 to 1
  double shiftX = 0.0;     ///< pan pixels by which the multispectral image has to be moved; 0 where none is certain
  double shiftY = 0.0;
  bool moved = false;         ///< whether the model's source is
  double agreement = 0.0;     ///< share of the places looked at that the best shift suits better than none
  std::vector<double> gains;  ///< of pan's detail in each band, at a weight of 0.5
  std::int64_t samples = 0;   ///< multispectral pixels that the gains are fitted to
  BayesianDoubt doubt = BayesianDoubt::kNone;
};

/// Fits the model to a pan and a multispectral image.
///
/// 1. How the multispectral sensor blurs what pan shows, and how the images lie to each other, is found from their
///    detail: of all blurs and shifts the right one makes the low-passed pan's detail most like the bands'.
/// 2. Pan is low-passed with that onto the multispectral grid. What pan has beyond it is what the bands lack.
/// 3. The gains are those that would have worked one level down, where the answer is known: each band's detail against
///    its own low-pass is predicted from pan's by least squares, and what is left from all else that is known there by
///    a ridge regression that keeps the bands' means.
///
/// In the terms of a Gaussian model this is the posterior mean of the fine bands given the resampled ones, pan and the
/// low-passed pan, whose moments are taken one level down and are assumed to hold across scales.
///
/// Sources. Posterior mean: Fasbender, Radoux and Bogaert, Bayesian data fusion for adaptable image pansharpening, IEEE
/// Transactions on Geoscience and Remote Sensing 46(6), 2008. Low-pass by the sensor's transfer function and gains
/// fitted a level down: Aiazzi, Alparone, Baronti, Garzelli and Selva, MTF-tailored multiscale fusion of
/// high-resolution MS and Pan imagery, Photogrammetric Engineering and Remote Sensing 72(5), 2006. Blind estimate of
/// the low-pass: Vivone, Simoes, Dalla Mura, Restaino, Bioucas-Dias, Licciardi and Chanussot, Pansharpening based on
/// semiblind deconvolution, IEEE Transactions on Geoscience and Remote Sensing 53(4), 2015. Gains from all bands at
/// once: Garzelli, Nencini and Capobianco, Optimal MMSE pan sharpening of very high resolution multispectral images,
/// IEEE Transactions on Geoscience and Remote Sensing 46(1), 2008. What these do on real images: Vivone et al., A new
/// benchmark based on recent advances in multispectral pansharpening, IEEE Geoscience and Remote Sensing Magazine 9(1),
/// 2021.
///
/// Looks at the ground that both images have in common, whatever area the record names (gains: at a million of its
/// multispectral pixels, in strips spread over it, where it has far more); streams once over it, with memory that
/// depends on the width of the images alone. The result does not depend on the number of threads.
///
/// Errors: 2 (also a band that does not exist), 4 and 20 as in a fusion run; 3 where the low-passed pan cannot be kept;
/// 6 for a weight that is not between 0 and 1; 11 for fewer than two bands; 1 when cancelled.
class FUSION_API BayesianModelEstimator : public CBaseAlgorithm {
 public:
  /// Reads the record's files, bands, reprojection flag, open option, mask option and weight: how much of the model is
  /// applied, twice the weight; 0 leaves the resampled bands, 0.5 is the estimate. A low-passed pan that is large lies
  /// beside the record's output.
  explicit BayesianModelEstimator(const BayesianFusionParam& param);
  ~BayesianModelEstimator() override;

  /// Off by default.
  void SetRegistration(BayesianRegistration registration) { m_registration = registration; }
  /// Has the next runs look at a part of the pan image only.
  void SetArea(const CRect& panRect) { m_area = panRect; }

  /// Whether a run that gathers a survey makes the model's source, too.
  void MakeSourceForSurvey(bool makes) { m_sourceForSurvey = makes; }

  /// A run with a survey in which something is pending leaves no model.
  void Process() override;
  /// Of the last successful run.
  const BayesianModel& GetModel() const { return m_model; }
  const BayesianEstimate& GetEstimate() const { return m_estimate; }

 private:
  struct Registered;
  void Estimate();
  std::optional<Registered> Register(fusion::BayesianScene& scene) const;
  std::shared_ptr<fusion::BayesianSource> MakeSource(fusion::BayesianScene& scene,
                                                     const fusion::RegistrationResult& found, bool partly) const;
  /// Those that a pass wants, or that the model's source is made from.
  std::vector<int> StripsToRead(fusion::BayesianScene& scene, const platform::SurveyPass& pass,
                                const std::vector<int>& counted, bool makesSource,
                                const fusion::RegistrationResult& found) const;
  bool Stream(fusion::BayesianScene& scene, const fusion::RegistrationResult& found, const fusion::LowPassFill& fill);
  void Fit(const platform::RunningCovariance& statistics, int n);
  void Adopt(const fusion::InjectionModel& injection);
  bool GoesOn(int step);

  BayesianFusionParam m_param;
  BayesianRegistration m_registration = BayesianRegistration::kOff;
  CRect m_area;
  bool m_sourceForSurvey = false;
  BayesianModel m_model;
  BayesianEstimate m_estimate;
};
