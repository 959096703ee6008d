#include "framework/resampling/resample_point.h"

#include <cstdint>

#include "framework/resampling/kernels.h"

namespace fusion {
namespace {

/// One sample of a band buffer by its linear index; 0 outside the buffer.
struct Samples {
  std::int64_t stride;
  std::int64_t count;

  explicit Samples(const CRect& rect)
      : stride(static_cast<std::int64_t>(rect.right) - rect.left),
        count(stride * (static_cast<std::int64_t>(rect.bottom) - rect.top)) {}

  double At(const double* band, std::int64_t row, std::int64_t column) const {
    const std::int64_t index = row * stride + column;
    return index >= 0 && index < count ? band[index] : 0.0;
  }
};

}  // namespace

void ResamplePoint(ResampleType type, double x, double y, const double* const* bands, int bandCount, const CRect& rect,
                   double* out) {
  VisitKernelAt(type, x, y, rect, [&]<typename Kernel>(Kernel) {
    constexpr int kTaps = Kernel::kTaps;
    const Samples samples(rect);
    const Taps<kTaps> columns = Kernel::MakeTaps(x, rect.left, rect.Width());
    const Taps<kTaps> rows = Kernel::MakeTaps(y, rect.top, rect.Height());
    for (int b = 0; b < bandCount; ++b) {
      double lines[kTaps];
      for (int j = 0; j < kTaps; ++j) {
        double line[kTaps];
        for (int k = 0; k < kTaps; ++k) line[k] = samples.At(bands[b], rows.index[j], columns.index[k]);
        lines[j] = Kernel::Combine(columns.weight, line);
      }
      out[b] = Kernel::Combine(rows.weight, lines);
    }
  });
}

}  // namespace fusion
