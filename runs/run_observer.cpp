#include "runs/run_observer.h"

namespace fusion {

RunObserver::~RunObserver() = default;
void RunObserver::StageBegins(const RunStage& /*stage*/) {}
void RunObserver::Progress(int /*percent*/) {}
void RunObserver::StageEnds() {}
void RunObserver::Notice(const std::string& /*text*/) {}
bool RunObserver::WantsCancel() { return false; }

}  // namespace fusion
