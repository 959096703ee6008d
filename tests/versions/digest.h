#pragma once

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

/// What the programs of this folder make of the library's results.
namespace versions {

using Row = std::vector<double>;

/// Fowler-Noll-Vo over the bytes of the results, printed with a name for each loop.
class Digest {
 public:
  template <typename T>
  void Add(const T* values, std::size_t n) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(values);
    for (std::size_t i = 0; i < n * sizeof(T); ++i) m_hash = (m_hash ^ bytes[i]) * 1099511628211ULL;
  }
  void Add(const Row& row) {
    // Which NaN a NaN is differs between instructions and means nothing.
    for (double v : row) {
      if (std::isnan(v)) v = std::numeric_limits<double>::quiet_NaN();
      Add(&v, 1);
    }
  }
  void Print(const std::string& name) {
    std::printf("%s %016llx\n", name.c_str(), static_cast<unsigned long long>(m_hash));
    m_hash = 14695981039346656037ULL;
  }

 private:
  std::uint64_t m_hash = 14695981039346656037ULL;
};

/// Runs of every method, stage and evaluation.
void DigestRuns(Digest& digest);

}  // namespace versions
