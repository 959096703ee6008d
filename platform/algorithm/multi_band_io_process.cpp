#include "platform/algorithm/multi_band_io_process.h"

CMultiBandIOProcess::CMultiBandIOProcess(const AlgorithmParam* param) : RowStage(param) {}
CMultiBandIOProcess::~CMultiBandIOProcess() = default;

void CMultiBandIOProcess::Process() { RowStage::Process(); }
