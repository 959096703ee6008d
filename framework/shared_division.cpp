#include "framework/shared_division.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

#include "platform/system/multiversion.h"

namespace fusion {
namespace {

FUSION_MULTIVERSION(void, ShareRow,
                    (const double* row, const double* factor, const double* divisor, int n, double* out),
                    (row, factor, divisor, n, out)) {
  for (int i = 0; i < n; ++i) out[i] = row[i] * factor[i] / divisor[i];
}

#ifdef FUSION_TARGETS
/// Short enough for the reciprocals to stay in the nearest cache, and for a zero to cost little.
constexpr int kPiece = 256;

// Magnitudes from 2^-255 up to 2^257: quotients of such, and remainders, are far from the ends of the range.
constexpr std::uint64_t kSmallest = std::uint64_t{0x300} << 52;
constexpr std::uint64_t kBeyond = std::uint64_t{0xE} << 60;  ///< a magnitude less kSmallest has none of these bits

FUSION_ALWAYS_INLINE std::uint64_t AboveSmallest(double value) {
  return (std::bit_cast<std::uint64_t>(value) & ~(std::uint64_t{1} << 63)) - kSmallest;
}

/// False where a divisor does not lend itself.
FUSION_ALWAYS_INLINE bool Reciprocals(const double* divisor, int n, double* __restrict out) {
  std::uint64_t above = 0;
  for (int i = 0; i < n; ++i) {
    out[i] = 1.0 / divisor[i];
    above |= AboveSmallest(divisor[i]);
  }
  return (above & kBeyond) == 0;
}

/// False where a product does not lend itself.
FUSION_ALWAYS_INLINE bool Quotients(const double* row, const double* factor, const double* divisor,
                                    const double* reciprocal, int n, double* __restrict out) {
  std::uint64_t above = 0;
  for (int i = 0; i < n; ++i) {
    const double product = row[i] * factor[i];
    const double y = reciprocal[i];
    double q = product * y;
    q = std::fma(std::fma(-divisor[i], q, product), y, q);
    out[i] = std::fma(std::fma(-divisor[i], q, product), y, q);
    above |= AboveSmallest(product);
  }
  return (above & kBeyond) == 0;
}

FUSION_ALWAYS_INLINE void Share(const double* const* rows, const double* factor, const double* divisor, int rowCount,
                                int n, double* const* out) {
  for (int first = 0; first < n; first += kPiece) {
    const int count = std::min(kPiece, n - first);
    double reciprocal[kPiece];
    const bool shares = Reciprocals(divisor + first, count, reciprocal);
    for (int r = 0; r < rowCount; ++r) {
      if (shares && Quotients(rows[r] + first, factor + first, divisor + first, reciprocal, count, out[r] + first)) {
        continue;
      }
      ShareRow(rows[r] + first, factor + first, divisor + first, count, out[r] + first);
    }
  }
}

FUSION_TARGET_256 void Share256(const double* const* rows, const double* factor, const double* divisor, int rowCount,
                                int n, double* const* out) {
  Share(rows, factor, divisor, rowCount, n, out);
}

FUSION_TARGET_512 void Share512(const double* const* rows, const double* factor, const double* divisor, int rowCount,
                                int n, double* const* out) {
  Share(rows, factor, divisor, rowCount, n, out);
}
#endif

}  // namespace

bool CanDivide(Division way) {
#ifdef FUSION_TARGETS
  if (way == Division::kShared512) return __builtin_cpu_supports("x86-64-v4");
  if (way == Division::kShared256) return __builtin_cpu_supports("x86-64-v3");
#endif
  return way == Division::kPlain;
}

Division FastestDivision() {
#ifdef FUSION_TARGETS
  static const Division fastest = [] {
    // Elsewhere the divider keeps pace with reading and writing the rows.
    if (!__builtin_cpu_is("intel")) return Division::kPlain;
    if (CanDivide(Division::kShared512)) return Division::kShared512;
    return CanDivide(Division::kShared256) ? Division::kShared256 : Division::kPlain;
  }();
  return fastest;
#else
  return Division::kPlain;
#endif
}

void ShareRows(const double* const* rows, const double* factor, const double* divisor, int rowCount, int n,
               double* const* out, Division way) {
#ifdef FUSION_TARGETS
  if (way == Division::kShared512) return Share512(rows, factor, divisor, rowCount, n, out);
  if (way == Division::kShared256) return Share256(rows, factor, divisor, rowCount, n, out);
#endif
  static_cast<void>(way);
  for (int r = 0; r < rowCount; ++r) ShareRow(rows[r], factor, divisor, n, out[r]);
}

}  // namespace fusion
