#pragma once

#include <functional>
#include <string>
#include <vector>

#include "framework/fusion_param.h"
#include "platform/algorithm/base_algorithm.h"

namespace fusion {

/// A pipeline in the log.
struct PipelineLog {
  const char* file;
  int line;
  const char* function;
  const wchar_t* begin;
  const wchar_t* end;
};

/// A stage as a pipeline numbers it. Stages that are alternatives share a number.
struct PipelineStage {
  const wchar_t* title;  ///< published, without the number
  const char* name;      ///< of platform::stages
  int number;
  int count;
};

/// What the file-to-file pipelines share: runs their stages one after the other, keeps the temporary files between
/// them, and clears up on every path. Ends with the object.
class StagePipeline {
 public:
  /// @param param the run's record; while the pipeline lives its multispectral file may be an intermediate one
  /// @param outer the algorithm that runs the pipeline
  StagePipeline(HpfFusionParam& param, const CBaseAlgorithm& outer, const PipelineLog& log);
  ~StagePipeline();
  StagePipeline(const StagePipeline&) = delete;
  StagePipeline& operator=(const StagePipeline&) = delete;

  /// The whole run: announces it, runs the stages, removes the temporary files, builds the output's pyramids. False
  /// where the stages answer false or the output is one of the inputs.
  bool Execute(const std::function<bool()>& stages);
  /// Whether the pipeline or one of its stages failed, and how.
  bool HasFailed() const { return m_failed; }
  int ErrorType() const { return m_errorType; }
  const std::wstring& ErrorMessage() const { return m_errorMessage; }

  /// Runs a stage inside the run and takes over its error. A stage that leaves a message has failed even where
  /// its error type is 0.
  bool Run(CBaseAlgorithm& stage);
  /// A fresh file beside the output, removed at the end. False, with the failure kept, where there can be none.
  bool MakeTempFile(std::wstring& file);
  /// A stage's record: the run's common settings, what the stage is, input and output.
  void FillRecord(AlgorithmParam& record, const PipelineStage& stage, const std::wstring& input,
                  const std::wstring& output) const;
  /// The record of the fusion stage: what both fusions take over from the run's record.
  /// @param isLast whether it writes the run's output; a stage behind it would take its statistics from the whole scene
  HpfFusionParam FusionRecord(const PipelineStage& stage, const std::wstring& pan, const std::wstring& second,
                              const std::wstring& output, bool isLast) const;
  /// Where the run is a part of a scene, the last stage cuts that part out of its input. False, with the failure kept,
  /// where its place cannot be found.
  bool CutPart(AlgorithmParam& record);

  // The stages that several pipelines have. Intermediate files are 32-bit float GeoTIFFs.

  /// Filters the pan band into a temporary file.
  bool Convolve(const PipelineStage& which, const FilterDescription& filter, std::wstring& output);
  /// Mixes near infrared into green in a temporary file, which becomes the run's multispectral file. Nothing where the
  /// run does not want it.
  bool MakeGreen(const PipelineStage& which);
  /// Adjusts the level of a file into the run's output.
  bool AdjustLevel(const PipelineStage& which, const std::wstring& input, PixelDataType type, double ratio);

 private:
  bool Fail(int type, const std::wstring& message);
  void RemoveTempFiles();
  void BuildPyramids();
  void WriteLog(const wchar_t* text) const;

  HpfFusionParam& m_param;
  const CBaseAlgorithm& m_outer;
  CBaseProgress* m_progress;
  PipelineLog m_log;
  std::wstring m_msFile;  ///< the caller's
  std::vector<std::wstring> m_tempFiles;
  bool m_failed = false;
  int m_errorType = ERR_NONE;
  std::wstring m_errorMessage;
};

}  // namespace fusion
