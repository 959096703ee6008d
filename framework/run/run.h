#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "framework/row_kernel.h"
#include "framework/run/block_set.h"
#include "framework/run/run_variation.h"
#include "platform/algorithm/stage.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/reproject.h"
#include "platform/statistics/survey.h"
#include "platform/validity/raster_aoi.h"

class CFusion;

namespace fusion {

/// One run of a fusion. It owns what the run needs (the rasters, the area, the reprojection, the buffers) and takes the
/// blocks through the fusion's published operations in their order. The fusion's own pointers show what is here.
class Run {
 public:
  Run(CFusion& fusion, const RunVariation& variation);
  ~Run();
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  /// The whole run.
  void Execute();

  /// Everything before the first block. False, with the outcome in the fusion, where the run ends here.
  bool Prepare();
  /// The run's blocks, once prepared.
  BlockSet& Blocks() { return *m_blocks; }
  /// Reads one block of the output: everything before the kernel.
  LoadResult Load(BlockSet& blocks, const CRect& dstBlock);
  /// See CFusion::VisitBlocks.
  bool Visit(const platform::Stage& stage, const std::wstring& title, const platform::SurveyPass& pass,
             const std::function<void(std::int64_t block, const FusionBlock&)>& visit);
  /// How many blocks there are to visit.
  std::int64_t SceneBlocks() { return MakeSceneGrid().Count(); }
  /// See CFusion::AwaitsSurvey.
  bool AwaitsSurvey() const;

  /// Makes the run a part of a run over a larger area.
  /// @param rect in pan pixels, toGround from the pixels of a run over it
  void SetScene(const CRect& rect, const platform::Affine& toGround);
  /// What the run is a part of, in pan pixels; empty where it stands for itself.
  const CRect& Scene() const { return m_scene; }
  const platform::Affine& SceneToGround() const { return m_sceneToGround; }
  /// Where the blocks' buffers come from; null before the first.
  BlockStore* Store() const { return m_blocks ? &m_blocks->store : nullptr; }
  /// Of the block at hand.
  const BlockGaps& Gaps() const { return m_gaps; }

 private:
  bool Configure(std::vector<int>& bands, CRect& dstRectInPan);
  void DropArea();
  void DropReprojection();
  /// The output raster in blocks of GetBlockSize's size.
  BlockGrid MakeBlockGrid();
  /// The same blocks as low as the run asks for.
  BlockGrid Lower(BlockGrid grid, int fileBlock) const;
  /// The area that statistics passes go over, in the output raster's pixels, in blocks of whole rows: the output
  /// raster, or, where the run is a part of a scene, the whole of that, around the output.
  BlockGrid MakeSceneGrid();
  /// The blocks of a grid over the output, or over the whole scene, whose first pixel lies there in the pan image.
  std::unique_ptr<BlockSet> MakeBlocks(const BlockGrid& grid, const std::vector<int>& bands, const CRect& inPan) const;
  /// The run's matching, none without targets. False with the error state set where they do not fit the bands.
  bool PrepareMatching();
  void PrepareRange();
  /// Blocks that lie evenly in the rectangle of a grid, of about so many pixels in all as the matching's moments are to
  /// be taken from; none where that is nearly all.
  std::optional<BlockGrid> Sampled(BlockGrid grid, std::int64_t mostPixels) const;
  /// Begins to tell how many blocks are done.
  void BeginBlocks();
  /// Fuses blocks for the statistics of the result. False where the run ended before, or has to wait for a survey.
  bool Count();
  /// Turns from the statistics of the result to the result.
  void EndCounting();

  /// The band that the detail block is read from.
  CRasterBand* DetailBand() const;
  /// What kernels are to see of the multispectral image where a block needs a rectangle of it.
  CRect KernelRect(const CRect& msRect) const;
  /// Fuses every block of a grid, or those of a pass. False where the run ended before.
  bool Walk(const BlockGrid& grid, const platform::SurveyPass& pass);
  /// Leaves out the pixels of a block just read that have no data, where the run masks them.
  LoadResult MaskBlock(BlockSet& blocks);
  /// Begins to read the block that follows the one at hand, where the run overlaps.
  void ReadAhead(BlockSet& blocks);
  bool FuseAndWrite();
  bool StepProgress();
  /// Waits for a block that may be under way to the output. False, with the error state set and reported, when one
  /// failed.
  bool FinishWriting();
  /// Logged, not reported.
  void Cancel();

  void Abandon();
  /// The output's end, where the run may still fail or be cancelled.
  void CloseOutput();
  void Finish();

  CFusion& m_fusion;
  const RunVariation& m_variation;
  CRasterSource m_pan;
  CRasterSource m_ms;
  CRasterSource m_dst;
  std::unique_ptr<CRasterAOI> m_area;
  std::unique_ptr<CReproject> m_reproject;
  std::int64_t m_pendingBefore = 0;  ///< passes of the survey
  CRect m_scene;
  platform::Affine m_sceneToGround;
  BlockGaps m_gaps;
  std::unique_ptr<BlockSet> m_blocks;  ///< last, so that its threads end before what they use goes
};

}  // namespace fusion
