#pragma once

#include <atomic>
#include <string>

#include "platform/system/export.h"

/// Receiver of a run's progress; programs derive their own. A run calls Start for each stage, Step along it, and at
/// its end Finish or Error.
class FUSION_API CBaseProgress {
 public:
  CBaseProgress() = default;
  virtual ~CBaseProgress();
  CBaseProgress(const CBaseProgress&) = delete;
  CBaseProgress& operator=(const CBaseProgress&) = delete;

  virtual void Start(const std::wstring& title, int range) = 0;
  /// Answers whether to go on; false cancels the run.
  virtual bool Step(int position, const std::wstring& text) = 0;
  virtual void Finish() = 0;
  virtual void Error(int type, const std::wstring& message) = 0;

  /// Lets a statistics pass, which makes no steps, end early: a reporter whose user has cancelled calls it, from any
  /// thread or from a signal handler. Step still has to answer false.
  void RequestCancel() { m_cancelRequested.store(true); }
  bool IsCancelRequested() const { return m_cancelRequested.load(); }

 private:
  std::atomic<bool> m_cancelRequested{false};
};

using CDataProgress = CBaseProgress;
