#pragma once

#include <functional>
#include <vector>

#include "platform/raster/raster_source.h"
#include "quality/image.h"

namespace fusion {

/// A rectangle of a raster's bands in fewer pixels, each the mean of those under it, of some rows of them where they
/// are many. Samples without data are left out; NaN where there is nothing else. Reads row after row, so that memory
/// does not grow with the image. Throws RunFailure after a failed read.
/// @param width, height of the answer, at most those of the rectangle
/// @param row is called with each row that was read, of the first band: its place and its samples
quality::Image ReducedImage(const CRasterSource& source, const std::vector<int>& bands, const CRect& rect, int width,
                            int height, const std::function<void(int y, const std::vector<double>& samples)>& row = {});

/// An image at a position between its samples (a whole number is a sample's centre), bilinear; what has no data is left
/// out. NaN outside and without data.
double Sampled(const quality::Image& image, std::size_t band, double x, double y);

}  // namespace fusion
