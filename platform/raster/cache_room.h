#pragma once

#include <cstdint>

class CRasterSource;

namespace platform {

/// Room in memory for decoded rows, for a reader that comes back to the same rows of a raster block after block (a file
/// of strips that is read column by column would be decoded once per column otherwise). The room goes with the object.
class CacheRoom {
 public:
  CacheRoom() = default;
  ~CacheRoom();
  CacheRoom(const CacheRoom&) = delete;
  CacheRoom& operator=(const CacheRoom&) = delete;

  /// Bytes that so many consecutive rows of an open raster take, decoded, in all bands; none of a raster that is read
  /// past the cache.
  static std::int64_t BytesOf(const CRasterSource& source, std::int64_t rows);
  /// The bytes of that which reads of so many rows at a time, band after band, come back to: the blocks that reach over
  /// the ends of the rows and, where a block holds all bands, all of it.
  static std::int64_t BytesToShare(const CRasterSource& source, std::int64_t rows);
  /// Makes room for at least so many bytes. Asking for less than before changes nothing, and so does asking for more
  /// than a bounded share of the machine's memory, or asking where the user has set GDAL_CACHEMAX: false then. In
  /// another program's process (see OwnProcess) nothing changes either; the answer is whether its cache has the room.
  bool Reserve(std::int64_t bytes);

 private:
  std::int64_t m_bytes = 0;
};

}  // namespace platform
