#include "platform/algorithm/stored_row.h"

#include <algorithm>

#include "platform/raster/pixel_type.h"
#include "platform/system/multiversion.h"
#include "platform/validity/sample_mask.h"

namespace platform {
namespace {

FUSION_MULTIVERSION(void, Widen, (const float* values, int n, double* out), (values, n, out)) {
  for (int i = 0; i < n; ++i) out[i] = values[i];
}

}  // namespace

StoredRow::StoredRow(PixelDataType type, bool round, bool masked)
    : m_type(type), m_masked(masked), m_store(type, ValueConversion::FullRange(type), round, masked) {}

void StoredRow::Pass(double* values, const unsigned char* inside, int width) {
  m_pixels.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(PixelSize(m_type)));
  m_store.Store(values, inside, width, m_pixels.data());
  LoadRow(m_type, m_pixels.data(), m_masked, values, width);
}

void LoadRow(PixelDataType type, const void* pixels, bool masked, double* values, int width) {
  if (type == PDT_FLOAT32) {
    Widen(static_cast<const float*>(pixels), width, values);
  } else {
    DispatchPixelType(type, [=](auto element) {
      std::copy_n(static_cast<const decltype(element)*>(pixels), width, values);
      return true;
    });
  }
  if (masked) ClearNoData(0.0, values, width);
}

}  // namespace platform
