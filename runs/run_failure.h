#pragma once

#include <stdexcept>
#include <string>

#include "platform/system/export.h"

namespace fusion {

/// How a run ends without success; the one exception that Fuse, Check, Evaluate, Assess and MakeSample throw. what() is
/// the sentence, and behind it, in brackets, the library's own message where there is one; UTF-8, one line.
class FUSION_API RunFailure : public std::runtime_error {
 public:
  enum class Kind {
    kWrongUsage,  ///< the request cannot work: told from its options, the inputs' headers, or what stands in its way
    kFailed,      ///< the run failed
    kCancelled,   ///< the observer wanted it
  };
  /// The error type of a failure that is the run's own and not one of an algorithm.
  static constexpr int kOwnType = -1;

  RunFailure(Kind kind, const std::string& sentence, int type = kOwnType, const std::string& message = "");
  ~RunFailure() override;
  RunFailure(const RunFailure&);
  RunFailure& operator=(const RunFailure&);

  Kind GetKind() const { return m_kind; }
  /// One of LastErrorType, or kOwnType. 0 is a failure, too: images without common ground.
  int Type() const { return m_type; }
  /// What went wrong, in English.
  const std::string& Sentence() const { return m_sentence; }
  /// The library's own message (Chinese); empty where there is none.
  const std::string& Message() const { return m_message; }

 private:
  Kind m_kind;
  int m_type;
  std::string m_sentence;
  std::string m_message;
};

inline RunFailure UsageError(const std::string& text) { return {RunFailure::Kind::kWrongUsage, text}; }
/// A failure by an exception from below: a lack of memory, say.
FUSION_API RunFailure ExceptionError(const std::exception& exception);

}  // namespace fusion
