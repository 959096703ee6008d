#pragma once

#include <cstddef>
#include <mutex>
#include <vector>

#include "platform/raster/raster_types.h"

namespace fusion {

/// Buffers of pixels as fused blocks have them: made and freed as arrays of the type's elements.
void* NewPixels(PixelDataType type, std::size_t pixels);
void DeletePixels(PixelDataType type, void* pixels);

/// Buffers of fused blocks on their way from one block to the next, which would else go back to the system and come
/// again page by page. May be used from several threads.
class BlockStore {
 public:
  BlockStore();
  ~BlockStore();
  BlockStore(const BlockStore&) = delete;
  BlockStore& operator=(const BlockStore&) = delete;

  /// A buffer of that many pixels: one that was put back, or a new one. It is not initialised. Those of other types and
  /// sizes go: a last, lower block would else leave buffers behind that no other one fits into.
  void* Take(PixelDataType type, std::size_t pixels);
  /// Takes a fused block over: its bands, each null or of that many pixels, and their array, all made with new[].
  void Put(PixelDataType type, int bandCount, std::size_t pixels, void** bands);

 private:
  struct Buffer {
    PixelDataType type;
    std::size_t pixels;
    void* values;
  };
  void DropAllBut(PixelDataType type, std::size_t pixels);

  std::mutex m_mutex;
  std::vector<Buffer> m_buffers;
};

}  // namespace fusion
