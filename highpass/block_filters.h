#pragma once

#include <functional>
#include <memory>
#include <string>

#include "framework/fusion_param.h"
#include "framework/run/run_variation.h"
#include "platform/processing/filtered_band.h"
#include "platform/processing/mixed_bands.h"

namespace fusion {

/// What the first stages of the high-pass pipelines make, block by block and without their files: pan after one filter
/// or two, the multispectral bands after the green mix. What is read is to the bit what the files would give back.
/// Lives as long as a run.
class BlockFilters {
 public:
  /// The filter whose result takes the place of pan, and the one whose result is the second image.
  bool FilterPan(const CRasterSource& pan, int band, const FilterDescription& filter) {
    return Filter(pan, band, filter, m_pan);
  }
  bool FilterDetail(const CRasterSource& pan, int band, const FilterDescription& filter) {
    return Filter(pan, band, filter, m_detail);
  }
  /// @param bands an empty choice becomes one of all, opacity too, which is none any more in what is mixed
  void MixGreen(const CRasterSource& ms, std::vector<int>& bands);

  const platform::FilteredBand* Pan() const { return m_pan.get(); }
  const platform::FilteredBand* Detail() const { return m_detail.get(); }
  const platform::MixedBands* Mixed() const { return m_mixed.get(); }

  // How a run reads that; the objects are asked for when it does.
  BandBuffers::ReadSamples ReadPan() const;
  BandBuffers::ReadSamples ReadDetail() const;
  /// @param bands those of the file that the buffers are for, filled when the run reads
  BandBuffers::ReadSamples ReadMs(const std::vector<int>& bands) const;

 private:
  /// False where the description is no kernel.
  static bool Filter(const CRasterSource& pan, int band, const FilterDescription& filter,
                     std::unique_ptr<platform::FilteredBand>& filtered);

  std::unique_ptr<platform::FilteredBand> m_pan;
  std::unique_ptr<platform::FilteredBand> m_detail;
  std::unique_ptr<platform::MixedBands> m_mixed;
};

}  // namespace fusion
