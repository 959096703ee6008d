#pragma once

#include <memory>
#include <vector>

#include "platform/algorithm/single_band_io_process.h"

/// Parameters of CConvolution.
struct FUSION_API ConvolutionParam : AlgorithmParam {
  int m_nBand = 0;                        ///< counted from 0
  double m_dScale = 1.0;                  ///< factor of every coefficient
  std::vector<double> m_vecCoefficients;  ///< m_nHeight rows of m_nWidth
  int m_nWidth = 0;                       ///< 1 to 31
  int m_nHeight = 0;                      ///< 1 to 31
  int m_nCenterX = 0;                     ///< column of the coefficient that lies on the pixel
  int m_nCenterY = 0;                     ///< its row
};

namespace platform {
class KernelPasses;
}

/// Correlates one band with a kernel: out(x, y) is the sum over the kernel's columns i and rows j of
/// scale x coefficient(i, j) x in(x + i - centre column, y + j - centre row); outside the image the edge sample is
/// repeated. The output is a 32-bit float raster unless the record names another type. A kernel that does not fit its
/// sizes or leaves no sense is an error state.
class FUSION_API CConvolution : public CSingleBandIOProcess {
 public:
  explicit CConvolution(AlgorithmParam* param);
  ~CConvolution() override;
  CConvolution(const CConvolution&) = delete;
  CConvolution& operator=(const CConvolution&) = delete;

 protected:
  bool Configure(const CRasterSource& input, platform::StagePlan& plan) override;
  void ProcessBandRow(int index, const platform::RowBuffer& rows, int row, double* out) override;

 private:
  void Correlate(platform::KernelPasses& passes, const platform::RowBuffer& rows, int row, double* out) const;

  ConvolutionParam m_kernel;
  std::unique_ptr<platform::KernelPasses> m_passes;
};
