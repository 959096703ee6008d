#pragma once

#include <optional>
#include <vector>

#include "framework/match_targets.h"
#include "platform/algorithm/stored_row.h"
#include "platform/processing/band_level.h"
#include "platform/processing/moment_matching.h"
#include "platform/statistics/survey.h"
#include "platform/system/workers.h"

namespace fusion {

/// Brings fused blocks to target moments, adjusts their level, or both, on their way to the output. Every block comes
/// several times: to be counted, once for the moments and once or more for the level, EndCounting after each time, and
/// to be written. That is faster than keeping a floating-point copy of the whole result in between.
class BlockMatching {
 public:
  /// @param outType of the output raster
  /// @param masked 0 marks pixels without data in the fused blocks, and in the output
  /// @param workers who count and match rows; null: the caller alone
  BlockMatching(const std::optional<MatchTargets>& match, const std::optional<LevelTargets>& level, int bandCount,
                PixelDataType outType, bool masked, platform::Workers* workers);

  /// The type that the blocks are to be fused in.
  PixelDataType FusedType() const { return m_fusedType; }
  /// How often all blocks are still to be counted.
  int CountsToCome() const { return m_countsToCome; }
  bool IsCounting() const { return m_countsToCome > 0; }
  /// @param enough values of each band that moments are taken from
  /// @return false where there were fewer, and all blocks are to be counted once more
  bool EndCounting(std::int64_t enough = 0);
  MatchOutliers Outliers() const;

  /// Counts a block, which is a piece of a pass.
  /// @param bands one buffer of FusedType per band
  /// @param rect the block in the output raster
  /// @param inside one byte per pixel, 0 outside the area of interest; empty where all are inside
  void Count(void* const* bands, const CRect& rect, const std::vector<unsigned char>& inside,
             const platform::SurveyPass& pass, std::int64_t piece);
  /// Takes what a survey has of the count at hand, before EndCounting. False where that is pending.
  bool End(const platform::SurveyPass& pass);
  /// Writes a block. False after a failed write.
  bool Write(void* const* bands, const CRect& rect, const std::vector<unsigned char>& inside, CRasterSource& output);

 private:
  bool CountsMoments() const { return m_matching && !m_matches; }
  platform::MomentMatching::Part MomentsOf(void* const* bands, const CRect& rect, const unsigned char* inside) const;
  /// What the level adjustment has counted, of each band.
  using LevelParts = std::vector<platform::OrderStatistics::Part>;
  LevelParts LevelsOf(void* const* bands, const CRect& rect, const unsigned char* inside) const;
  static void AddLevels(const LevelParts& parts, std::vector<platform::BandLevel>& levels);
  /// Such as have counted nothing in the present pass.
  std::vector<platform::BandLevel> EmptyLevels() const;

  /// The row at hand of each band, and what a thread works on it with.
  struct Rows {
    std::vector<std::vector<double>> values;
    std::vector<double*> pointers;
    platform::MomentMatching::Room room;
    platform::RowConversion store;
    std::optional<platform::StoredRow> between;
  };
  Rows MakeRows(int width) const;
  void LoadRow(void* const* bands, std::ptrdiff_t at, int width, Rows& rows) const;
  /// Makes the row what it is before its level is adjusted.
  void MatchRow(Rows& rows, const unsigned char* inside, int width) const;

  PixelDataType m_outType;
  PixelDataType m_fusedType;
  bool m_masked;
  std::optional<MatchTargets> m_targets;
  int m_countsToCome = 0;
  std::optional<platform::MomentMatching> m_matching;
  bool m_matches = false;                        ///< the moments are counted
  std::optional<platform::StoredRow> m_between;  ///< from matching to level
  std::vector<platform::BandLevel> m_levels;     ///< one per band, none where the level stays
  platform::RowConversion m_store;
  std::size_t m_bandCount;
  platform::Workers* m_workers;
  std::vector<std::vector<unsigned char>> m_pixels;  ///< some rows of output pixels of each band
};

}  // namespace fusion
