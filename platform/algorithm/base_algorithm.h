#pragma once

#include <memory>
#include <string>

#include "platform/algorithm/algorithm_param.h"
#include "platform/algorithm/base_progress.h"
#include "platform/algorithm/value_conversion.h"
#include "platform/raster/raster_source.h"
#include "platform/validity/raster_aoi.h"

namespace platform {
class RunThreads;
class Workers;
}  // namespace platform

/// Last error types that a run leaves in its algorithm.
enum LastErrorType : int {
  ERR_NONE = 0,             ///< success; with a message: no common ground, or an area outside it
  ERR_CANCELLED = 1,        ///< logged, not told to the reporter
  ERR_READ = 2,             ///< also a band that does not exist
  ERR_WRITE = 3,            ///< also closing the output
  ERR_OPEN = 4,             ///< an input does not open, or its bands do not suit the algorithm
  ERR_CREATE = 5,           ///< the output cannot be made, or is one of the inputs
  ERR_EXCEPTION = 6,        ///< an exception from below, a failed allocation
  ERR_STATISTICS = 7,       ///< they cannot be computed, of no valid pixel for instance
  ERR_ZERO_DEVIATION = 10,  ///< the pan image has no spread
  ERR_BANDS = 11,           ///< too few bands
  ERR_REPROJECT = 20,       ///< the coordinate systems cannot be carried into each other
};

/// Base of every algorithm: error state, progress reporter and the conversion of computed values to output pixels.
/// Failures are states, never exceptions: a run leaves its outcome in GetLastErrorType and GetLastErrorMessage.
class FUSION_API CBaseAlgorithm {
 public:
  CBaseAlgorithm();
  virtual ~CBaseAlgorithm();
  CBaseAlgorithm(const CBaseAlgorithm&);
  CBaseAlgorithm& operator=(const CBaseAlgorithm&);

  /// The whole run.
  virtual void Process() = 0;
  /// Loads the record's area of interest and cuts m_rcProcess to it; *aoi stays null where the record names none.
  /// False with the error state set when the file does not open or the area does not touch the rectangle.
  virtual bool ConfigRasterAOI(AlgorithmParam* param, CRasterSource* source, CRasterAOI** aoi);

  /// The reporter is not owned; null means no progress and no cancellation.
  void SetProgress(CBaseProgress* progress) { m_pProgress = progress; }
  CBaseProgress* GetProgress() const { return m_pProgress; }

  /// Lets runs read ahead and write behind on threads of their own. Off by default: a run then reads, computes and
  /// writes by turns, all of it on the caller's thread but for the kernels that are published as sharing rows out. The
  /// results are the same.
  void SetOverlappedIo(bool overlapped) { m_overlappedIo = overlapped; }
  /// Lets runs compute on so many threads, the caller's among them; 0 or less: on as many as the machine has. 1 by
  /// default: all is computed on the caller's thread but for those kernels. The results are the same for every number.
  void SetThreads(int threads) { m_threads = threads; }
  /// Lets runs compute on threads that others compute on, too, in place of such of their own. Null: of their own again.
  void ShareThreads(std::shared_ptr<platform::Workers> workers);
  /// Whether runs that end with overviews build them, as they do by default.
  void SetBuildsOverviews(bool builds) { m_buildsOverviews = builds; }
  /// Makes this algorithm a stage of another one's run: it takes over the reporter and these choices, and leaves it to
  /// the outer run to tell the reporter that it is finished.
  void RunInside(const CBaseAlgorithm& outer);

  /// Whether the last run has succeeded. Some failures leave a message alone, with an error type of 0.
  bool Succeeded() const { return m_nLastErrorType == ERR_NONE && m_strLastErrorMessage.empty(); }
  int GetLastErrorType() const { return m_nLastErrorType; }
  const std::wstring& GetLastErrorMessage() const { return m_strLastErrorMessage; }

  void SetAddOne(bool addOne) { m_conversion.m_bAddOne = addOne; }
  void SetStretch(bool stretch) { m_conversion.m_bStretch = stretch; }
  void SetSrcMinMaxValue(double minimum, double maximum);
  void SetOutMinMaxValue(double minimum, double maximum);
  const platform::ValueConversion& GetValueConversion() const { return m_conversion; }

 protected:
  void ClearError();
  void SetError(int type, const std::wstring& message);
  /// Passes the present error type and message to the reporter, where there is one.
  void ReportError();
  /// Sets the error and reports it.
  void Fail(int type, const std::wstring& message);
  /// Runs work so that no exception leaves it: a failed allocation or any other exception from below becomes error
  /// type ERR_EXCEPTION, reported. Answers false then.
  template <typename Work>
  bool Guard(Work&& work) {
    try {
      work();
      return true;
    } catch (...) {
      FailWithCurrentException();
      return false;
    }
  }

  /// Tells the reporter that this is finished, unless it runs inside another algorithm.
  void ReportFinished();

  CBaseProgress* m_pProgress = nullptr;
  bool m_overlappedIo = false;
  int m_threads = 1;
  /// Who share the work of the run at hand out among them; null where it is done on one thread, and between runs.
  std::shared_ptr<platform::Workers> m_workers;
  bool m_buildsOverviews = true;
  int m_nLastErrorType = ERR_NONE;
  std::wstring m_strLastErrorMessage;
  platform::ValueConversion m_conversion;

 private:
  friend class platform::RunThreads;
  void FailWithCurrentException();

  bool m_runsInside = false;
};
