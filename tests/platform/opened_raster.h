#pragma once

#include <gtest/gtest.h>

#include <string>

#include "platform/raster/raster_source.h"
#include "tests/support/test_raster.h"

/// A raster written for a test, open while it runs.
class OpenedRaster : public testing::Test {
 protected:
  ~OpenedRaster() override {
    m_source.Close();
    if (!m_path.empty()) CRasterSource::DeleteFileW(m_path);
  }
  CRasterSource& Open(const test_support::TestRaster& raster) {
    m_source.Close();
    m_path = test_support::MemoryPath();
    test_support::WriteRaster(raster, m_path);
    EXPECT_TRUE(m_source.OpenSimple(m_path));
    return m_source;
  }

  std::wstring m_path;
  CRasterSource m_source;
};
