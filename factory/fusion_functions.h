#pragma once

#include "platform/system/export.h"

// One call from file to file. Paths in the system's multibyte code (UTF-8 but on Windows).
//
// resampleType: nearest, bilinear or bicubic, empty for nearest. outDataType: a type name, empty for 32-bit float. The
// format follows the extension of outFile. Answers 0 for success, -1 when an input does not open, else the error type
// of the run (see LastErrorType).
extern "C" {

FUSION_API int IHSFusion(const char* panFile, const char* msFile, const char* outFile, const char* resampleType,
                         const char* outDataType);
FUSION_API int WeightFusion(const char* panFile, const char* msFile, const char* outFile, const char* resampleType,
                            const char* outDataType);
FUSION_API int MultipleFusion(const char* panFile, const char* msFile, const char* outFile, const char* resampleType,
                              const char* outDataType);
FUSION_API int BroveyFusion(const char* panFile, const char* msFile, const char* outFile, const char* resampleType,
                            const char* outDataType);
FUSION_API int PCAFusion(const char* panFile, const char* msFile, const char* outFile, const char* resampleType,
                         const char* outDataType);
}
