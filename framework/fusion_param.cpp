#include "framework/fusion_param.h"

FusionParam::FusionParam() { m_eOutDataType = PDT_FLOAT32; }
FusionParam::~FusionParam() = default;
FusionParam::FusionParam(const FusionParam&) = default;
FusionParam& FusionParam::operator=(const FusionParam&) = default;

HpfFusionParam::HpfFusionParam() = default;
HpfFusionParam::~HpfFusionParam() = default;
HpfFusionParam::HpfFusionParam(const HpfFusionParam&) = default;
HpfFusionParam& HpfFusionParam::operator=(const HpfFusionParam&) = default;

BayesianFusionParam::BayesianFusionParam() = default;
BayesianFusionParam::~BayesianFusionParam() = default;
BayesianFusionParam::BayesianFusionParam(const BayesianFusionParam&) = default;
BayesianFusionParam& BayesianFusionParam::operator=(const BayesianFusionParam&) = default;
