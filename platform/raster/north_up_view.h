#pragma once

class GDALDataset;

namespace platform {

/// True where the georeference is not a plain grid: rotated, ground control points or RPC without a geotransform. A
/// south-up or mirrored grid is plain.
bool NeedsNorthUpView(GDALDataset& dataset);

/// A north-up view that owns the dataset: nearest neighbour, so that no value is invented, with the same bands and
/// pixel types. Pixels outside the image carry the declared no-data value; where none is declared they are 0, and 0
/// becomes the view's no-data value, so that they count nowhere. Null, and the dataset released, when it cannot be
/// made.
GDALDataset* MakeNorthUpView(GDALDataset* dataset);

}  // namespace platform
