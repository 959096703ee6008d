#include "tests/attacks/rational.h"

#include <gdal_priv.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <limits>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "platform/utility/common_fun.h"
#include "tests/attacks/corpus.h"
#include "tests/support/scene.h"

namespace attacks {
namespace {

using test_support::TemporaryFolder;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr const char* kAxes[] = {"LINE", "SAMP", "LAT", "LONG", "HEIGHT"};
constexpr const char* kPolynomials[] = {"LINE_NUM", "LINE_DEN", "SAMP_NUM", "SAMP_DEN"};
constexpr const char* kRpbAxes[] = {"line", "samp", "lat", "long", "height"};
constexpr const char* kRpbPolynomials[] = {"lineNumCoef", "lineDenCoef", "sampNumCoef", "sampDenCoef"};

std::string Number(double value) {
  std::ostringstream text;
  text.precision(17);
  text << value;
  return text.str();
}

std::string Joined(const std::vector<double>& values, const std::string& between) {
  std::string text;
  for (const double value : values) text += (text.empty() ? "" : between) + Number(value);
  return text;
}

}  // namespace

Rational RationalOf(int width, int height, double west, double north, double pixel) {
  Rational rational;
  // A whole sample is the middle of a pixel.
  rational.offsets = {height / 2.0 - 0.5, width / 2.0 - 0.5, north - height / 2.0 * pixel, west + width / 2.0 * pixel,
                      0};
  rational.scales = {height / 2.0, width / 2.0, height / 2.0 * pixel, width / 2.0 * pixel, 500.0};
  // The terms are 1, longitude, latitude, height and their products; lines count southwards.
  std::vector<double> lines(20, 0.0);
  std::vector<double> samples(20, 0.0);
  std::vector<double> one(20, 0.0);
  lines[2] = -1.0;
  samples[1] = 1.0;
  one[0] = 1.0;
  rational.coefficients = {lines, one, samples, one};
  return rational;
}

std::string TextOf(const Rational& rational, Carrier carrier) {
  std::string text;
  if (carrier == Carrier::kText) {
    for (std::size_t i = 0; i < 5; ++i) text += std::string(kAxes[i]) + "_OFF: " + Number(rational.offsets[i]) + "\n";
    for (std::size_t i = 0; i < 5; ++i) text += std::string(kAxes[i]) + "_SCALE: " + Number(rational.scales[i]) + "\n";
    for (std::size_t p = 0; p < 4; ++p) {
      int term = 0;
      for (const double value : rational.coefficients[p]) {
        text += std::string(kPolynomials[p]) + "_COEFF_" + std::to_string(++term) + ": " + Number(value) + "\n";
      }
    }
    return text;
  }
  text =
      "satId = \"XX01\";\nbandId = \"P\";\nSpecId = \"RPC00B\";\nBEGIN_GROUP = IMAGE\n\terrBias = 0.0;\n\terrRand = "
      "0.0;\n";
  for (std::size_t i = 0; i < 5; ++i)
    text += '\t' + (std::string(kRpbAxes[i]) + "Offset = ") + Number(rational.offsets[i]) + ";\n";
  for (std::size_t i = 0; i < 5; ++i)
    text += '\t' + (std::string(kRpbAxes[i]) + "Scale = ") + Number(rational.scales[i]) + ";\n";
  for (std::size_t p = 0; p < 4; ++p) {
    text += '\t' + (std::string(kRpbPolynomials[p]) + " = (\n\t\t\t") + Joined(rational.coefficients[p], ",\n\t\t\t") +
            ");\n";
  }
  return text + "END_GROUP = IMAGE\nEND;\n";
}

std::string CompanionOf(const std::string& image, Carrier carrier) {
  return image.substr(0, image.rfind('.')) + (carrier == Carrier::kRpb ? ".RPB" : "_RPC.TXT");
}

void Give(const TemporaryFolder& folder, const std::string& image, const Rational& rational, Carrier carrier) {
  if (carrier != Carrier::kTag) return Write(folder, CompanionOf(image, carrier), TextOf(rational, carrier));
  const std::unique_ptr<GDALDataset> file(
      GDALDataset::Open(folder.Path(image).c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE, nullptr, nullptr, nullptr));
  for (std::size_t i = 0; i < 5; ++i) {
    file->SetMetadataItem((std::string(kAxes[i]) + "_OFF").c_str(), Number(rational.offsets[i]).c_str(), "RPC");
    file->SetMetadataItem((std::string(kAxes[i]) + "_SCALE").c_str(), Number(rational.scales[i]).c_str(), "RPC");
  }
  for (std::size_t p = 0; p < 4; ++p) {
    file->SetMetadataItem((std::string(kPolynomials[p]) + "_COEFF").c_str(),
                          Joined(rational.coefficients[p], " ").c_str(), "RPC");
  }
}

void MakeUnplaced(const TemporaryFolder& folder, const std::string& name, const reference::Image& image) {
  GDALAllRegister();
  const std::unique_ptr<GDALDataset> file(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
      folder.Path(name).c_str(), image.width, image.height, static_cast<int>(image.bands.size()), GDT_Float32,
      nullptr));
  for (std::size_t b = 0; b < image.bands.size(); ++b) {
    if (file->GetRasterBand(static_cast<int>(b) + 1)
            ->RasterIO(GF_Write, 0, 0, image.width, image.height, const_cast<double*>(image.bands[b].data()),
                       image.width, image.height, GDT_Float64, 0, 0, nullptr) != CE_None) {
      throw std::runtime_error(CPLGetLastErrorMsg());
    }
  }
}

Corpus RationalPolynomials(const TemporaryFolder& folder) {
  Corpus corpus{"rational polynomials", {}, {}};
  struct Case {
    const char* name;
    End end;
    void (*spoil)(Rational&);
  };
  const Case cases[] = {
      // What they say is in degrees of no system that is told, and the good pair lies in metres.
      {"good", End::kRefused, [](Rational&) {}},
      {"nan_offsets", End::kAny, [](Rational& r) { r.offsets.assign(5, kNan); }},
      {"nan_coefficients", End::kAny, [](Rational& r) { r.coefficients[0].assign(20, kNan); }},
      {"zero_scales", End::kAny, [](Rational& r) { r.scales.assign(5, 0.0); }},
      {"zero_numerators", End::kAny, [](Rational& r) { r.coefficients[0][2] = r.coefficients[2][1] = 0.0; }},
      {"zero_denominators", End::kAny, [](Rational& r) { r.coefficients[1][0] = r.coefficients[3][0] = 0.0; }},
      {"pole_of_the_denominator", End::kAny, [](Rational& r) { r.coefficients[3] = r.coefficients[2]; }},
      {"huge", End::kAny, [](Rational& r) { r.scales[2] = r.scales[3] = 1e300; }},
      {"tiny", End::kAny, [](Rational& r) { r.scales[2] = r.scales[3] = 1e-300; }},
      {"elsewhere", End::kRefused, [](Rational& r) { r.offsets[3] = 100.0; }},
      {"beyond_the_pole", End::kAny, [](Rational& r) { r.offsets[2] = 95.0; }},
      {"at_the_pole", End::kRefused, [](Rational& r) { r.offsets[2] = 90.0; }},
      {"date_line", End::kRefused, [](Rational& r) { r.offsets[3] = 180.0; }},
      {"cubic", End::kAny, [](Rational& r) { r.coefficients[0].assign(20, 0.5); }},
  };
  const auto add = [&](const std::string& name, bool pan, End end,
                       const std::function<void(const std::string&)>& give) {
    const std::string file = (pan ? "pan_" : "ms_") + name + ".tif";
    MakeUnplaced(folder, file, test_support::ReadImage(folder.WidePath(pan ? "pan.tif" : "ms.tif")));
    give(file);
    (pan ? corpus.pans : corpus.mss).push_back({file, end});
  };
  for (const bool pan : {true, false}) {
    const int size = pan ? 64 : 16;
    // Where the good pair lies, about.
    const double pixel = pan ? 4e-6 : 1.6e-5;
    const Rational good = RationalOf(size, size, -3.707103 - 32.0 * 4e-6, 40.423326 + 32.0 * 4e-6, pixel);
    for (const Carrier carrier : kCarriers) {
      const std::string kind = carrier == Carrier::kTag ? "_tag" : carrier == Carrier::kRpb ? "_rpb" : "_txt";
      for (const Case& c : cases) {
        Rational rational = good;
        c.spoil(rational);
        add(c.name + kind, pan, c.end, [&](const std::string& file) { Give(folder, file, rational, carrier); });
      }
      if (carrier == Carrier::kTag) continue;
      const std::string text = TextOf(good, carrier);
      for (std::size_t tenth = 0; tenth < 10; ++tenth) {
        add("cut_" + std::to_string(tenth) + kind, pan, End::kAny, [&](const std::string& file) {
          Write(folder, CompanionOf(file, carrier), text.substr(0, text.size() * tenth / 10));
        });
      }
      add("noise" + kind, pan, End::kAny, [&](const std::string& file) {
        Write(folder, CompanionOf(file, carrier), "LINE_OFF: \xff\xfe" + std::string(100000, '('));
      });
    }
  }
  return corpus;
}

}  // namespace attacks
