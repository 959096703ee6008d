#pragma once

#include <bit>
#include <cmath>
#include <cstdint>

#include "platform/system/multiversion.h"

/// Elementary functions for hot loops, without branches, calls and tables, so that a loop over them vectorises. The C
/// library's do not vectorise unless arithmetic may be reordered, and their last bit differs between machines; these
/// give the same bits wherever contraction is off.
///
/// The polynomials are minimax polynomials with double coefficients, made for the intervals named beside them. Their
/// terms are paired so that less waits for what comes before.
namespace platform {

/// Bits of a where the mask is set, else of b.
FUSION_ALWAYS_INLINE double ChooseBits(std::uint64_t mask, double a, double b) {
  return std::bit_cast<double>((std::bit_cast<std::uint64_t>(a) & mask) | (std::bit_cast<std::uint64_t>(b) & ~mask));
}

/// Cosine of |x| up to 1e6 radians; NaN for NaN and infinities. Largest error measured, in units of the last place:
/// 0.90 for |x| up to 2 pi, 1.7 beyond.
FUSION_ALWAYS_INLINE double Cos(double x) {
  // x = n pi/2 + r with |r| <= pi/4. Adding 1.5 * 2^52 rounds to a whole number, which the lowest bits then hold.
  constexpr double kRound = 0x1.8p52;
  const double rounded = x * 0x1.45f306dc9c883p-1 + kRound;
  const double n = rounded - kRound;
  // pi/2 in three parts, the first two short enough for their products to be exact.
  const double first = x - n * 0x1.921fb544p0;
  const double second = n * 0x1.0b4611a6p-34;
  const double r = first - second;
  const double rest = ((first - r) - second) - n * 0x1.3198a2e037073p-69;

  const double z = r * r;
  const double half = 0.5 * z;
  const double head = 1.0 - half;
  // (cos(sqrt(z)) - 1 + z / 2) / z^2 and (sin(sqrt(z)) / sqrt(z) - 1) / z, z from 0 to (pi / 4)^2.
  const double z2 = z * z;
  const double z4 = z2 * z2;
  const double c = (0x1.555555555554cp-5 + z * -0x1.6c16c16c15223p-10) +
                   z2 * (0x1.a01a019cbff9p-16 + z * -0x1.27e4f81336569p-22) +
                   z4 * (0x1.1ee9f1b06dc64p-29 + z * -0x1.8fb16360d7e28p-37);
  const double s = (-0x1.5555555555549p-3 + z * 0x1.111111110f8a7p-7) +
                   z2 * (-0x1.a01a019c1644bp-13 + z * 0x1.71de357b44826p-19) +
                   z4 * (-0x1.ae5e68bfa595bp-26 + z * 0x1.5d93adf038e6p-33);
  const double cosine = head + (((1.0 - head) - half) + (z2 * c - r * rest));
  const double sine = r + (r * z * s + rest * head);

  // By n modulo 4: cos(r), -sin(r), -cos(r), sin(r).
  const auto quadrant = std::bit_cast<std::uint64_t>(rounded);
  const double value = ChooseBits(0 - (quadrant & 1), sine, cosine);
  return std::bit_cast<double>(std::bit_cast<std::uint64_t>(value) ^ (((quadrant + 1) & 2) << 62));
}

/// Arc cosine of -1 to 1, exactly 0 of 1; NaN for everything else. Largest error measured: 0.91 units of the last
/// place.
FUSION_ALWAYS_INLINE double ArcCos(double x) {
  constexpr double kHalfPi = 0x1.921fb54442d18p0;
  constexpr double kHalfPiRest = 0x1.1a62633145c07p-54;
  // Beyond 1/2 by the half angle: acos(|x|) = 2 asin(sqrt((1 - |x|) / 2)).
  const double size = std::fabs(x);
  const bool isOuter = size > 0.5;
  const double z = isOuter ? (1.0 - size) * 0.5 : x * x;
  // (asin(sqrt(z)) / sqrt(z) - 1), z from 0 to 1/4.
  const double z2 = z * z;
  const double z4 = z2 * z2;
  const double p =
      z *
      (((0x1.5555555555578p-3 + z * 0x1.333333332df3bp-4) + z2 * (0x1.6db6db72289dap-5 + z * 0x1.f1c71a8cef866p-6)) +
       z4 * (((0x1.6e8bdfbb0af7fp-6 + z * 0x1.1c49e16d4636ep-6) +
              z2 * (0x1.ca20eab934aa8p-7 + z * 0x1.757aa0d824c2p-7)) +
             z4 * (((0x1.6178650f6895fp-7 + z * 0x1.e27f6641a8208p-9) +
                    z2 * (0x1.64a4dd069ba7bp-6 + z * -0x1.596cfbf2af2c3p-6)) +
                   z4 * 0x1.0bb7b2f0e7644p-5)));
  const double inner = kHalfPi - (x - (kHalfPiRest - x * p));
  // The upper half of the root squares exactly; the other half is what its rounding left out besides. The smallest
  // number keeps the divisor of a root of 0 from being 0 and changes no other.
  const double root = std::sqrt(z);
  const double upper = std::bit_cast<double>(std::bit_cast<std::uint64_t>(root) & 0xffffffff00000000U);
  const double lower = (z - upper * upper) / (root + upper + 0x1p-1000);
  const double nearOne = 2.0 * (upper + (root * p + lower));
  const double nearMinusOne = 2.0 * (kHalfPi - (root + (root * p - kHalfPiRest)));
  const double outer = x > 0.0 ? nearOne : nearMinusOne;
  return isOuter ? outer : inner;
}

}  // namespace platform
