#pragma once

#include <any>
#include <functional>
#include <memory>
#include <vector>

#include "platform/algorithm/base_algorithm.h"

namespace platform {

class RowBuffer;

/// What a stage asks of the engine.
struct StagePlan {
  std::vector<int> bands;  ///< input bands to read, counted from 0
  int outBandCount = 0;
  PixelDataType outType = PDT_UNKNOWN;
  int halo = 0;                         ///< rows needed above and below the present one
  int scanCount = 0;                    ///< passes that Prepare makes with Scan, for the progress
  bool roundToNearest = false;          ///< integer types round, half up, instead of truncating
  bool useArea = false;                 ///< take heed of the area of interest: pixels outside it are written as 0
  const CRasterBand* noData = nullptr;  ///< the output declares this band's no-data value

  /// Fills one row of each output band.
  using RowWork = std::function<void(const RowBuffer& rows, int row, double* const* out)>;
  /// Makes work for a thread of its own, which gets some rows that follow one another. Where it is empty, or the run
  /// has one thread, ProcessRow gets them all.
  std::function<RowWork()> makeRowWork;
};

/// The one engine of all file-to-file stages: streams whole rows of a raster through a stage into a new raster on the
/// same grid, with bounded memory, progress, cancellation and error state. Where the record's m_rcProcess names a part
/// of the input only that part of the result is written; what is scanned beforehand is always the whole. A stage that
/// fails or is cancelled leaves no output.
class FUSION_API RowStage : public CBaseAlgorithm {
 public:
  ~RowStage() override;
  void Process() override;

 protected:
  /// A null record counts as an empty one.
  explicit RowStage(const AlgorithmParam* param);
  RowStage(const RowStage&);
  RowStage& operator=(const RowStage&);

  /// Checks the parameters and says what is needed. False with the error state set ends the run.
  virtual bool Configure(const CRasterSource& input, StagePlan& plan) = 0;
  /// Passes over the input that must come first. False with the error state set ends the run.
  virtual bool Prepare();
  /// Fills one row of each output band. Rows come in order from the top.
  virtual void ProcessRow(const RowBuffer& rows, int row, double* const* out) = 0;

  /// Plans one output band for each of the input's first bands, as many as the record says (0: all). False, with the
  /// error state set, when the input has fewer.
  bool PlanFirstBands(const CRasterSource& input, StagePlan& plan);

  /// One row of a scan: a row of every scanned band; inside is null where the whole row counts, else 0 marks the pixels
  /// outside the area of interest.
  using RowVisitor = std::function<void(const double* const* bands, const unsigned char* inside, int width)>;
  /// Shows every row to the visitor. False, with the error state set, after a failed read or a cancellation.
  bool Scan(const std::vector<int>& bands, const RowVisitor& visit);
  /// The same where what rows come to is put together of parts: look adds a row to a part, which begins empty, perhaps
  /// on another thread; fold takes the parts in the order of their rows.
  using RowLook =
      std::function<void(const double* const* bands, const unsigned char* inside, int width, std::any& part)>;
  bool ScanParts(const std::vector<int>& bands, const RowLook& look, const std::function<void(const std::any&)>& fold);

  AlgorithmParam m_param;

 private:
  struct Run;
  bool Execute(Run& run);
  bool Open(Run& run);
  /// Settles what is written. False, with the error state set, where the record's part lies off the input.
  bool ChoosePart(Run& run);
  bool CreateOutput(Run& run);
  /// @param geoTransform the input's; becomes the part's
  bool CreateRaster(Run& run, RasterDataFormat format, double geoTransform[6]) const;
  bool WriteRows(Run& run);
  /// Calls work(rows, area, first, count) for the chunks that lie in the area of interest.
  template <typename Work>
  bool ScanChunks(const std::vector<int>& bands, const Work& work);
  enum class ChunksEnd { kDone, kStopped, kReadFailed };
  /// Works through rows of the input, from top to bottom, in chunks. Stops where the work answers false or the reporter
  /// wants no more.
  ChunksEnd ForChunks(Run& run, const std::vector<int>& bands, int halo, int top, int bottom,
                      const std::function<bool(RowBuffer& rows, int first, int count)>& work);
  void FillChunk(Run& run, const RowBuffer& rows, int first, int count,
                 std::vector<std::vector<unsigned char>>& outRows);
  static bool WriteChunk(Run& run, const std::vector<std::vector<unsigned char>>& rows, int first, int count);

  Run* m_run = nullptr;  ///< set while Process runs
};

}  // namespace platform
