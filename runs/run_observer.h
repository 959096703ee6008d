#pragma once

#include <string>

#include "platform/algorithm/stage.h"
#include "platform/system/export.h"

namespace fusion {

/// A stage of a run as it begins.
struct RunStage {
  platform::Stage identity;  ///< which one: a name that stays as it is, and its place in its pipeline
  std::string title;         ///< English, to be shown: the name and "(number/count)" where it has a place
  std::string published;     ///< the title that the library's classes publish (Chinese), UTF-8
};

/// Who watches a run. All calls come from the thread that started the run, in order, and must not throw. Whoever is not
/// interested in something leaves it out: the operations do nothing here.
class FUSION_API RunObserver {
 public:
  RunObserver() = default;
  virtual ~RunObserver();
  RunObserver(const RunObserver&) = delete;
  RunObserver& operator=(const RunObserver&) = delete;

  virtual void StageBegins(const RunStage& stage);
  /// How much of the present stage is done, 0 to 100; only when that has changed.
  virtual void Progress(int percent);
  /// Whether done or broken off.
  virtual void StageEnds();
  /// Something that the run did by itself, or that its user should know of: an English sentence.
  virtual void Notice(const std::string& text);
  /// Asked often; true ends the run in order, as cancelled, with nothing written.
  virtual bool WantsCancel();
};

}  // namespace fusion
