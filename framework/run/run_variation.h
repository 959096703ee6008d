#pragma once

#include <functional>
#include <vector>

#include "framework/fusion_block.h"
#include "framework/run/block_buffers.h"
#include "platform/raster/raster_source.h"

namespace fusion {

/// Where one algorithm's run differs from the common one. Empty functions mean the common way.
struct RunVariation {
  const char* logFile = "Fusion";
  int logLine = 401;
  const char* logFunction = "CFusion::Process";
  /// Opens the inputs and creates the output, in place of ConfigDstRaster. False with the error state set.
  std::function<bool(CRasterSource& pan, CRasterSource& ms, CRasterSource& dst, std::vector<int>& bands, CRect& rect)>
      configure;
  /// A second image, opened by configure, that is read over the same rectangle and band as the pan image while open.
  CRasterSource* detailSource = nullptr;
  /// What the blocks hold in place of the bands' own samples. One for the detail block stands for a second image: it
  /// reads from the pan band.
  BandBuffers::ReadSamples readPan;
  BandBuffers::ReadSamples readDetail;
  BandBuffers::ReadSamples readMs;
  /// Changes a block right after it was read, on the thread that read it; the index is the place in the band list, -1
  /// for the pan block.
  BandBuffers::AfterRead afterRead;
  /// Whether a failed multispectral read gets the message and the report of a failed pan read.
  bool reportsMsRead = false;
  /// The kernel, in place of AlgorithmProcess.
  std::function<void**(const FusionBlock& block)> kernel;
  /// Work on the finished output of a successful run that has a progress reporter, before Finish.
  std::function<void()> beforeFinish;

  bool HasDetail() const { return readDetail || (detailSource && detailSource->IsOpen()); }
};

}  // namespace fusion
