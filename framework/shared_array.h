#pragma once

#include <cstddef>
#include <memory>

/// An array of doubles that copies share and the last owner frees; reads like a plain pointer.
class SharedArray {
 public:
  SharedArray() = default;
  explicit SharedArray(std::size_t n) : m_values(new double[n]()) {}

  operator double*() const { return m_values.get(); }
  void reset() { m_values.reset(); }

 private:
  std::shared_ptr<double[]> m_values;
};
