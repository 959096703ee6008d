#include "framework/run/block_store.h"

#include <algorithm>

#include "platform/raster/pixel_type.h"

namespace fusion {

void* NewPixels(PixelDataType type, std::size_t pixels) {
  return platform::DispatchPixelType(type, [pixels](auto element) -> void* { return new decltype(element)[pixels]; });
}

void DeletePixels(PixelDataType type, void* pixels) {
  platform::DispatchPixelType(
      type, [pixels](auto element) -> int { return delete[] static_cast<decltype(element)*>(pixels), 0; });
}

BlockStore::BlockStore() {
  // More than are ever under way; what is put back must not fail.
  constexpr std::size_t kMost = 256;
  m_buffers.reserve(kMost);
}

BlockStore::~BlockStore() { DropAllBut(PDT_UNKNOWN, 0); }

void BlockStore::DropAllBut(PixelDataType type, std::size_t pixels) {
  std::erase_if(m_buffers, [=](const Buffer& buffer) {
    if (buffer.type == type && buffer.pixels == pixels) return false;
    DeletePixels(buffer.type, buffer.values);
    return true;
  });
}

void* BlockStore::Take(PixelDataType type, std::size_t pixels) {
  {
    const std::lock_guard lock(m_mutex);
    DropAllBut(type, pixels);
    if (!m_buffers.empty()) {
      void* values = m_buffers.back().values;
      m_buffers.pop_back();
      return values;
    }
  }
  return NewPixels(type, pixels);
}

void BlockStore::Put(PixelDataType type, int bandCount, std::size_t pixels, void** bands) {
  if (!bands) return;
  const std::lock_guard lock(m_mutex);
  for (int b = 0; b < bandCount; ++b) {
    if (!bands[b]) continue;
    if (m_buffers.size() < m_buffers.capacity()) {
      m_buffers.push_back({type, pixels, bands[b]});
    } else {
      DeletePixels(type, bands[b]);
    }
  }
  delete[] bands;
}

}  // namespace fusion
