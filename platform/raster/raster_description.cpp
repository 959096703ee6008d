#include "platform/raster/raster_description.h"

#include <gdal_priv.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

#include "platform/raster/gdal_access.h"
#include "platform/raster/raster_source.h"

namespace platform {
namespace {

bool HasPart(const std::string& name, std::string_view part) {
  const auto same = [](char a, char b) { return std::toupper(static_cast<unsigned char>(a)) == b; };
  return std::search(name.begin(), name.end(), part.begin(), part.end(), same) != name.end();
}

/// Whether the name is that of a numbered band, as some drivers keep those of all bands with the file.
bool NamesBand(const std::string& name) {
  constexpr std::string_view kStart = "Band_";
  return name.starts_with(kStart) && name.size() > kStart.size() &&
         std::all_of(name.begin() + kStart.size(), name.end(), [](char c) { return c >= '0' && c <= '9'; });
}

template <std::size_t N>
bool HasAnyOf(const std::string& name, const std::array<std::string_view, N>& parts) {
  return std::any_of(parts.begin(), parts.end(), [&](std::string_view part) { return HasPart(name, part); });
}

/// Facts of the file they stand in: its samples, its grid, its making.
bool BelongsToFile(const std::string& name) {
  static constexpr std::array<std::string_view, 17> kParts = {
      "STATISTICS_",        "NODATA",       "FILLVALUE",          "VALID_M",
      "VALID_RANGE",        "LAYER_TYPE",   "AREA_OR_POINT",      "PIXEL_SIZE",
      "SPATIAL_RESOLUTION", "EXIF_PIXEL",   "TIFFTAG_MINSAMPLE",  "TIFFTAG_MAXSAMPLE",
      "TIFFTAG_XRES",       "TIFFTAG_YRES", "TIFFTAG_RESOLUTION", "TIFFTAG_SOFTWARE",
      "TIFFTAG_DATETIME"};
  return NamesBand(name) || HasAnyOf(name, kParts);
}

/// Facts that turn samples into quantities.
bool TellsValues(const std::string& name) {
  static constexpr std::array<std::string_view, 11> kParts = {
      "SCALE", "OFFSET", "GAIN", "BIAS", "CALIB", "UNIT", "RADIANCE", "REFLECTANCE", "_MULT", "_ADD", "ABSCAL"};
  return HasAnyOf(name, kParts) && !HasPart(name, "WAVELENGTH");
}

NamedFacts FactsOf(GDALMajorObject& object) {
  NamedFacts facts;
  for (char** entry = object.GetMetadata(); entry && *entry; ++entry) {
    char* name = nullptr;
    const char* value = CPLParseNameValue(*entry, &name);
    if (name && value && !BelongsToFile(name)) facts[name] = value;
    CPLFree(name);
  }
  return facts;
}

void Say(const NamedFacts& facts, GDALMajorObject& object) {
  for (const auto& [name, value] : facts) object.SetMetadataItem(name.c_str(), value.c_str());
}

/// A value that is declared and says something.
std::optional<double> Declared(double value, int declared, double plain) {
  return declared && value != plain ? std::optional(value) : std::nullopt;
}

}  // namespace

RasterDescription::RasterDescription() = default;

RasterDescription::RasterDescription(const CRasterSource& source, const std::vector<int>& chosen) {
  const GdalErrors quiet;
  GDALDataset& dataset = *DatasetOf(source);
  facts = FactsOf(dataset);
  for (const int index : chosen) {
    GDALRasterBand& band = *dataset.GetRasterBand(index + 1);
    BandDescription& description = bands.emplace_back();
    description.name = band.GetDescription();
    const GDALColorInterp colour = band.GetColorInterpretation();
    // Grey and a palette are ways to show one band alone.
    if (colour != GCI_AlphaBand && colour != GCI_GrayIndex && colour != GCI_PaletteIndex) description.colour = colour;
    int declared = 0;
    const double scale = band.GetScale(&declared);
    description.scale = Declared(scale, declared, 1.0);
    const double offset = band.GetOffset(&declared);
    description.offset = Declared(offset, declared, 0.0);
    description.unit = band.GetUnitType();
    description.facts = FactsOf(band);
  }
}

void RasterDescription::ForgetValues() {
  const auto forget = [](NamedFacts& named) {
    std::erase_if(named, [](const auto& f) { return TellsValues(f.first); });
  };
  forget(facts);
  for (BandDescription& band : bands) {
    band.scale.reset();
    band.offset.reset();
    band.unit.clear();
    forget(band.facts);
  }
}

void RasterDescription::Apply(CRasterSource& created) const {
  const GdalErrors quiet;
  GDALDataset& dataset = *DatasetOf(created);
  Say(facts, dataset);
  const auto count = std::min<std::size_t>(bands.size(), static_cast<std::size_t>(dataset.GetRasterCount()));
  // Of Imagine files GDAL puts colours into a file beside, and never reads them.
  const bool keepsColours = !EQUAL(dataset.GetDriverName(), "HFA");
  const bool anyColour = keepsColours && std::any_of(bands.begin(), bands.end(), [](const BandDescription& band) {
                           return band.colour != GCI_Undefined;
                         });
  for (std::size_t b = 0; b < count; ++b) {
    const BandDescription& description = bands[b];
    GDALRasterBand& band = *dataset.GetRasterBand(static_cast<int>(b) + 1);
    if (!description.name.empty()) band.SetDescription(description.name.c_str());
    // Where one band has a colour, no other is to get one from the driver.
    if (anyColour) band.SetColorInterpretation(static_cast<GDALColorInterp>(description.colour));
    if (description.scale) band.SetScale(*description.scale);
    if (description.offset) band.SetOffset(*description.offset);
    if (!description.unit.empty()) band.SetUnitType(description.unit.c_str());
    Say(description.facts, band);
  }
}

}  // namespace platform
