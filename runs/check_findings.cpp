#include "runs/check_findings.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "estimation/registration.h"
#include "runs/text.h"

namespace fusion {
namespace {

std::string Percent(double share) {
  const double percent = 100.0 * share;
  return Formatted(percent < 10.0 ? "%.2g" : "%.0f", percent) + " %";
}

std::string Number(double value) { return Formatted("%.3g", value); }

std::string Verb(const std::vector<std::string>& names, const char* one, const char* many) {
  return Join(names) + (names.size() == 1 ? one : many);
}

/// What is told of a measured move.
double Rounded(double move) {
  constexpr double kParts = 20.0;
  return std::round(kParts * move) / kParts;
}

class Judge {
 public:
  explicit Judge(const CheckFacts& facts) : m_facts(facts), m_report(facts.report) {}

  std::vector<CheckFinding> Findings() {
    JudgeImages();
    JudgeGround();
    if (m_facts.figures) {
      JudgeGaps(*m_facts.figures);
      JudgeValues(*m_facts.figures);
    }
    if (m_facts.shift && m_report.ratioX > 1.0) JudgeDetail(*m_facts.shift);
    std::stable_partition(m_findings.begin(), m_findings.end(), [](const CheckFinding& f) { return f.isWarning; });
    return m_findings;
  }

 private:
  void Warn(const char* name, const std::string& text, const std::string& advice) {
    m_findings.push_back({true, name, text, advice});
  }
  void Note(const char* name, const std::string& text) { m_findings.push_back({false, name, text, ""}); }

  void JudgeImages() {
    constexpr double kSmaller = 0.75;
    constexpr double kHardlyLarger = 1.5;
    const double ratio = std::sqrt(m_report.ratioX * m_report.ratioY);
    if (ratio < kSmaller) {
      m_isSwapped = true;
      Warn("order",
           "The pan image has larger pixels than the multispectral one" +
               std::string(m_report.pan.bands > m_report.ms.bands ? ", and more bands." : "."),
           "The pan image comes first, the multispectral one second: swap them.");
    } else if (ratio < kHardlyLarger) {
      Warn("ratio",
           "The multispectral pixels are " + Number(ratio) + " times as large as pan's: little is to be gained.",
           "Check the georeferences, or use --same-extent where both images cover the same ground.");
    }
    if (m_report.ms.bands < 2) {
      Warn("bands", "The multispectral image has one band.", "A fusion needs two and more; is it the right file?");
    }
    if (m_report.pan.bands > 1 && !m_isSwapped) {
      Note("pan-bands", "The pan image has " + std::to_string(m_report.pan.bands) +
                            " bands; the first is taken unless --pan-band says otherwise.");
    }
  }

  void JudgeGround() {
    using Placing = ScenePair::Placing;
    const CheckImage& pan = m_report.pan;
    const CheckImage& ms = m_report.ms;
    const bool byGround = m_facts.placing == Placing::kByGround;
    if (m_facts.placing == Placing::kByPixels) {
      Warn("georeference",
           std::string(pan.hasPlace  ? "The multispectral"
                       : ms.hasPlace ? "The pan"
                                     : "No") +
               " image has no georeference: pixels are taken for coordinates.",
           "Give it one, or use --same-extent where both images cover the same ground.");
    }
    if (m_facts.placing == Placing::kTakenSameExtent) {
      Note("georeference", "Neither image has a georeference; they are taken as covering the same ground.");
    }
    if (byGround && pan.system.empty() != ms.system.empty()) {
      Warn("system",
           std::string(pan.system.empty() ? "The pan" : "The multispectral") +
               " image names no coordinate system; its coordinates are taken for ones of " +
               (pan.system.empty() ? ms.system : pan.system) + ".",
           "Assign it, with gdal_edit.py -a_srs for instance, if it is another.");
    }
    if (byGround && pan.system.empty() && ms.system.empty()) {
      Note("system", "Neither image names a coordinate system; their coordinates are taken for ones of the same.");
    }
    if (!m_facts.systemsFit) {
      Warn("system",
           "The images' coordinate systems, " + pan.system + " and " + ms.system +
               ", cannot be carried into each other.",
           "Reproject the multispectral image, with gdalwarp for instance.");
    } else if (m_report.reprojects) {
      Note("system", "The multispectral image, in " + ms.system + ", is reprojected on the way.");
    }
    if (!m_facts.figures) {
      if (!m_facts.systemsFit) return;
      const bool wrongSystem = m_report.reprojects && m_facts.numbersOverlap;
      Warn("overlap", "The images have no common ground.",
           wrongSystem ? "Their coordinates would overlap if they were of one system: one of them, " + pan.system +
                             " or " + ms.system + ", is probably wrong. Assign the right one (gdal_edit.py -a_srs)."
                       : "Check that they show the same place, and their georeferences; use --same-extent where both "
                         "images cover the same ground.");
      return;
    }
    constexpr double kMost = 0.9;
    if (pan.overlap < kMost) {
      Warn("overlap", "The multispectral image covers " + Percent(pan.overlap) + " of the pan image.",
           "The fused image will cover no more; take a larger multispectral image if there is one.");
    }
  }

  void JudgeGaps(const PairFigures& figures) {
    double least = 1.0 - figures.pan.noData;
    for (const CheckBand& band : figures.bands) least = std::min(least, 1.0 - band.noData);
    constexpr double kHardlyAny = 0.05;
    constexpr double kMostly = 0.8;
    if (!(figures.covered >= kHardlyAny)) {
      Warn("no-data", "Only " + Percent(figures.covered) + " of the pixels have data in all bands and in pan.",
           "Check the no-data values of both images.");
    } else if (figures.covered < kMostly * least) {
      Warn("no-data",
           "Where one image has data the other often has none: both have it on " + Percent(figures.covered) +
               " of the common ground.",
           "Check the no-data values of both images, and that they were cut alike.");
    } else if (figures.covered < 1.0 - kWorthAWord) {
      Note("no-data", Percent(1.0 - figures.covered) +
                          " of the common ground is without data in one image or both; it is left out of a fusion.");
    }
    const bool fillsPan = !m_facts.declaresPan && figures.pan.minimum == 0.0 && figures.isPanCutLow;
    m_hasFill = !m_facts.declaresMs && figures.zeros >= kWorthAWord;
    if (m_hasFill) {
      Warn("fill",
           Percent(figures.zeros) +
               " of the multispectral pixels are 0 in all bands, and no value is declared as no data.",
           std::string("If these pixels show nothing, add --nodata 0") +
               (fillsPan ? ", which goes for pan, too." : "."));
    }
  }

  void JudgeValues(const PairFigures& figures) {
    std::vector<std::string> constant;
    std::vector<std::string> cutHigh;
    std::vector<std::string> cutLow;
    double mostHigh = 0.0;
    double mostLow = 0.0;
    const auto look = [&](const CheckBand& band, const std::string& name, bool isCutLow, bool isCutHigh) {
      if (band.stdDev == 0.0) constant.push_back(name);
      const bool isFill = m_hasFill && band.minimum == 0.0;
      if (isCutLow && !isFill) {
        cutLow.push_back(name);
        mostLow = std::max(mostLow, band.atMinimum);
      }
      if (isCutHigh) {
        cutHigh.push_back(name);
        mostHigh = std::max(mostHigh, band.atMaximum);
      }
    };
    look(figures.pan, "pan", figures.isPanCutLow, figures.isPanCutHigh);
    for (std::size_t b = 0; b < figures.bands.size(); ++b) {
      look(figures.bands[b], figures.bands[b].name, figures.isCutLow[b], figures.isCutHigh[b]);
    }
    if (!constant.empty()) {
      Warn("constant", Verb(constant, " has", " have") + " the same value everywhere.",
           "Leave such bands out (--bands), and check that pan is the right file.");
    }
    if (!cutHigh.empty()) {
      Warn("saturation",
           Verb(cutHigh, " is", " are") + " cut off at the bright end: up to " + Percent(mostHigh) +
               " of the values are the largest one.",
           "Colours and detail are wrong there; take less stretched data if there is any.");
    }
    if (!cutLow.empty()) {
      Warn("saturation",
           Verb(cutLow, " is", " are") + " cut off at the dark end: up to " + Percent(mostLow) +
               " of the values are the smallest one.",
           "If these pixels show nothing, declare that value (--nodata); else take less stretched data.");
    }
    JudgeScale(figures);
    std::vector<std::string> uncovered;
    for (const CheckBand& band : figures.bands) {
      constexpr double kLeastDetail = 0.1;
      if (band.detail == band.detail && band.detail < kLeastDetail) uncovered.push_back(band.name);
    }
    if (!uncovered.empty() && uncovered.size() < figures.bands.size()) {
      Warn("coverage", "Pan does not seem to see what " + Verb(uncovered, " shows.", " show."),
           "Leave such bands out (--bands), or fuse by bayesian, which adds to a band only what it shares with pan.");
    }
  }

  void JudgeScale(const PairFigures& figures) {
    constexpr double kFar = 8.0;
    const bool isFar = std::all_of(figures.bands.begin(), figures.bands.end(), [](const CheckBand& band) {
      return band.panRatio > kFar || (band.panRatio == band.panRatio && band.panRatio < 1.0 / kFar);
    });
    if (!isFar || figures.bands.empty()) return;
    Warn("scale",
         "Pan's mean is " + Number(figures.bands[0].panRatio) +
             " times that of the first band: pan and bands are on other scales.",
         "Leave the spectral matching on, as it is by default, and check that both images are of the same processing.");
  }

  void JudgeDetail(const PairShift& shift) {
    constexpr double kLeastScore = 0.1;
    if (shift.windows == 0 || shift.score < kLeastScore) {
      Warn("detail", "The detail of pan is hardly that of the bands.",
           "Check that both images show the same ground at the same time, and their georeferences.");
      return;
    }
    JudgeShift(shift);
    JudgeSharpness(shift.blur);
  }

  void JudgeShift(const PairShift& shift) {
    constexpr double kWorthMoving = 0.5;
    constexpr double kMostSpread = 0.5;
    const double distance = std::hypot(shift.x, shift.y);
    const double spread = std::hypot(shift.spreadX, shift.spreadY);
    if (distance >= kWorthMoving && distance > spread) {
      Warn("shift",
           "The multispectral image lies beside the pan image: its detail fits when it is moved " +
               MoveInWords(Rounded(shift.x), Rounded(shift.y)) + ".",
           shift.isFar
               ? "That is more than any method finds by itself: correct a coordinate system or a georeference "
                 "(gdal_edit.py -a_ullr)."
               : "bayesian moves it by itself; for other methods correct a georeference (gdal_edit.py -a_ullr).");
    } else if (spread > kMostSpread) {
      Warn("shift",
           "The images do not lie on each other in the same way everywhere: places differ by " + Number(spread) +
               " pan pixels.",
           "Expect coloured edges; orthorectify both images with the same terrain model if that can be had.");
    }
  }

  void JudgeSharpness(const PanBlur& blur) {
    constexpr double kNarrowest = 0.5;
    constexpr double kWidest = 1.9;
    if (blur.isBox) return;
    if (blur.width <= kNarrowest) {
      Warn("sharpness", "Pan is hardly sharper than the bands.",
           "A fusion gains little; check that pan is the original and no enlarged or smoothed image.");
    } else if (blur.width >= kWidest) {
      Warn("sharpness", "The bands are much more blurred than their pixels are large.",
           "Check that they are the original and no enlarged image; their true pixels may be larger.");
    }
  }

  static constexpr double kWorthAWord = 0.005;

  const CheckFacts& m_facts;
  const CheckReport& m_report;
  std::vector<CheckFinding> m_findings;
  bool m_isSwapped = false;
  bool m_hasFill = false;
};

}  // namespace

std::vector<CheckFinding> JudgePair(const CheckFacts& facts) { return Judge(facts).Findings(); }

}  // namespace fusion
