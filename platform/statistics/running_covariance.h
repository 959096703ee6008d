#pragma once

#include <cstdint>
#include <vector>

namespace platform {

/// Means and covariances of a stream of vectors. Batches are reduced on their own and merged, so that neither large
/// means nor a long stream costs digits (Chan, Golub and LeVeque, Updating formulae and a pairwise algorithm for
/// computing sample variances, 1979).
class RunningCovariance {
 public:
  /// @param size of the vectors
  explicit RunningCovariance(int size = 0);

  /// @param columns one array of count values per component
  void Add(const double* const* columns, std::int64_t count);
  /// Takes over the vectors of another one, behind its own.
  void Add(const RunningCovariance& part);

  std::int64_t Count() const { return m_count; }
  double Mean(int i) const { return m_origins[static_cast<std::size_t>(i)] + m_means[static_cast<std::size_t>(i)]; }
  /// Population covariance, 0 without any vector.
  double Covariance(int i, int j) const;

  template <typename Archive>
  void Exchange(Archive& archive) {
    archive(m_size, m_count, m_origins, m_means, m_products);
  }

 private:
  int m_size;
  std::int64_t m_count = 0;
  std::vector<double> m_origins;   ///< the first vector
  std::vector<double> m_means;     ///< less the origin, whose digits a large mean would otherwise take
  std::vector<double> m_products;  ///< sums of products of deviations; the upper triangle is kept
};

}  // namespace platform
