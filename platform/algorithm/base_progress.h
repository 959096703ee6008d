#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <utility>

#include "platform/algorithm/stage.h"
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

  /// How the library's stages call Start: with what they are, for reporters that show no published title.
  void Begin(const platform::Stage& stage, const std::wstring& title, int range) {
    m_stage = stage;
    Start(title, range);
    m_stage = {};
  }
  /// While Start is under way, the stage that it tells of; nameless where that says nothing of itself.
  const platform::Stage& StartedStage() const { return m_stage; }

  /// Lets a statistics pass, which makes no steps, end early: a reporter whose user has cancelled calls it, from any
  /// thread or from a signal handler. Step still has to answer false.
  void RequestCancel() { m_cancelRequested.store(true); }
  bool IsCancelRequested() const { return m_cancelRequested.load() || (m_asksCancel && m_asksCancel()); }

 protected:
  /// Has IsCancelRequested ask, too, for reporters whose user is not the one to call.
  void AskForCancel(std::function<bool()> question) { m_asksCancel = std::move(question); }

 private:
  std::atomic<bool> m_cancelRequested{false};
  std::function<bool()> m_asksCancel;
  platform::Stage m_stage;
};

using CDataProgress = CBaseProgress;
