#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/raster/raster_types.h"
#include "platform/system/export.h"
#include "platform/validity/no_data_rule.h"

class CBaseProgress;
class CRasterSource;

namespace platform {
struct WindowGrid;
}

/// One band of an open raster. Bands belong to their CRasterSource and live as long as it is open.
class FUSION_API CRasterBand {
 public:
  CRasterBand(CRasterSource* source, int index);
  CRasterBand(const CRasterBand&) = delete;
  CRasterBand& operator=(const CRasterBand&) = delete;

  /// Reads a pixel rectangle into a buffer of bufferWidth x bufferHeight elements of the given type.
  /// Spacings are in bytes, 0 means packed. Answers 0 for success; a rectangle that leaves the raster, or is empty or
  /// inverted, and a buffer of another size than the rectangle are failures.
  int ReadBlock(int left, int top, int width, int height, void* buffer, int bufferWidth, int bufferHeight,
                PixelDataType type, int pixelSpace = 0, int lineSpace = 0);
  /// Reads a rectangle as packed doubles, as ReadBlock does, and tells whether a masking raster answered NaN for any.
  int ReadSamples(const CRect& rect, double* values, bool& gaps);
  /// The opposite of ReadBlock, under the same rules.
  int WriteBlock(int left, int top, int width, int height, const void* buffer, int bufferWidth, int bufferHeight,
                 PixelDataType type, int pixelSpace = 0, int lineSpace = 0);

  PixelDataType GetRasterDataType() const;
  /// Native block size in pixels.
  int GetBlockXSize() const;
  int GetBlockYSize() const;
  int GetWidth() const;
  int GetHeight() const;

  /// What the band shows, in words; empty where the file does not say.
  std::wstring GetDescription() const;

  bool IsHaveNoData() const;
  /// The declared no-data value, 0 where there is none.
  double GetNoDataValue() const;
  /// True for the declared value: a NaN equals a NaN, a 32-bit float band compares in float.
  bool IsNoData(double value) const;
  /// The same question in a form that loops can keep.
  platform::NoDataRule GetNoDataRule() const;

  /// Whether the band is the dataset's opacity, no data of its own.
  bool IsAlpha() const;
  /// Whether a mask band or another band's alpha says which samples are valid.
  bool HasMask() const;
  /// For CRasterSource, which sets all its bands and knows whether HasMask is true.
  void SetMaskNoData(bool mask, bool hasMask);
  void DeclareNoData(double value);
  /// Whether reads may answer NaN for samples that are not valid, see CRasterSource::SetMaskNoData. No sample is looked
  /// at.
  bool MayHoldGaps() const;

  /// Exact figures over the valid pixels (not no-data, not NaN, not infinite), population standard deviation, one
  /// streaming pass. The reporter is asked whether to go on and never stepped. False and zeros without a valid pixel,
  /// after a failed read or a cancellation. Leaves no sidecar file.
  bool ComputeStatics(double* minimum, double* maximum, double* mean, double* stdDev, bool approximate,
                      CBaseProgress* progress);
  /// Whether any pixel is valid; stops reading at the first one.
  bool HasValidPixel();
  bool ComputeMinMax(double* minimum, double* maximum, bool approximate);

 private:
  /// Hands the samples of so many windows to visit(window, values, count), until it answers false. pieceAt tells which:
  /// a list of all of a large image would be large itself. False after a failed read.
  template <typename PieceAt, typename Visit>
  bool ForEachWindow(const platform::WindowGrid& windows, std::int64_t count, const PieceAt& pieceAt,
                     const Visit& visit);
  /// Folds what reduce(values, count) makes of one window after another, those that the source's survey says, until
  /// goesOn answers false. False after a failed read.
  template <typename Part, typename Reduce, typename Fold, typename GoesOn>
  bool FoldWindows(const char* name, bool& pending, const Reduce& reduce, const Fold& fold, const GoesOn& goesOn);
  int Transfer(bool write, const CRect& rect, void* buffer, int bufferWidth, int bufferHeight, PixelDataType type,
               int pixelSpace, int lineSpace);
  bool ClearMasked(const CRect& rect, double* values, bool& gaps);
  bool WriteStrips(const CRect& rect, void* buffer, PixelDataType type, int pixelSpace, int lineSpace);
  bool ReadStrips(const CRect& rect, void* buffer, PixelDataType type, int pixelSpace, int lineSpace);
  bool ReadSignedBytes(const CRect& rect, void* buffer, PixelDataType type, int pixelSpace, int lineSpace);

  CRasterSource* m_pSource;
  int m_nIndex;
  bool m_bSignedBytes;  ///< 8-bit samples with a sign, presented as 16-bit ones, read only
  // Looked up once, so that they can be asked for while another thread reads.
  PixelDataType m_eType = PDT_UNKNOWN;
  int m_nBlockXSize = 0;
  int m_nBlockYSize = 0;
  bool m_bStrips = false;  ///< rows of this band lie in strips of their own that may be written past the block cache
  bool m_bPlainStrips = false;  ///< and they are not compressed
  platform::NoDataRule m_noData;
  bool m_bGaps = false;  ///< masked, and there may be something to mask,
  bool m_bMask = false;  ///< by more than its value
};
