#include "platform/validity/gap_marks.h"

#include <limits>

#include "platform/raster/pixel_type.h"
#include "platform/system/multiversion.h"

namespace platform {
namespace {

FUSION_MULTIVERSION(std::size_t, CountGaps, (const double* values, std::size_t n), (values, n)) {
  std::size_t gaps = 0;
  for (std::size_t i = 0; i < n; ++i) gaps += values[i] != values[i] ? 1U : 0U;
  return gaps;
}

}  // namespace

bool HasGap(const double* values, std::size_t n) {
  // Pieces, so that a gap far ahead ends the search.
  constexpr std::size_t kPiece = 4096;
  for (std::size_t i = 0; i < n; i += kPiece) {
    if (CountGaps(values + i, n - i < kPiece ? n - i : kPiece) > 0) return true;
  }
  return false;
}

void MarkValid(const double* values, const unsigned char* inside, int n, unsigned char* valid) {
  for (int i = 0; i < n; ++i) valid[i] = values[i] == values[i] && (!inside || inside[i] != 0);
}

void StoreGaps(PixelDataType type, const unsigned char* valid, std::size_t n, void* pixels) {
  DispatchPixelType(type, [=](auto element) {
    using T = decltype(element);
    constexpr T kLeast = std::numeric_limits<T>::is_integer ? T{1} : std::numeric_limits<T>::min();
    T* out = static_cast<T*>(pixels);
    for (std::size_t i = 0; i < n; ++i) out[i] = out[i] == T{} ? kLeast : out[i];
    for (std::size_t i = 0; valid && i < n; ++i) out[i] = valid[i] ? out[i] : T{};
    return true;
  });
}

}  // namespace platform
