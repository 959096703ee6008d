#include "platform/algorithm/algorithm_param.h"

AlgorithmParam::AlgorithmParam() = default;
AlgorithmParam::~AlgorithmParam() = default;
AlgorithmParam::AlgorithmParam(const AlgorithmParam&) = default;
AlgorithmParam& AlgorithmParam::operator=(const AlgorithmParam&) = default;
