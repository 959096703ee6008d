#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "runs/report_images.h"
#include "runs/scene_views.h"

namespace fusion {

/// A part of the scene, as pan, the multispectral image and the fused images show it.
struct ReportView {
  std::string title;
  CRect rect;      ///< of pan's pixels
  int width = 0;   ///< of the pictures
  int height = 0;  ///< likewise
  /// The bytes of JPEG files: pan, the multispectral image, the images of the frame.
  std::vector<std::string> pictures;
};

/// What is shown of the fused images that cover the same pixels of pan.
struct ReportFrame {
  CRect rect;                       ///< of pan's pixels
  std::vector<std::size_t> images;  ///< counted from 0
  std::vector<bool> onBandScale;    ///< of them: whether they are shown in the stretch of the multispectral image
  std::vector<ReportView> views;    ///< the whole, then details at full resolution
};

/// Draws all of it, in all about so many bytes at most.
/// Throws RunFailure.
std::vector<ReportFrame> DrawFrames(SceneViews& scene, const std::vector<FusedSource>& images, std::size_t mostBytes);

}  // namespace fusion
