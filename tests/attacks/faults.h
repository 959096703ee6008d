#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <limits>
#include <new>
#include <string>
#include <vector>

#include "platform/raster/raster_fault.h"
#include "platform/system/start_thread.h"
#include "platform/utility/common_fun.h"
#include "runs/run_failure.h"
#include "runs/run_observer.h"
#include "tests/attacks/failing_memory.h"
#include "tests/support/run_scene.h"
#include "tests/support/test_raster.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace attacks {

using fusion::RunFailure;
using platform::RasterOperation;

inline constexpr RasterOperation kOperations[] = {
    RasterOperation::kOpen,  RasterOperation::kCreate, RasterOperation::kRead,   RasterOperation::kWrite,
    RasterOperation::kClose, RasterOperation::kStore,  RasterOperation::kRename, RasterOperation::kStatistics};

/// Wants out at one of the questions.
class ChangedMind : public fusion::RunObserver {
 public:
  explicit ChangedMind(int at) : m_at(at) {}
  bool WantsCancel() override { return m_asked++ >= m_at; }
  int Asked() const { return m_asked; }

 private:
  int m_at;
  int m_asked = 0;
};

class Faults : public test_support::RunScene {
 protected:
  void TearDown() override {
    attacks::allocationsLeft = -1;
    platform::SetThreadFault(nullptr);
    RunScene::TearDown();
    std::cout << m_what << ": " << m_runs << " runs, " << m_failed << " failed, " << m_runs - m_failed
              << " went on without";
#ifdef __SANITIZE_ADDRESS__
    const bool leaks = __lsan_do_recoverable_leak_check() != 0;
    EXPECT_FALSE(leaks) << m_what;
    std::cout << ", " << m_runs << " looked through for leaks" << (leaks ? ", which there are" : ": none");
#endif
    std::cout << '\n';
  }

  /// The runs of a method: matched, raw, masked, another coordinate system.
  std::vector<fusion::FuseRequest> Requests(const std::string& method) {
    std::vector<fusion::FuseRequest> requests(4, Request(method));
    requests[1].asPublished = true;
    requests[2].noData = 500.0;
    reference::Image pan = Read("pan.tif");
    reference::Image ms = Read("ms.tif");
    for (reference::Image* image : {&pan, &ms}) {
      image->geoTransform[0] = 500000.0;
      image->geoTransform[3] = 4400000.0;
    }
    test_support::WriteImage(pan, m_folder.WidePath("placed.tif"), PDT_UINT16, test_support::WktOfEpsg(32630));
    // Another coordinate system in which the place has the same coordinates.
    test_support::WriteImage(ms, m_folder.WidePath("other.tif"), PDT_UINT16, test_support::WktOfEpsg(25830));
    requests[3].pan = m_folder.Path("placed.tif");
    requests[3].ms = m_folder.Path("other.tif");
    for (auto& request : requests) {
      request.overwrite = true;
      request.threads = "2";
    }
    return requests;
  }

  /// A run with one fault. What it leaves must be what was there, or what it makes without a fault.
  template <typename Run>
  bool Hit(const std::string& what, const std::string& good, const Run& run) {
    ++m_runs;
    const auto names = m_folder.Names();
    if (m_pictureOf != good) m_picture = Read("out.tif").bands;
    m_pictureOf = good;
    bool failed = false;
    try {
      run();
    } catch (const RunFailure& failure) {
      failed = true;
      ++m_failed;
      EXPECT_FALSE(failure.Sentence().empty()) << what;
    }
    platform::SetRasterFault({});
    attacks::allocationsLeft = -1;
    EXPECT_EQ(m_folder.Names(), names) << what;
    if (failed) {
      EXPECT_TRUE(test_support::FileBytes(m_folder.Path("out.tif")) == good) << what;
    } else {
      // What it could do without makes no other picture.
      EXPECT_TRUE(Read("out.tif").bands == m_picture) << what;
      std::ofstream(CommonFun::ToPath(m_folder.WidePath("out.tif")), std::ios::binary) << good;
    }
    return failed;
  }

  struct Blow {
    RasterOperation operation;
    int at;       ///< which of them
    bool throws;  ///< what a lack of memory throws, rather than that it fails
  };
  struct Struck {
    bool met;  ///< there was such an operation
    bool failed;
  };

  /// A run in which one operation goes wrong.
  template <typename Run>
  Struck Strike(const std::string& what, const std::string& good, const Run& run, const Blow& blow) {
    std::atomic<int> count = 0;
    std::atomic<bool> met = false;
    platform::SetRasterFault([&](RasterOperation asked, const std::wstring&, int, const CRect&) {
      if (asked != blow.operation || count++ != blow.at) return false;
      met = true;
      if (blow.throws) throw std::bad_alloc();
      return true;
    });
    const std::string which = std::to_string(static_cast<int>(blow.operation)) + ' ' + std::to_string(blow.at);
    const bool failed = Hit(what + (blow.throws ? " throws in" : "") + " operation " + which, good, run);
    return {met, failed};
  }

  /// Lets one operation after another fail, or every step-th, until none is left to fail.
  template <typename Run>
  void FailOperations(const std::string& what, const std::string& good, const Run& run, int step = 1) {
    for (const RasterOperation operation : kOperations) {
      bool hit = true;
      for (int at = 0; hit && at < 400; at += step) {
        hit = Strike(what, good, run, {operation, at, false}).met;
      }
    }
  }

  /// Has the library's allocations fail, every step-th from the first on, in a run each.
  template <typename Run>
  void FailAllocations(const std::string& what, const std::string& good, const Run& run, long first, long step) {
    constexpr long kMany = std::numeric_limits<long>::max() / 2;
    attacks::allocationsLeft = kMany;
    run();
    const long count = kMany - attacks::allocationsLeft;
    attacks::allocationsLeft = -1;
    for (long at = first; at < count; at += step) {
      Hit(what + ", allocation " + std::to_string(at), good, [&] {
        attacks::allocationsLeft = at;
        run();
      });
    }
  }

  /// Lets one operation after another throw what a lack of memory throws, until none is left; every statistics call,
  /// and of the others every fifth. Bytes are stored at GDAL's request, through which nothing is thrown.
  template <typename Run>
  void ThrowInOperations(const std::string& what, const std::string& good, const Run& run) {
    constexpr int kStep = 5;
    for (const RasterOperation operation : kOperations) {
      const bool statistics = operation == RasterOperation::kStatistics;
      if (operation == RasterOperation::kStore) continue;
      bool hit = true;
      for (int at = 0; hit && at < 400; at += statistics ? 1 : kStep) {
        const Struck struck = Strike(what, good, run, {operation, at, true});
        hit = struck.met;
        if (!statistics || !hit) continue;
        ++m_statistics;
        m_ofStatistics += struck.failed ? 1 : 0;
      }
    }
  }

  std::string m_what;
  std::string m_pictureOf;
  std::vector<std::vector<double>> m_picture;  ///< of those bytes
  int m_statistics = 0;                        ///< calls that threw
  int m_ofStatistics = 0;                      ///< runs that failed for it
  int m_runs = 0;
  int m_failed = 0;
};

/// Whether each allocation is to fail once, whatever time that takes: FUSION_EVERY_ALLOCATION is in the environment.
inline bool EveryAllocation() { return std::getenv("FUSION_EVERY_ALLOCATION") != nullptr; }

inline std::string NameOf(const testing::TestParamInfo<const char*>& info) { return info.param; }

}  // namespace attacks
