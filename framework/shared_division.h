#pragma once

namespace fusion {

/// Ways to divide rows; all give the same bits.
enum class Division {
  kPlain,      ///< a division for every quotient
  kShared256,  ///< one for every divisor, the rest by fused multiply-add in registers of 256 bits
  kShared512,  ///< the same, 512 bits
};

/// Whether this processor can.
bool CanDivide(Division way);
/// The way that is the fastest here: where the divider is slow beside the multipliers, a shared division.
Division FastestDivision();

/// out[r][i] = rows[r][i] * factor[i] / divisor[i], the product and the quotient each rounded to nearest. No row of out
/// overlaps another row.
///
/// With y the reciprocal of the divisor, rounded to nearest, and q within one unit in the last place of the quotient,
/// q + (product - q * divisor) * y rounds to the quotient rounded to nearest; the remainder in brackets is exact
/// (Markstein, Computation of elementary functions on the IBM RISC System/6000 processor, 1990). One such step brings
/// q there, a second one ends it. The theorem asks for values far from overflow and underflow: pieces of a row that
/// hold others, zeros among them, are divided plainly.
void ShareRows(const double* const* rows, const double* factor, const double* divisor, int rowCount, int n,
               double* const* out, Division way = FastestDivision());

}  // namespace fusion
