#pragma once

// Everything a program that links the library needs.
#include "band_arithmetic/brovey_fusion.h"
#include "framework/fusion.h"
#include "framework/fusion_param.h"
#include "platform/algorithm/base_progress.h"
#include "platform/algorithm/build_raster_overviews.h"
#include "platform/algorithm/string_param_parser.h"
#include "platform/processing/stretch_of_multi_band.h"
#include "platform/raster/coordinate_algorithm.h"
#include "platform/raster/gis_data_source.h"
#include "platform/raster/raster_algorithm.h"
#include "platform/utility/common_fun.h"
#include "platform/utility/log.h"
