#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace platform {

/// CRC-32C, the cyclic redundancy check of 32 bits that iSCSI and file systems have (RFC 3720), over bytes that come in
/// pieces. Processors compute it as fast as memory gives the bytes.
class Crc32c {
 public:
  Crc32c() : Crc32c(false) {}
  /// @param byTable in the way that every processor has
  explicit Crc32c(bool byTable);
  void Add(const void* bytes, std::size_t count);
  std::uint32_t Value() const { return ~m_state; }
  /// Eight digits, base 16.
  std::string Text() const;

 private:
  bool m_byTable;
  std::uint32_t m_state = 0xFFFFFFFFU;
};

/// The secure hash of 256 bits (FIPS 180-4), over bytes that come in pieces.
class Sha256 {
 public:
  Sha256();
  void Add(const void* bytes, std::size_t count);
  /// 64 digits, base 16. Ends it.
  std::string Text();

 private:
  void TakeBlock(const unsigned char* block);

  std::array<std::uint32_t, 8> m_state;
  std::array<unsigned char, 64> m_rest{};  ///< bytes that fill no block yet
  std::uint64_t m_count = 0;
};

}  // namespace platform
