#include "factory/fusion_functions.h"

#include <memory>

#include "factory/fusion_algorithm_factory.h"
#include "platform/raster/coordinate_algorithm.h"
#include "platform/utility/common_fun.h"

namespace {

bool IsGiven(const char* text) { return text && *text; }

int Run(FusionType type, const char* panFile, const char* msFile, const char* outFile, const char* resampleType,
        const char* outDataType) {
  try {
    FusionParam param;
    param.m_strPanFile = CommonFun::M2U(panFile);
    param.m_strMSFile = CommonFun::M2U(msFile);
    param.m_strOutFile = CommonFun::M2U(outFile);
    param.m_eResampleType = RT_NEAREST;
    if (IsGiven(resampleType)) {
      param.m_eResampleType = CStringParamParser::GetResampleType(CommonFun::M2U(resampleType));
    }
    if (!CCoordinateAlgorithm::IsNeededProject(param.m_strPanFile, param.m_strMSFile, param.m_bNeedReproject)) {
      return -1;
    }
    if (IsGiven(outDataType)) {
      param.m_eOutDataType = CStringParamParser::GetOutDataType(
          CStringParamParser::OutDataTypeString2DataTypeIndex(CommonFun::M2U(outDataType)));
    }
    param.m_eOutFormat = CStringParamParser::GetOutDataFormat(CommonFun::GetExtensionName(param.m_strOutFile));
    const std::unique_ptr<CFusion> algorithm(CFusionAlgorithmFactory::CreateAlgorithm(type, nullptr, &param));
    algorithm->Process();
    return algorithm->GetLastErrorType();
  } catch (...) {
    return ERR_EXCEPTION;
  }
}

}  // namespace

int IHSFusion(const char* panFile, const char* msFile, const char* outFile, const char* resampleType,
              const char* outDataType) {
  return Run(FT_IHS, panFile, msFile, outFile, resampleType, outDataType);
}

int WeightFusion(const char* panFile, const char* msFile, const char* outFile, const char* resampleType,
                 const char* outDataType) {
  return Run(FT_WEIGHT, panFile, msFile, outFile, resampleType, outDataType);
}

int MultipleFusion(const char* panFile, const char* msFile, const char* outFile, const char* resampleType,
                   const char* outDataType) {
  return Run(FT_MULTIPLE, panFile, msFile, outFile, resampleType, outDataType);
}

int BroveyFusion(const char* panFile, const char* msFile, const char* outFile, const char* resampleType,
                 const char* outDataType) {
  return Run(FT_BROVEY, panFile, msFile, outFile, resampleType, outDataType);
}

int PCAFusion(const char* panFile, const char* msFile, const char* outFile, const char* resampleType,
              const char* outDataType) {
  return Run(FT_PRIN_COMPONENT, panFile, msFile, outFile, resampleType, outDataType);
}
