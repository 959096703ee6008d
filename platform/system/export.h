#pragma once

// The one export macro: everything else in the shared library stays hidden.
#if defined(FUSION_STATIC)
#define FUSION_API
#elif defined(_WIN32)
#if defined(FUSION_BUILDING)
#define FUSION_API __declspec(dllexport)
#else
#define FUSION_API __declspec(dllimport)
#endif
#else
#define FUSION_API __attribute__((visibility("default")))
#endif
