#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "platform/raster/raster_fault.h"
#include "runs/fuse.h"
#include "tests/support/command.h"
#include "tests/support/scene.h"

namespace test_support {

/// A small scene of ratio 2 in a folder of its own, for runs in this process.
class RunScene : public testing::Test {
 protected:
  void SetUp() override {
    reference::Image pan;
    reference::Image ms;
    pan.width = pan.height = 40;
    ms.width = ms.height = 20;
    pan.geoTransform[1] = 1.0;
    ms.geoTransform[1] = 2.0;
    ms.geoTransform[5] = -2.0;
    unsigned state = 12345;
    const auto next = [&state] {
      state = state * 1664525U + 1013904223U;
      return static_cast<double>(100 + (state >> 16) % 900);
    };
    pan.bands.assign(1, std::vector<double>(1600));
    ms.bands.assign(4, std::vector<double>(400));
    for (auto& band : ms.bands) {
      for (auto& v : band) v = next();
    }
    // Correlated with every band, as a pan image is.
    for (std::size_t i = 0; i < 1600; ++i) {
      const std::size_t k = i / 80 * 20 + i % 40 / 2;
      for (const auto& band : ms.bands) pan.bands[0][i] += std::floor(band[k] / 5.0);
      pan.bands[0][i] += std::floor(next() / 10.0);
    }
    WriteImage(pan, m_folder.WidePath("pan.tif"), PDT_UINT16);
    WriteImage(ms, m_folder.WidePath("ms.tif"), PDT_UINT16);
  }
  void TearDown() override { platform::SetRasterFault({}); }

  /// A request into the folder.
  fusion::FuseRequest Request(const std::string& method, const std::string& out = "out.tif") const {
    fusion::FuseRequest request;
    request.pan = m_folder.Path("pan.tif");
    request.ms = m_folder.Path("ms.tif");
    request.out = m_folder.Path(out);
    request.method = method;
    return request;
  }
  reference::Image Read(const std::string& name) const { return ReadImage(m_folder.WidePath(name)); }

  TemporaryFolder m_folder;
};

}  // namespace test_support
