#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tests/support/scene.h"

namespace test_support {

enum class GapShape { kHole, kCollar, kSpeckles };
inline constexpr GapShape kGapShapes[] = {GapShape::kHole, GapShape::kCollar, GapShape::kSpeckles};
std::string NameOf(GapShape shape);

/// Two values that stand for missing data in a pixel type, neither in the range of a GapScene's data.
std::pair<double, double> FillValues(PixelDataType type);

/// A scene with pixels without data in pan and in the multispectral bands: some in all bands, some in one band alone.
/// Its data lie between 2 and 201, pan goes with the first band, and every band's least and largest value lies outside
/// the gaps. The files are written by Write.
class GapScene {
 public:
  GapScene(unsigned seed, GapShape shape, PixelDataType type, SceneOptions options = {});

  /// Writes both images with a fill value in the gaps, declared as no-data where wanted.
  void Write(double fill, bool declared = true) const;
  /// Writes both images whole; the value is declared all the same.
  void WriteWhole(double declared) const;
  /// The images with a fill value in the gaps.
  reference::Image Pan(double fill) const;
  reference::Image Ms(double fill) const;

  /// Whether a pan pixel has data: its own, and that of any band at the nearest multispectral sample.
  bool HasData(int column, int row) const;
  /// Whether no gap lies within 3 pan pixels, and none of any band within 2.5 samples.
  bool IsFarFromGaps(int column, int row) const;

  Scene scene;
  std::vector<bool> panGaps;
  std::vector<std::vector<bool>> msGaps;  ///< per band

 private:
  void Cut(GapShape shape, unsigned seed);
  reference::Position Position(int column, int row) const;

  PixelDataType m_type;
  std::string m_panWkt;
  std::string m_msWkt;
};

/// Gives a file a mask band of its own that leaves out the gaps.
void AddMask(const std::wstring& path, const std::vector<bool>& gaps);

/// What an output holds, and whether all its bands declare the no-data value 0.
struct MaskedOutput {
  reference::Image image;
  bool declaresZero = false;
};
MaskedOutput ReadMasked(const std::wstring& path);

/// Every pixel without data is 0 in all bands, every other one in none, and 0 is declared.
void ExpectMask(const MaskedOutput& output, const GapScene& scene);

}  // namespace test_support
