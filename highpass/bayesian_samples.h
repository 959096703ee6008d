#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "highpass/pan_average.h"
#include "platform/raster/raster_source.h"

namespace fusion {

/// One batch of samples: the multispectral pixels of a tile that lie wholly on valid pan pixels and are valid, like
/// their eight neighbours, in all chosen bands. One column of count values for each quantity.
struct BayesianBatch {
  std::int64_t count;
  const std::vector<const double*>& bands;    ///< the pixel's values
  const std::vector<const double*>& details;  ///< the same less the mean over 3 x 3 pixels, edges repeated
  const double* pan;                          ///< the pan image averaged over the pixel
};

/// Streams the samples of a pan and a multispectral image in tiles, so that memory depends on no image's size.
class BayesianSamples {
 public:
  /// @param bands chosen bands of ms
  /// @param readAhead collect each tile on another thread while the one before it is looked at
  BayesianSamples(const CRasterSource& ms, std::vector<CRasterBand*> bands, PanAverage& pan, bool readAhead);

  int TileCount() const { return m_tiles.Count(); }
  /// Calls visit for every tile, with or without a sample, until it answers false. False after a failed read.
  bool ForEachTile(const std::function<bool(const BayesianBatch&)>& visit);

 private:
  /// The samples of one tile.
  struct Samples {
    std::int64_t count = 0;
    std::vector<std::vector<double>> columns;  ///< bands, details, pan
    std::vector<const double*> bandColumns;
    std::vector<const double*> detailColumns;
  };

  bool Collect(int tile, Samples& samples);
  /// Pan averaged over the pixels of a tile; null after a failed read. For as many tiles as fit into bounded memory the
  /// averages are kept for the next pass, since they are most of the work.
  const std::vector<double>* Averages(int tile);
  void CollectRow(const CRect& tile, const double* averages, const CRect& read, int row, Samples& samples);
  void DropInvalid(int count, Samples& samples) const;

  std::vector<CRasterBand*> m_bands;
  std::vector<double> m_noData;
  PanAverage& m_pan;
  bool m_readAhead;
  BlockGrid m_tiles;
  std::vector<std::vector<double>> m_kept;  ///< averages of each tile, empty where they are not kept
  std::size_t m_keptCount = 0;
  BandBuffers m_buffers;
  Samples m_samples[2];  ///< one tile is collected while the other is looked at
  std::vector<double> m_sums;
  std::vector<unsigned char> m_valid;
};

}  // namespace fusion
