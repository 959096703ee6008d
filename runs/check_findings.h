#pragma once

#include <optional>
#include <vector>

#include "estimation/pair_shift.h"
#include "runs/check.h"
#include "runs/check_figures.h"
#include "runs/scene_pair.h"

namespace fusion {

/// All that was seen of a pair.
struct CheckFacts {
  const CheckReport& report;
  ScenePair::Placing placing = ScenePair::Placing::kByGround;
  bool systemsFit = true;       ///< whether the coordinate systems can be carried into each other
  bool numbersOverlap = false;  ///< whether the coordinates overlap as numbers, whatever their systems
  const PairFigures* figures;   ///< null without common ground
  const PairShift* shift;       ///< null where it was not looked for
  bool declaresPan = false;     ///< whether pan says which of its samples are none
  bool declaresMs = false;
};

/// What is to be said of it, warnings first.
std::vector<CheckFinding> JudgePair(const CheckFacts& facts);

}  // namespace fusion
