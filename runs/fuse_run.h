#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/algorithm/base_algorithm.h"
#include "platform/raster/pending_output.h"
#include "platform/raster/raster_description.h"
#include "runs/fuse.h"
#include "runs/fuse_checks.h"

namespace fusion {

class FuseInputs;
class Notices;
class OutputNotes;
class Quicklook;
class RunLog;
class RunProgress;
struct MatchOutliers;
struct MatchTargets;
struct SurveyReport;

/// One run of Fuse: what it plans, carries out and publishes.
class FuseRun {
 public:
  /// Throws RunFailure for what cannot work whatever the files.
  FuseRun(const FuseRequest& options, RunLog& log, Notices& notices, RunProgress& progress);
  ~FuseRun();

  /// Throws RunFailure. The report's time and notices are the caller's.
  FuseReport Run();
  /// Gathers a survey in its place. Throws RunFailure; time, notices and parts of the report are the caller's.
  SurveyReport Survey();
  /// What was gathered.
  const std::shared_ptr<platform::Survey>& Surveyed() const { return m_checked.survey; }

 private:
  FuseReport FuseAndPublish();
  void SettleType(const FuseInputs& inputs);
  MatchTargets MakeTargets() const;
  /// What would be done.
  FuseReport Plan(const FuseInputs& inputs) const;
  /// What the multispectral image says of its bands goes to the output where it holds there, too.
  void Describe(platform::RasterDescription description);
  PixelDataType DefaultType(PixelDataType msType) const;
  void Fuse(const FuseInputs& inputs, const std::wstring& file, const MatchTargets* targets);
  void TellOutliers(const MatchOutliers& outliers) const;
  /// Whether the result's values mean what those of the bands do.
  bool IsOnBandScale() const;
  /// Whether the raw result would look black in the type.
  bool IsOnByteScale() const;
  /// Runs an algorithm and throws its failure.
  void Carry(CBaseAlgorithm& algorithm);
  /// A run that reports success but left no readable raster has failed.
  FuseReport Look(const std::wstring& file, PixelDataType msType) const;
  /// Whether values of the result may lie far beyond those of an integer output type.
  bool MayExceedType(PixelDataType msType) const;
  void TellWhatWasCut() const;
  /// A picture that fails costs no result.
  template <typename Work>
  void Picture(const Work& work);
  void BuildOverviews(const std::wstring& file);
  /// Lets the finished file tell how it was made.
  void TellOrigin(const std::wstring& file, const MatchTargets& targets);
  /// Of each band, as it was written, or, where the format may change what is written, as it reads.
  std::vector<std::string> Checksums(const std::wstring& file) const;

  const FuseRequest& m_options;
  RunLog& m_log;
  Notices& m_notices;
  RunProgress& m_progress;
  CheckedRequest m_checked;
  std::wstring m_output;
  platform::PendingOutput m_pending;
  std::unique_ptr<Quicklook> m_quicklook;  ///< null where none is asked for
  PixelDataType m_type = PDT_UNKNOWN;
  bool m_masks = false;
  FuseReport m_found;  ///< what is known of the report before there is an output
  std::shared_ptr<const platform::RasterDescription> m_description;
  std::shared_ptr<platform::WrittenRaster> m_written;
  std::unique_ptr<OutputNotes> m_notes;  ///< null where the output is not to tell
  ModelFacts m_facts;
};

}  // namespace fusion
