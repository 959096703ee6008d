#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "platform/raster/raster_source.h"
#include "platform/system/task_queue.h"

namespace fusion {

/// The blocks that cover a rectangle, row by row.
struct BlockGrid {
  int width;
  int height;
  int blockWidth;
  int blockHeight;
  int left = 0;  ///< of the rectangle
  int top = 0;
  /// Of so many rows each row of blocks takes some, from here or there in them, so that nothing that repeats is always
  /// met or always missed; 0: all.
  int apart = 0;

  int Across() const { return blockWidth > 0 ? Pieces(width, blockWidth) : 0; }
  int Down() const { return blockHeight > 0 ? Pieces(height, Step()) : 0; }
  int Step() const { return apart > 0 ? apart : blockHeight; }
  int Count() const { return Across() * Down(); }
  /// How many pieces cover a size; without adding to it, since it may be the largest int.
  static int Pieces(int size, int piece) { return size > 0 ? (size - 1) / piece + 1 : 0; }
  /// Block in the given block column and block row, clipped to the rectangle.
  CRect Block(int column, int row) const;
  /// The block that follows one of the grid's blocks, empty behind the last.
  CRect After(const CRect& block) const;
  /// Calls visit with every block, row by row, until it answers false; false then.
  template <typename Visit>
  bool ForEach(const Visit& visit) const {
    for (int row = 0; row < Down(); ++row) {
      for (int column = 0; column < Across(); ++column) {
        if (!visit(Block(column, row))) return false;
      }
    }
    return true;
  }
  /// The same of some of the blocks, as they are counted: visit(i, block).
  template <typename Visit>
  bool ForEachOf(const std::vector<std::int64_t>& blocks, const Visit& visit) const {
    return std::all_of(blocks.begin(), blocks.end(), [&](std::int64_t i) {
      return visit(i, Block(static_cast<int>(i % Across()), static_cast<int>(i / Across())));
    });
  }
  /// Block with other steps than the block's own size, clipped to the rectangle.
  CRect Cell(int column, int row, int stepX, int stepY) const;
};

/// The rows of a block, counted from its top, in the pieces that sums over it are made of. They depend on its width
/// alone, so that sums do not depend on who takes them.
BlockGrid PiecesOf(const CRect& block);

/// A rectangle shifted by whole pixels.
CRect Shift(const CRect& rect, int dx, int dy);

/// Rows and columns that kernels reach beyond an image: two from its own samples, one more from where a position may at
/// most lie beside it.
constexpr int kRepeatedEdge = 3;
/// The rectangle of a raster with so many rows and columns more where it touches the raster's edges; an empty one stays
/// empty.
CRect BeyondEdges(const CRect& rect, int rasterWidth, int rasterHeight);

/// A set of equally large band buffers that grow when a rectangle needs more and never shrink. They are not
/// initialised, but the elements behind a rectangle that was read are 0 for at least its width + 2: a nearest-neighbour
/// position at the far edge reads one row and one column past it.
class BandBuffers {
 public:
  using AfterRead = std::function<void(CRasterBand& band, int i, double* values, std::int64_t count)>;

  /// Fills values with a rectangle for buffer i, as CRasterBand::ReadSamples does; false after a failed read.
  using ReadSamples = std::function<bool(CRasterBand& band, int i, const CRect& rect, double* values, bool& gaps)>;

  BandBuffers(std::size_t count, std::int64_t capacity);
  BandBuffers(const BandBuffers&) = delete;
  BandBuffers& operator=(const BandBuffers&) = delete;

  std::size_t Count() const { return m_buffers.size(); }
  double* operator[](std::size_t i) const { return m_pointers[i]; }
  /// One pointer per buffer.
  double** Pointers() { return m_pointers.data(); }

  /// Whether the rectangle that Read last read into each buffer has samples without data, which are NaN; 0 or 1. Only
  /// sources that mask (CRasterSource::SetMaskNoData) are looked at.
  const unsigned char* Gaps() const { return m_gaps.data(); }

  /// Reads from now on in place of a band's own ReadSamples, on the thread that reads. Empty: the band's own.
  void SetReadSamples(ReadSamples readSamples) { m_readSamples = std::move(readSamples); }
  /// Called from now on with all that Read reads into buffer i, on the thread that reads it.
  void SetAfterRead(AfterRead afterRead) { m_afterRead = std::move(afterRead); }
  /// Lets Read and Expect take rectangles that reach beyond a band's raster: what lies there repeats the raster's edge.
  void RepeatEdges(bool repeats) { m_repeatsEdges = repeats; }
  /// Makes every buffer hold at least the rectangle.
  void Reserve(const CRect& rect);
  /// Reads a band's rectangle as doubles into buffer i; false for a null band or a failed read.
  bool Read(std::size_t i, CRasterBand* band, const CRect& rect);
  /// Begins on another thread what the next Read(i, band, rect) will ask for. A Read of anything else just reads.
  /// The queue must be gone before the buffers are: its destructor waits for what is read into them.
  void Expect(std::size_t i, CRasterBand* band, const CRect& rect, platform::TaskQueue& reader);
  /// The same where rectangles follow each other downwards: rows that the buffer already holds from the last such read
  /// of the same band are kept.
  bool ReadOn(std::size_t i, CRasterBand* band, const CRect& rect);

 private:
  using Buffer = std::unique_ptr<double[]>;
  /// What is being read ahead, or has been, into a buffer's spare one.
  struct Expected {
    Buffer values;
    CRasterBand* band = nullptr;  ///< null: nothing
    CRect rect;
    bool read = false;
    unsigned char gaps = 0;
  };

  Buffer NewBuffer() const;
  void Allocate();
  bool Fits(const CRect& rect) const;
  bool ReadInto(double* values, std::size_t i, CRasterBand& band, const CRect& rect, unsigned char& gaps) const;
  bool TakeExpected(std::size_t i, const CRasterBand* band, const CRect& rect, bool& read);
  void WaitForReader();

  ReadSamples m_readSamples;
  AfterRead m_afterRead;
  bool m_repeatsEdges = false;
  std::vector<Buffer> m_buffers;
  std::vector<Expected> m_expected;
  platform::TaskQueue* m_reader = nullptr;
  std::vector<double*> m_pointers;
  std::vector<CRect> m_held;  ///< what ReadOn read last into each buffer, empty where it does not stand any more
  std::vector<unsigned char> m_gaps;
  std::int64_t m_capacity;
  std::int64_t m_slack = 0;
};

}  // namespace fusion
