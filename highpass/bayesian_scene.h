#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "estimation/pan_grid.h"
#include "estimation/registration.h"
#include "framework/fusion_param.h"
#include "framework/run/block_buffers.h"
#include "platform/raster/raster_source.h"
#include "platform/system/task_queue.h"

namespace fusion {

/// Some rows of multispectral pixels across the area of an estimation.
struct BayesianStrip {
  CRect rect;                               ///< in the multispectral image
  bool counts = true;                       ///< whether the moments are taken of it
  bool hasBands = true;                     ///< whether the bands were read: where they are needed
  std::vector<std::vector<double>> images;  ///< the bands and pan low-passed for the moments; NaN without data
  std::vector<double> lowPass;              ///< pan low-passed, likewise
};

/// The two images of an estimation and the ground that they share.
class BayesianScene {
 public:
  struct Failure {
    int type;
    std::wstring message;
  };

  /// @param overlapped read ahead, on threads
  /// @param workers who low-pass pan; null: the caller alone
  BayesianScene(const BayesianFusionParam& param, bool overlapped, platform::Workers* workers);

  /// Opens the images. @param panArea look at a part of the pan image only; empty: at all
  std::optional<Failure> Open(const CRect& panArea);

  int BandCount() const { return static_cast<int>(m_bands.size()); }
  const std::vector<int>& Bands() const { return m_chosen; }
  const PanGrid& Grid() const { return *m_grid; }
  /// What both images have in common, in multispectral pixels; empty where that is nothing.
  const CRect& Common() const { return m_common; }
  /// The same in pan pixels.
  const CRect& CommonInPan() const { return m_commonInPan; }
  /// The common ground and what the kernels of a run may read around it.
  const CRect& Area() const { return m_area; }
  CRasterSource& Ms() { return m_ms; }
  PixelDataType PanType() const { return m_pan.GetRasterBand(m_param.m_nPanBand)->GetRasterDataType(); }
  /// The terms of the multispectral image's georeference when it is moved by pan pixels.
  platform::Affine Moved(double shiftX, double shiftY) const;

  /// What the search for blur and shift looks at. False after a failed read.
  bool ReadTiles(std::vector<RegistrationTile>& tiles);
  int StripCount() const { return m_strips.Count(); }
  /// Whether the moments are taken of some strips only, spread evenly: more than a million pixels tell no more.
  bool Samples() const { return m_countedStrips < StripCount(); }
  /// Whether the moments are taken of a strip.
  bool Counts(int strip) const;
  /// The strips that a run over a part of the pan image reads, whatever it is moved by.
  bool IsRead(int strip, const CRect& panRect, const RegistrationResult& found);
  /// What strips are for: moments, the low-passed pan, or both.
  void SetUse(bool moments, bool lowPass) {
    m_takesMoments = moments;
    m_takesLowPass = lowPass;
  }
  /// Calls use with one of the strips after another until it answers false. False after a failed read.
  /// @param restoring how much wider than the blur pan is low-passed for the moments
  bool ForEachStrip(const std::vector<int>& strips, const RegistrationResult& found, double restoring,
                    const std::function<bool(int strip, BayesianStrip&)>& use);

 private:
  /// What pan is low-passed by at some multispectral pixels: for the model, and wider for the moments.
  struct Filters {
    PanLowPass plain;
    PanLowPass restored;
    CRect Reads() const;  ///< pan pixels
  };

  void SettleArea(const CRect& panArea);
  bool ReadBands(const CRect& rect, std::vector<std::vector<double>>& bands);
  bool ReadPan(const CRect& rect);
  /// The multispectral pixels under a rectangle of pan, clipped to the image.
  CRect MsUnder(const CRect& panRect);
  bool LoadStrip(int i, int next, const RegistrationResult& found, double restoring, BayesianStrip& strip);
  /// @param next the strip to come; -1 for none
  bool LowPass(int i, int next, const RegistrationResult& found, double restoring, BayesianStrip& strip);
  Filters FiltersOf(const CRect& part, const RegistrationResult& found, double restoring) const;

  const BayesianFusionParam& m_param;
  bool m_overlapped;
  platform::Workers* m_workers;
  CRasterSource m_pan;
  CRasterSource m_ms;
  std::vector<int> m_chosen;
  std::vector<CRasterBand*> m_bands;
  std::optional<PanGrid> m_grid;
  CRect m_common;
  CRect m_commonInPan;
  CRect m_area;
  BlockGrid m_strips{0, 0, 0, 0};
  int m_countedStrips = 0;
  bool m_takesMoments = true;
  bool m_takesLowPass = true;
  BandBuffers m_buffer;            ///< what is read of pan, and of the bands, one rectangle at a time
  std::optional<Filters> m_ahead;  ///< of the strip whose pan is being read ahead
  platform::TaskQueue m_reader;
};

}  // namespace fusion
