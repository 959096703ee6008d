#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/raster/raster_source.h"
#include "runs/provenance.h"
#include "runs/report.h"
#include "runs/scene_pair.h"

namespace fusion {

/// A fused image of a report, opened, and which of its bands belong to which multispectral ones.
struct FusedSource {
  std::string file;
  std::string label;                      ///< the file's name without folder and extension, where no other has it
  std::unique_ptr<CRasterSource> raster;  ///< samples without data read as NaN
  CRect onPan;                            ///< its pixels, as pan counts them
  std::vector<int> msBands;               ///< counted from 1
  std::vector<int> fusedBands;            ///< of the same pairs
  std::string unpaired;                   ///< why there are no pairs; empty where there are
  std::optional<Provenance> provenance;   ///< where it tells
};

/// Throws RunFailure for an image that cannot be used.
std::vector<FusedSource> OpenFused(const ReportRequest& request, const ScenePair& pair);

}  // namespace fusion
