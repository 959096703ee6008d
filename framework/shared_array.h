#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

/// An array that copies share and the last owner frees; reads like a plain pointer. Starts with zeros.
template <typename T>
class SharedBuffer {
 public:
  SharedBuffer() = default;
  explicit SharedBuffer(std::size_t n) : m_values(new T[n]()) {}

  operator T*() const { return m_values.get(); }
  void reset() { m_values.reset(); }

 private:
  std::shared_ptr<T[]> m_values;
};

using SharedArray = SharedBuffer<double>;
using SharedCounts = SharedBuffer<std::int64_t>;
