#pragma once

#include "platform/algorithm/base_algorithm.h"
#include "platform/system/workers.h"

namespace platform {

/// The threads that an algorithm is asked to compute on, while its run lasts. A stage has those of the run that it is
/// in.
class RunThreads {
 public:
  explicit RunThreads(CBaseAlgorithm& algorithm)
      : m_algorithm(algorithm), m_starts(!algorithm.m_workers && algorithm.m_threads != 1) {
    if (m_starts) algorithm.m_workers = std::make_shared<Workers>(algorithm.m_threads);
  }
  ~RunThreads() {
    if (m_starts || m_algorithm.m_runsInside) m_algorithm.m_workers.reset();
  }
  RunThreads(const RunThreads&) = delete;
  RunThreads& operator=(const RunThreads&) = delete;

 private:
  CBaseAlgorithm& m_algorithm;
  bool m_starts;
};

}  // namespace platform
