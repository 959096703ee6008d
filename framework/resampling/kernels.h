#pragma once

#include <array>
#include <tuple>
#include <type_traits>

#include "framework/resampling/bicubic.h"
#include "framework/resampling/bilinear.h"
#include "framework/resampling/nearest.h"

namespace fusion {

/// All kernels. What one says of itself is told in nearest.h; everything else goes through this list.
using Kernels = std::tuple<Nearest, Bilinear, Bicubic>;

/// The types of all kernels.
inline constexpr auto kResampleTypes =
    std::apply([](auto... kernel) { return std::array{decltype(kernel)::kType...}; }, Kernels());

/// What they are called, in the same order.
inline constexpr auto kResampleNames =
    std::apply([](auto... kernel) { return std::array{decltype(kernel)::kName...}; }, Kernels());

/// Calls visitor with the kernel of a type; not at all for an unknown type.
template <typename Visitor>
void VisitKernel(ResampleType type, const Visitor& visitor) {
  const auto visit = [&]<typename Kernel>(Kernel kernel) {
    static_assert(Kernel::kTaps <= kMostTaps);
    if (Kernel::kType == type) visitor(kernel);
  };
  std::apply([&](auto... kernel) { (visit(kernel), ...); }, Kernels());
}

/// Calls visitor with Kernel or, where its neighbourhood does not fit around the position, the simpler one that does.
template <typename Kernel, typename Visitor>
void VisitFitting(double x, double y, const CRect& rect, const Visitor& visitor) {
  if constexpr (!std::is_void_v<typename Kernel::Simpler>) {
    if (!Kernel::FitsColumn(x, rect) || !Kernel::FitsRow(y, rect)) {
      VisitFitting<typename Kernel::Simpler>(x, y, rect, visitor);
      return;
    }
  }
  visitor(Kernel());
}

/// The same for the kernel of a type; not at all for an unknown type.
template <typename Visitor>
void VisitKernelAt(ResampleType type, double x, double y, const CRect& rect, const Visitor& visitor) {
  VisitKernel(type, [&]<typename Kernel>(Kernel) { VisitFitting<Kernel>(x, y, rect, visitor); });
}

}  // namespace fusion
