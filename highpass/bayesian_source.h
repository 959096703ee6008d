#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/raster/raster_source.h"
#include "platform/raster/virtual_raster.h"

namespace fusion {

/// What a Bayesian fusion reads in place of its multispectral image: the chosen bands, moved where that was wanted, and
/// behind them the pan image low-passed onto their grid. A view in memory; the low-passed pan lies in memory too where
/// it is small, else in a file that is gone with the object.
class BayesianSource {
 public:
  struct Origin {
    std::wstring file;       ///< the multispectral image
    bool northUp = true;     ///< look at a rotated one as runs do
    std::vector<int> bands;  ///< counted from 0
    int width = 0;
    int height = 0;
    const double* geoTransform = nullptr;  ///< null: its own
  };

  /// @param lowPassType of the low-passed pan
  /// @param partly not all of the low-passed pan will be written, and no more read
  /// @param beside a file's name beside which a large one may lie; empty: in memory whatever its size
  /// Throws std::runtime_error.
  BayesianSource(const Origin& origin, PixelDataType lowPassType, const std::wstring& beside, bool partly = false);
  ~BayesianSource();
  BayesianSource(const BayesianSource&) = delete;
  BayesianSource& operator=(const BayesianSource&) = delete;

  /// A rectangle of the low-passed pan. False where it cannot be written.
  bool Write(const CRect& rect, const double* values);
  /// After the last of them. False where it cannot be written; throws std::runtime_error.
  bool Complete();

  const std::wstring& Path() const { return m_view->Path(); }
  int BandCount() const { return m_bandCount; }

 private:
  std::unique_ptr<platform::VirtualRaster> m_view;
  std::wstring m_lowPassFile;
  CRasterSource m_lowPass;
  int m_bandCount;
};

}  // namespace fusion
