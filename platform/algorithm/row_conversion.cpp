#include "platform/algorithm/row_conversion.h"

#include <algorithm>
#include <cmath>

#include "platform/system/multiversion.h"
#include "platform/validity/gap_marks.h"

namespace platform {
namespace {

FUSION_MULTIVERSION(void, RoundHalfUp, (double* values, int n), (values, n)) {
  for (int i = 0; i < n; ++i) values[i] = std::floor(values[i] + 0.5);
}

void ClearOutside(const unsigned char* inside, int width, unsigned char* out, std::size_t pixelBytes) {
  for (int x = 0; x < width; ++x, out += pixelBytes) {
    if (!inside[x]) std::fill_n(out, pixelBytes, static_cast<unsigned char>(0));
  }
}

}  // namespace

RowConversion::RowConversion(PixelDataType type, const ValueConversion& conversion, bool round, bool marksGaps)
    : m_type(type), m_conversion(conversion), m_rounds(round && !IsFloatType(type)), m_marksGaps(marksGaps) {}

void RowConversion::Store(double* values, const unsigned char* inside, int width, unsigned char* out) {
  const auto count = static_cast<std::size_t>(width);
  const bool gaps = m_marksGaps && HasGap(values, count);
  if (gaps) {
    m_valid.resize(count);
    MarkValid(values, inside, width, m_valid.data());
  }
  if (m_rounds) RoundHalfUp(values, width);
  m_conversion.ConvertRow(m_type, values, out, count);
  if (m_marksGaps) {
    StoreGaps(m_type, gaps ? m_valid.data() : inside, count, out);
  } else if (inside) {
    ClearOutside(inside, width, out, static_cast<std::size_t>(PixelSize(m_type)));
  }
}

}  // namespace platform
