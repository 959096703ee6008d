#include "platform/algorithm/single_band_io_process.h"

#include "platform/algorithm/row_buffer.h"

CSingleBandIOProcess::CSingleBandIOProcess(const AlgorithmParam* param) : RowStage(param) {}
CSingleBandIOProcess::~CSingleBandIOProcess() = default;

void CSingleBandIOProcess::Process() { RowStage::Process(); }

void CSingleBandIOProcess::ProcessRow(const platform::RowBuffer& rows, int row, double* const* out) {
  for (int i = 0; i < rows.BandCount(); ++i) ProcessBandRow(i, rows, row, out[i]);
}
