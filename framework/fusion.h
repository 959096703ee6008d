#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "framework/fusion_block.h"
#include "framework/fusion_param.h"
#include "framework/match_targets.h"
#include "framework/row_method.h"
#include "framework/shared_array.h"
#include "platform/algorithm/base_algorithm.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/reproject.h"

namespace fusion {
class Run;
class RowSource;
class SampleRange;
struct RowGeometry;
struct RunVariation;
}  // namespace fusion

namespace platform {
class SurveyPass;
}

/// Base of every fusion algorithm: opens the pan, multispectral and output rasters, walks the output in blocks of
/// whole pan rows, reads pan and multispectral pixels for each, lets AlgorithmProcess fuse them and writes the result.
///
/// Use: construct a derived class with a parameter record, SetProgress if wanted, call Process once, read
/// GetLastErrorType (LastErrorType, or what an algorithm's own step answered) and GetLastErrorMessage.
class FUSION_API CFusion : public CBaseAlgorithm {
 public:
  explicit CFusion(FusionParam* param);
  ~CFusion() override;
  /// Copies share the statistics arrays.
  CFusion(const CFusion&);
  CFusion& operator=(const CFusion&);

  void Process() override;
  /// Opens the inputs, settles band list, extent and georeference, creates the output. False with the error state set.
  virtual bool ConfigDstRaster(FusionParam* param, CRasterSource* pan, CRasterSource* ms, CRasterSource* dst,
                               std::vector<int>* msBands, CRect* dstRectInPan, CRasterAOI** aoi);
  /// Runs once before the block loop; non-zero ends the run.
  virtual GISError Preproccess();
  /// On entry the largest block wanted, on return the block size of the run.
  virtual void GetBlockSize(int& width, int& height);
  /// The multispectral pixels that a block of the output needs; false skips the block.
  virtual bool GetReadBufferRect(CRect* dstBlock, CRect* msRect);
  virtual GISError StartBolckProcess();  ///< before each block; non-zero ends the run as failed
  /// Fuses one block.
  /// @param pan pan pixels of the block, row-major, panRect's size
  /// @param panRect the block in pan pixel coordinates
  /// @param ms one array per multispectral band, row-major over msRect
  /// @param msRect the rectangle read from the multispectral image
  /// @param dstBlock the block in output pixel coordinates
  /// @param aoi null where the whole block is inside the area of interest, else asked with pan coordinates
  /// @return outBandCount buffers of the output's element type, made with new[] like the array that holds them, freed
  ///   by the caller; null when there is nothing to write, a null buffer skips its band
  virtual void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                                  PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) = 0;
  virtual void EndBolckProcess();  ///< after each block is written, before its step is told
  /// Runs once after the block loop; here the spectral matching of the temporary file into the output.
  virtual void EndProccess();

  /// Writes each band's buffer over a rectangle of the output in the band's own type; GIS_FAILED at the first failure.
  GISError WriteBlock(CRasterSource* dst, int bandCount, CRect* rect, void** bufs);

  /// One value per band at a position (sample coordinates: a whole number is a pixel centre) of the multispectral
  /// image, by the parameter record's method; an unknown method leaves out untouched. Always true.
  /// The three methods are the definition that the row kernel reproduces bit for bit.
  bool Resample(double x, double y, const double** bands, int bandCount, CRect* rect, double* out);
  void NearestNeighbor(const double** bands, int bandCount, CRect* rect, double x, double y, double* out);
  void Bilinear(const double** bands, int bandCount, CRect* rect, double x, double y, double* out);
  /// Cubic convolution with parameter -1 (Keys, Cubic convolution interpolation, 1981).
  void Bicubic(const double** bands, int bandCount, CRect* rect, double x, double y, double* out);

  /// Brings the result of the next runs to target moments, in place of the record's spectral matching: the blocks are
  /// fused twice, once for the statistics and once for the output. A run with another number of bands fails.
  void MatchBlocks(fusion::MatchTargets targets);
  /// Ends the next runs with a level adjustment, behind the matching where they match: the blocks are fused once more
  /// for every 16 bits of the type that is adjusted.
  void LevelBlocks(const fusion::LevelTargets& targets) { m_levelTargets = targets; }
  /// Stretches the result of the next runs to the output type's range from its own range, of all bands together, in
  /// place of the source range: the blocks are fused twice, too. Without effect on runs that match or level.
  void StretchOwnRange() { m_stretchesOwnRange = true; }
  /// What a run that matched robustly has found.
  const fusion::MatchOutliers& GetMatchOutliers() const { return m_matchOutliers; }

  /// The overlap of both images in pan pixels. False when there is none.
  bool GetOutRect(CRasterSource* pan, CRasterSource* ms, CRect& rect, bool& needReproject, bool strict);

 protected:
  /// The run that every fusion goes through, block by block.
  void RunBlocks(const fusion::RunVariation& variation);
  /// Reads the run's blocks one after another and shows each to the visitor: what a Preproccess needs that computes
  /// statistics of its own. Blocks outside the area of interest are not shown. Of a run that is a part of a scene all
  /// blocks of the scene come. False, with the error state set, after a failed read or where StartBolckProcess ends it.
  /// @param stage what the reporter learns of it, beside its title
  bool VisitBlocks(const platform::Stage& stage, const std::wstring& title,
                   const std::function<void(const fusion::FusionBlock&)>& visit);
  /// The same of a stage without a name.
  bool VisitBlocks(const std::wstring& title, const std::function<void(const fusion::FusionBlock&)>& visit) {
    return VisitBlocks({}, title, visit);
  }

  /// The same where a survey may say which of the blocks are to come: those of the pass.
  bool VisitBlocks(const platform::Stage& stage, const std::wstring& title, const platform::SurveyPass& pass,
                   const std::function<void(std::int64_t block, const fusion::FusionBlock&)>& visit);
  /// A pass over the blocks.
  platform::SurveyPass BlockPass(const std::string& name);
  /// Whether the run gathers a survey in which something that it has asked for is pending, so that what depends on it
  /// has to wait.
  bool AwaitsSurvey() const;

  /// The two halves of ConfigDstRaster, for configurations that open more than two inputs.
  bool OpenInput(const FusionParam& param, CRasterSource* source, const std::wstring& path);
  bool ConfigOpenedRasters(FusionParam* param, CRasterSource* pan, CRasterSource* ms, CRasterSource* dst,
                           std::vector<int>* msBands, CRect* dstRectInPan, CRasterAOI** aoi);
  /// A band of a source; null, with the error state of a failed read, where it has no such band.
  CRasterBand* ExistingBand(CRasterSource& source, int index);
  /// A band's statistics; zeros where they cannot be computed. False, with the error state set, where the user
  /// cancelled, and where IsMeasured says so.
  bool MeasureBand(CRasterBand& band, double& minimum, double& maximum, double& mean, double& stdDev);
  /// False, with the error state of a failed read, where a band's figures are missing though it has valid pixels, and
  /// the run needs them.
  /// @param measured whether they are there
  bool IsMeasured(bool measured, CRasterBand& band);
  /// Whether the first bands of both inputs declare a no-data value.
  bool BothDeclareNoData() const;
  /// Whether there is a run whose rows can be fused into a type.
  bool CanFuseRows(PixelDataType outType) const;
  /// Resamples, computes, masks and converts a block: all of an AlgorithmProcess but the arithmetic.
  void** FuseRows(const fusion::FusionBlock& block, const fusion::RowPolicy& policy,
                  const fusion::RowArithmetic& arithmetic);
  /// The rows of a block with the multispectral bands resampled, for statistics passes.
  fusion::RowSource MakeRowSource(const fusion::FusionBlock& block);

  FusionParam m_param;
  /// Where the algorithm's positions in the multispectral image start. Data, not an operation: the slots of the virtual
  /// ones are published.
  fusion::PositionPolicy m_positions;
  // The run owns what the next five point to; they are null without one.
  CRasterSource* m_pPanSrc = nullptr;
  CRasterSource* m_pMSSrc = nullptr;
  CRasterSource* m_pDstSrc = nullptr;
  CReproject* m_pReproject = nullptr;
  CRasterAOI* m_pAOI = nullptr;
  std::wstring m_strTempFile;
  SharedArray m_pMeans;    ///< one per selected multispectral band, null until computed
  SharedArray m_pStdDevs;  ///< like m_pMeans

 private:
  friend class fusion::Run;

  bool CreateOutput(FusionParam* param, CRasterSource* pan, CRasterSource* dst, const CRect& rect);
  /// Lets computed values fill the type.
  void SetOutRange(PixelDataType type);
  fusion::RowGeometry Geometry(const CRect& panRect, const CRect& dstBlock) const;
  std::shared_ptr<const fusion::SampleRange> RangeOf(const fusion::FusionBlock& block) const;

  fusion::Run* m_run = nullptr;  ///< not owned; null without one
  std::optional<fusion::MatchTargets> m_matchTargets;
  std::optional<fusion::LevelTargets> m_levelTargets;
  fusion::MatchOutliers m_matchOutliers;
  bool m_stretchesOwnRange = false;
};
