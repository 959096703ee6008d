#include "runs/failures.h"

#include <cerrno>

#include "platform/algorithm/base_algorithm.h"
#include "platform/algorithm/messages.h"
#include "platform/raster/write_guard.h"
#include "platform/system/disk.h"
#include "platform/utility/common_fun.h"

namespace fusion {
namespace {

/// A plain English sentence for an error type that a run leaves.
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
      return "A file cannot be opened: it does not exist, is no raster (or vector), or is one too many for the "
             "process.";
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

}  // namespace

RunFailure RunError(int type, const std::wstring& message, const std::string& sentence) {
  std::string text = sentence.empty() ? ErrorSentence(type) : sentence;
  if (message == platform::messages::kOutOfMemory) text = "The run ran out of memory.";
  const auto kind = type == ERR_CANCELLED ? RunFailure::Kind::kCancelled : RunFailure::Kind::kFailed;
  return {kind, text, type, CommonFun::U2Utf8(message)};
}

void ThrowFailure(const CBaseAlgorithm& algorithm) {
  if (!algorithm.Succeeded()) throw RunError(algorithm.GetLastErrorType(), algorithm.GetLastErrorMessage());
}

RunFailure FileFailure(const std::wstring& file, const std::string& done) {
  return {RunFailure::Kind::kFailed,
          CommonFun::U2Utf8(file) + " cannot be " + done + Reason(platform::FirstWriteError()) + "."};
}

RunFailure FolderFailure(const std::string& folder, const std::error_code& error) {
  return {RunFailure::Kind::kFailed, "Cannot create the folder " + folder + Reason(error.value()) + "."};
}

std::string Reason(int error) {
  if (error == 0) return {};
  if (error == EFBIG) return ": the disk is full, or the file would be larger than files may be";
  if (platform::IsLackOfRoom(error)) return ": the disk is full";
  return ": " + std::generic_category().message(error);
}

}  // namespace fusion
