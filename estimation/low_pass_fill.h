#pragma once

#include <cstddef>
#include <vector>

#include "estimation/registration.h"

namespace fusion {

/// What stands for the low-passed pan where there is too little pan to make it of: its regression on the bands, so that
/// what pan has beyond it stays harmless.
class LowPassFill {
 public:
  LowPassFill() = default;
  /// Fitted to the tiles of a search, at the blur and shift found.
  LowPassFill(const Registration& registration, const RegistrationResult& found);

  /// Fills the gaps of a low-passed pan.
  /// @param bands their values at the same pixels; NaN without data
  /// @param keepsGaps where no band has data leave none: runs that mask take a pixel for missing where all bands are
  void Fill(const double* const* bands, bool keepsGaps, std::vector<double>& lowPass) const;

  template <typename Archive>
  void Exchange(Archive& archive) {
    archive(m_means, m_gains, m_mean);
  }
  /// Whether it is for so many bands.
  bool IsOf(std::size_t bands) const { return m_gains.size() == bands && m_means.size() == bands; }

 private:
  std::vector<double> m_means;  ///< of the bands
  std::vector<double> m_gains;
  double m_mean = 0.0;
};

}  // namespace fusion
