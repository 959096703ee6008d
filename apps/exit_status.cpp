#include "apps/exit_status.h"

#include <cerrno>
#include <cmath>
#include <iostream>
#include <new>
#include <nlohmann/json.hpp>
#include <system_error>

#include "platform/algorithm/base_algorithm.h"
#include "platform/algorithm/messages.h"
#include "platform/raster/write_guard.h"
#include "platform/system/disk.h"
#include "platform/system/interrupts.h"
#include "platform/utility/common_fun.h"

namespace app {

CommandError RunError(int type, const std::wstring& message, const std::string& sentence) {
  std::string text = sentence.empty() ? ErrorSentence(type) : sentence;
  if (message == platform::messages::kOutOfMemory) text = "The run ran out of memory.";
  if (!message.empty()) text += " (" + CommonFun::U2Utf8(message) + ")";
  return {type == ERR_CANCELLED ? kCancelled : kRunFailed, text, type};
}

CommandError ExceptionError(const std::exception& exception) {
  const bool memory = dynamic_cast<const std::bad_alloc*>(&exception) != nullptr;
  return RunError(ERR_EXCEPTION, memory ? platform::messages::kOutOfMemory : CommonFun::Utf82U(exception.what()));
}

std::string Reason(int error) {
  if (error == 0) return {};
  if (error == EFBIG) return ": the disk is full, or the file would be larger than files may be";
  if (platform::IsLackOfRoom(error)) return ": the disk is full";
  return ": " + std::generic_category().message(error);
}

std::string ErrorSentence(int errorType) {
  const std::string reason = Reason(platform::FirstWriteError());
  switch (errorType) {
    case ERR_NONE:
      return "The images have no common ground, or the window or the area of interest lies outside it.";
    case ERR_CANCELLED:
      return "The run was cancelled; nothing was written.";
    case ERR_READ:
      return "An input could not be read: the file is damaged or truncated, or a band is missing.";
    case ERR_WRITE:
      return "The output could not be written" + reason + ".";
    case ERR_OPEN:
      return "A file does not exist or is no raster (or vector) that can be opened.";
    case ERR_CREATE:
      if (!reason.empty()) return "The output cannot be created" + reason + ".";
      return "The output cannot be created: check the folder, its permissions, and whether the format takes this pixel "
             "type and number of bands.";
    case ERR_EXCEPTION:
      return "The run met an unexpected failure.";
    case ERR_STATISTICS:
      return "The statistics of an input cannot be computed: it has no valid pixel or cannot be read.";
    case ERR_ZERO_DEVIATION:
      return "An image has no variation, so there is no detail to inject: is it the right band?";
    case ERR_BANDS:
      return "The choice of multispectral bands does not suit the method.";
    case ERR_REPROJECT:
      return "The multispectral image cannot be brought into the pan image's coordinate system.";
    default:
      return "The run failed.";
  }
}

int Report(const CommandError& error) {
  if (error.status == kCancelled) {
    std::cerr << "fusion: " << ErrorSentence(ERR_CANCELLED) << '\n';
    // As the shell tells of a program that a signal has ended.
    constexpr int kSignalled = 128;
    return platform::LastInterrupt() != 0 ? kSignalled + platform::LastInterrupt() : kCancelled;
  }
  if (error.type == CommandError::kOwnType) {
    std::cerr << "fusion: " << error.what() << '\n';
  } else {
    std::cerr << "fusion: error " << error.type << ": " << error.what() << '\n';
  }
  return error.status;
}

void PrintJson(const nlohmann::ordered_json& object) {
  std::cout << object.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

int EndOutput(int status) {
  if (std::cout.flush()) return status;
  std::cerr << "fusion: Standard output cannot be written.\n";
  return status == kSuccess ? kRunFailed : status;
}

nlohmann::ordered_json JsonNumber(double value) {
  if (std::isinf(value)) return value > 0.0 ? "inf" : "-inf";
  return value;
}

}  // namespace app
