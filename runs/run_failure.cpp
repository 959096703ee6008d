#include "runs/run_failure.h"

#include <new>

#include "platform/algorithm/base_algorithm.h"
#include "platform/algorithm/messages.h"
#include "platform/raster/virtual_raster.h"
#include "platform/utility/common_fun.h"
#include "runs/failures.h"
#include "runs/open_input.h"

namespace fusion {

RunFailure::RunFailure(Kind kind, const std::string& sentence, int type, const std::string& message)
    : std::runtime_error(message.empty() ? sentence : sentence + " (" + message + ")"),
      m_kind(kind),
      m_type(type),
      m_sentence(sentence),
      m_message(message) {}

RunFailure::~RunFailure() = default;
RunFailure::RunFailure(const RunFailure&) = default;
RunFailure& RunFailure::operator=(const RunFailure&) = default;

RunFailure ExceptionError(const std::exception& exception) {
  if (const auto* unopened = dynamic_cast<const platform::OpenFailure*>(&exception)) {
    return OpenError(unopened->File(), unopened->Reason());
  }
  const bool memory = dynamic_cast<const std::bad_alloc*>(&exception) != nullptr;
  return RunError(ERR_EXCEPTION, memory ? platform::messages::kOutOfMemory : CommonFun::Utf82U(exception.what()));
}

}  // namespace fusion
