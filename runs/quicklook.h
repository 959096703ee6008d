#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/raster/pending_output.h"
#include "runs/fuse.h"
#include "runs/picture.h"

namespace fusion {

class RunProgress;

/// A picture of a fusion: pan, the upsampled multispectral image and the result beside each other, the whole image
/// above and a detail below, where pan shows most.
class Quicklook {
 public:
  /// Throws a usage error where the request's picture cannot be made, whatever is in it.
  /// @param output that the same run writes; null: none
  Quicklook(const FuseRequest& request, const std::vector<std::wstring>& inputs, const platform::PendingOutput& output);

  /// @param fused the result; @param bands the multispectral bands that it is of, counted from 0
  /// @param onBandScale whether its values are like those of the multispectral image, so that one stretch suits both
  /// Throws RunFailure.
  void Draw(const std::wstring& fused, const std::string& method, const std::vector<int>& bands, bool onBandScale,
            RunProgress& progress);
  /// Writes what was drawn. Throws RunFailure.
  void Save();

 private:
  const FuseRequest& m_request;
  std::wstring m_file;
  platform::PendingOutput m_pending;
  std::unique_ptr<Picture> m_picture;
};

}  // namespace fusion
