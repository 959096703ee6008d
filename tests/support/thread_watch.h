#pragma once

#include <omp.h>

#include "platform/system/workers.h"
#include "tests/support/method_sweep.h"

namespace test_support {

/// Counts the threads that do part of some work, by the memory they ask for: every worker of a kernel makes buffers of
/// its own. Programs that use it are built with thread_watch.cpp, which replaces the global operator new.
class ThreadWatch {
 public:
  ThreadWatch();
  ~ThreadWatch();
  ThreadWatch(const ThreadWatch&) = delete;
  ThreadWatch& operator=(const ThreadWatch&) = delete;

  /// Threads that have asked for memory since the object was made.
  int Count() const;
};

/// A method that knows how many threads worked on its last block.
template <typename Method>
class WatchedKernel : public Method {
 public:
  using Method::Method;
  void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                          PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) override {
    const ThreadWatch watch;
    void** bands =
        Method::AlgorithmProcess(pan, panRect, ms, msBandCount, msRect, outType, outBandCount, dstBlock, aoi);
    threads = watch.Count();
    return bands;
  }
  int threads = 0;
};

/// The same for the methods that take a second detail block.
template <typename Method>
class WatchedDetailKernel : public Method {
 public:
  using Method::AlgorithmProcess;
  using Method::Method;
  void** AlgorithmProcess(double* pan, CRect* panRect, double* detail, double** ms, int msBandCount, CRect* msRect,
                          PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) override {
    const ThreadWatch watch;
    void** bands =
        Method::AlgorithmProcess(pan, panRect, detail, ms, msBandCount, msRect, outType, outBandCount, dstBlock, aoi);
    threads = watch.Count();
    return bands;
  }
  int threads = 0;
};

/// The threads that work on a block of 64 rows when OpenMP may use four.
/// @param workers what the run is to compute on; null: nothing is said
template <typename Watched>
int KernelThreads(const std::shared_ptr<platform::Workers>& workers = nullptr) {
  SceneOptions options;
  options.panWidth = options.panHeight = 64;
  const Scene scene(97, options);
  FusionParam param = scene.Param();
  Watched fusion(&param);
  const int before = omp_get_max_threads();
  omp_set_num_threads(4);
  fusion.ShareThreads(workers);
  fusion.Process();
  omp_set_num_threads(before);
  ExpectSuccess(fusion);
  return fusion.threads;
}

}  // namespace test_support
