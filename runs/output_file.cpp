#include "runs/output_file.h"

#include "platform/algorithm/base_algorithm.h"
#include "platform/algorithm/messages.h"
#include "platform/utility/common_fun.h"
#include "runs/failures.h"

namespace fusion {

using platform::OutputObstacle;

void ThrowObstacle(const OutputObstacle& obstacle, const std::wstring& output) {
  const std::string out = CommonFun::U2Utf8(output);
  const std::string file = CommonFun::U2Utf8(obstacle.file);
  const bool itself = obstacle.file == output;
  switch (obstacle.kind) {
    case OutputObstacle::kNone:
      return;
    case OutputObstacle::kExists:
      if (itself) throw UsageError(out + " exists; add --overwrite to replace it.");
      throw UsageError(file + " exists and would be taken for part of " + out + "; add --overwrite to replace it.");
    case OutputObstacle::kInput:
      if (itself) throw UsageError(out + " is an input of this run.");
      throw UsageError(file + " belongs to an input of this run, and " + out +
                       " would replace it; choose another name.");
    case OutputObstacle::kShared:
      throw UsageError(file + " needs a header of the name that " + out + "'s would have; choose another name.");
    case OutputObstacle::kNoFile:
      if (CommonFun::IsFolder(obstacle.file)) throw UsageError(file + " is a folder.");
      throw UsageError(file + " is no regular file; only files, or links to files, can be written.");
    case OutputObstacle::kNotGiven:
      throw RunError(ERR_WRITE, platform::messages::kWriteFailed,
                     file + " cannot be written" + Reason(obstacle.error) + ".");
  }
}

}  // namespace fusion
