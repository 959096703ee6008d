#include "platform/processing/convolution.h"

#include <algorithm>
#include <cmath>

#include "platform/algorithm/row_buffer.h"
#include "platform/processing/kernel_passes.h"

namespace {

bool IsKernel(const ConvolutionParam& param) {
  constexpr int kLargest = 31;
  const auto isSize = [](int size) { return size >= 1 && size <= kLargest; };
  return isSize(param.m_nWidth) && isSize(param.m_nHeight) && param.m_nCenterX >= 0 &&
         param.m_nCenterX < param.m_nWidth && param.m_nCenterY >= 0 && param.m_nCenterY < param.m_nHeight &&
         param.m_vecCoefficients.size() ==
             static_cast<std::size_t>(param.m_nWidth) * static_cast<std::size_t>(param.m_nHeight) &&
         std::all_of(param.m_vecCoefficients.begin(), param.m_vecCoefficients.end(),
                     [&](double c) { return std::isfinite(c * param.m_dScale); });
}

}  // namespace

CConvolution::CConvolution(AlgorithmParam* param) : CSingleBandIOProcess(param) {
  if (const auto* convolution = dynamic_cast<const ConvolutionParam*>(param)) m_kernel = *convolution;
}

CConvolution::~CConvolution() = default;

bool CConvolution::Configure(const CRasterSource& input, platform::StagePlan& plan) {
  if (!IsKernel(m_kernel)) {
    SetError(ERR_EXCEPTION, L"卷积核参数错误！");
    return false;
  }
  plan.bands = {m_kernel.m_nBand};
  plan.outBandCount = 1;
  if (plan.outType == PDT_UNKNOWN) plan.outType = PDT_FLOAT32;
  plan.halo = std::max(m_kernel.m_nCenterY, m_kernel.m_nHeight - 1 - m_kernel.m_nCenterY);
  platform::Kernel kernel{m_kernel.m_nWidth, m_kernel.m_nHeight, m_kernel.m_nCenterX, m_kernel.m_nCenterY,
                          m_kernel.m_vecCoefficients};
  for (double& c : kernel.coefficients) c *= m_kernel.m_dScale;
  m_passes = std::make_unique<platform::KernelPasses>(kernel, input.GetWidth(), input.GetHeight());
  return true;
}

void CConvolution::ProcessBandRow(int /*index*/, const platform::RowBuffer& rows, int row, double* out) {
  if (m_param.m_bMaskNoData) {
    m_passes->ProcessRowWithGaps(rows, row, out);
  } else {
    m_passes->ProcessRow(rows, row, out);
  }
}
