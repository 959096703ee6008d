#include "platform/processing/convolution.h"

#include "platform/algorithm/messages.h"
#include "platform/algorithm/row_buffer.h"
#include "platform/processing/kernel_passes.h"

CConvolution::CConvolution(AlgorithmParam* param) : CSingleBandIOProcess(param) {
  if (const auto* convolution = dynamic_cast<const ConvolutionParam*>(param)) m_kernel = *convolution;
}

CConvolution::~CConvolution() = default;

bool CConvolution::Configure(const CRasterSource& input, platform::StagePlan& plan) {
  const auto kernel = platform::KernelOf(m_kernel);
  if (!kernel) {
    SetError(ERR_EXCEPTION, platform::messages::kWrongKernel);
    return false;
  }
  plan.bands = {m_kernel.m_nBand};
  plan.outBandCount = 1;
  if (plan.outType == PDT_UNKNOWN) plan.outType = PDT_FLOAT32;
  plan.halo = kernel->Halo();
  m_passes = std::make_unique<platform::KernelPasses>(*kernel, input.GetWidth(), input.GetHeight());
  plan.makeRowWork = [this, kernel = *kernel, width = input.GetWidth(), height = input.GetHeight()] {
    return [this, passes = std::make_shared<platform::KernelPasses>(kernel, width, height)](
               const platform::RowBuffer& rows, int row, double* const* out) { Correlate(*passes, rows, row, *out); };
  };
  return true;
}

void CConvolution::ProcessBandRow(int /*index*/, const platform::RowBuffer& rows, int row, double* out) {
  Correlate(*m_passes, rows, row, out);
}

void CConvolution::Correlate(platform::KernelPasses& passes, const platform::RowBuffer& rows, int row,
                             double* out) const {
  if (m_param.m_bMaskNoData) {
    passes.ProcessRowWithGaps(rows, row, out);
  } else {
    passes.ProcessRow(rows, row, out);
  }
}
