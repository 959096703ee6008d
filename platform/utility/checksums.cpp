#include "platform/utility/checksums.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "platform/system/multiversion.h"

namespace platform {
namespace {

constexpr std::size_t kStep = 8;
using CrcTables = std::array<std::array<std::uint32_t, 256>, kStep>;

/// Of every byte its remainder, and that of the byte with one zero to seven behind it.
constexpr CrcTables MakeCrcTables() {
  CrcTables tables{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t remainder = byte;
    for (int bit = 0; bit < 8; ++bit) remainder = (remainder >> 1U) ^ ((remainder & 1U) != 0 ? 0x82F63B78U : 0U);
    tables[0][byte] = remainder;
  }
  for (std::size_t zeros = 1; zeros < kStep; ++zeros) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t before = tables[zeros - 1][byte];
      tables[zeros][byte] = (before >> 8U) ^ tables[0][before & 0xFFU];
    }
  }
  return tables;
}

constexpr CrcTables kCrc = MakeCrcTables();

std::uint32_t LittleEndian(const unsigned char* bytes) {
  return bytes[0] | static_cast<std::uint32_t>(bytes[1]) << 8U | static_cast<std::uint32_t>(bytes[2]) << 16U |
         static_cast<std::uint32_t>(bytes[3]) << 24U;
}

std::uint32_t AddByTable(std::uint32_t state, const unsigned char* next, std::size_t count) {
  for (; count >= kStep; count -= kStep, next += kStep) {
    const std::uint32_t low = state ^ LittleEndian(next);
    const std::uint32_t high = LittleEndian(next + 4);
    state = kCrc[7][low & 0xFFU] ^ kCrc[6][(low >> 8U) & 0xFFU] ^ kCrc[5][(low >> 16U) & 0xFFU] ^ kCrc[4][low >> 24U] ^
            kCrc[3][high & 0xFFU] ^ kCrc[2][(high >> 8U) & 0xFFU] ^ kCrc[1][(high >> 16U) & 0xFFU] ^
            kCrc[0][high >> 24U];
  }
  for (; count > 0; --count) state = (state >> 8U) ^ kCrc[0][(state ^ *next++) & 0xFFU];
  return state;
}

#ifdef FUSION_TARGETS
bool HasInstruction() { return __builtin_cpu_supports("sse4.2"); }

__attribute__((target("sse4.2"))) std::uint32_t AddByInstruction(std::uint32_t state, const unsigned char* next,
                                                                 std::size_t count) {
  std::uint64_t wide = state;
  for (; count >= sizeof(std::uint64_t); count -= sizeof(std::uint64_t), next += sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    std::memcpy(&word, next, sizeof(word));
    wide = __builtin_ia32_crc32di(wide, word);
  }
  state = static_cast<std::uint32_t>(wide);
  for (; count > 0; --count) state = __builtin_ia32_crc32qi(state, *next++);
  return state;
}
#else
bool HasInstruction() { return false; }

std::uint32_t AddByInstruction(std::uint32_t state, const unsigned char* next, std::size_t count) {
  return AddByTable(state, next, count);
}
#endif

std::string Digits(std::uint32_t word) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text(8, '0');
  for (std::size_t i = 8; i-- > 0; word >>= 4U) text[i] = kDigits[word & 0xFU];
  return text;
}

}  // namespace

Crc32c::Crc32c(bool byTable) : m_byTable(byTable || !HasInstruction()) {}

void Crc32c::Add(const void* bytes, std::size_t count) {
  const auto* next = static_cast<const unsigned char*>(bytes);
  m_state = m_byTable ? AddByTable(m_state, next, count) : AddByInstruction(m_state, next, count);
}

std::string Crc32c::Text() const { return Digits(Value()); }

Sha256::Sha256()
    : m_state{0x6a09e667U, 0xbb67ae85U, 0x3c6ef372U, 0xa54ff53aU, 0x510e527fU, 0x9b05688cU, 0x1f83d9abU, 0x5be0cd19U} {}

void Sha256::Add(const void* bytes, std::size_t count) {
  const auto* next = static_cast<const unsigned char*>(bytes);
  while (count > 0) {
    const auto used = static_cast<std::size_t>(m_count % m_rest.size());
    const std::size_t taken = std::min(count, m_rest.size() - used);
    std::memcpy(m_rest.data() + used, next, taken);
    m_count += taken;
    next += taken;
    count -= taken;
    if (m_count % m_rest.size() == 0) TakeBlock(m_rest.data());
  }
}

std::string Sha256::Text() {
  const std::uint64_t bits = m_count * 8;
  const unsigned char end = 0x80;
  const unsigned char zero = 0;
  Add(&end, 1);
  while (m_count % m_rest.size() != m_rest.size() - 8) Add(&zero, 1);
  for (int shift = 56; shift >= 0; shift -= 8) {
    const auto byte = static_cast<unsigned char>(bits >> static_cast<unsigned>(shift));
    Add(&byte, 1);
  }
  std::string text;
  for (const std::uint32_t word : m_state) text += Digits(word);
  return text;
}

void Sha256::TakeBlock(const unsigned char* block) {
  static constexpr std::array<std::uint32_t, 64> kRound = {
      0x428a2f98U, 0x71374491U, 0xb5c0fbcfU, 0xe9b5dba5U, 0x3956c25bU, 0x59f111f1U, 0x923f82a4U, 0xab1c5ed5U,
      0xd807aa98U, 0x12835b01U, 0x243185beU, 0x550c7dc3U, 0x72be5d74U, 0x80deb1feU, 0x9bdc06a7U, 0xc19bf174U,
      0xe49b69c1U, 0xefbe4786U, 0x0fc19dc6U, 0x240ca1ccU, 0x2de92c6fU, 0x4a7484aaU, 0x5cb0a9dcU, 0x76f988daU,
      0x983e5152U, 0xa831c66dU, 0xb00327c8U, 0xbf597fc7U, 0xc6e00bf3U, 0xd5a79147U, 0x06ca6351U, 0x14292967U,
      0x27b70a85U, 0x2e1b2138U, 0x4d2c6dfcU, 0x53380d13U, 0x650a7354U, 0x766a0abbU, 0x81c2c92eU, 0x92722c85U,
      0xa2bfe8a1U, 0xa81a664bU, 0xc24b8b70U, 0xc76c51a3U, 0xd192e819U, 0xd6990624U, 0xf40e3585U, 0x106aa070U,
      0x19a4c116U, 0x1e376c08U, 0x2748774cU, 0x34b0bcb5U, 0x391c0cb3U, 0x4ed8aa4aU, 0x5b9cca4fU, 0x682e6ff3U,
      0x748f82eeU, 0x78a5636fU, 0x84c87814U, 0x8cc70208U, 0x90befffaU, 0xa4506cebU, 0xbef9a3f7U, 0xc67178f2U};
  std::array<std::uint32_t, 64> w{};
  for (std::size_t i = 0; i < 16; ++i) {
    const unsigned char* word = block + 4 * i;
    w[i] = static_cast<std::uint32_t>(word[0]) << 24U | static_cast<std::uint32_t>(word[1]) << 16U |
           static_cast<std::uint32_t>(word[2]) << 8U | word[3];
  }
  for (std::size_t i = 16; i < 64; ++i) {
    const std::uint32_t low = std::rotr(w[i - 15], 7) ^ std::rotr(w[i - 15], 18) ^ (w[i - 15] >> 3U);
    const std::uint32_t high = std::rotr(w[i - 2], 17) ^ std::rotr(w[i - 2], 19) ^ (w[i - 2] >> 10U);
    w[i] = w[i - 16] + low + w[i - 7] + high;
  }
  auto [a, b, c, d, e, f, g, h] = m_state;
  for (std::size_t i = 0; i < 64; ++i) {
    const std::uint32_t choice = (e & f) ^ (~e & g);
    const std::uint32_t first = h + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) + choice + kRound[i] + w[i];
    const std::uint32_t majority = (a & b) ^ (a & c) ^ (b & c);
    const std::uint32_t second = (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) + majority;
    h = g;
    g = f;
    f = e;
    e = d + first;
    d = c;
    c = b;
    b = a;
    a = first + second;
  }
  const std::array<std::uint32_t, 8> added = {a, b, c, d, e, f, g, h};
  for (std::size_t i = 0; i < added.size(); ++i) m_state[i] += added[i];
}

}  // namespace platform
