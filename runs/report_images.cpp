#include "runs/report_images.h"

#include <algorithm>

#include "platform/utility/common_fun.h"
#include "runs/open_input.h"
#include "runs/rect_on_pan.h"

namespace fusion {
namespace {

std::string NameOf(const CRasterSource& image, int band) {
  return CommonFun::U2Utf8(image.GetRasterBand(band)->GetDescription());
}

std::vector<int> ChooseBands(const ReportRequest& request, const FusedSource& fused) {
  const int count = fused.raster->GetBandCount();
  std::vector<int> bands;
  for (const int band : request.fusedBands) {
    if (band < 1 || band > count) {
      throw UsageError("--fused-bands " + std::to_string(band) + ": " + fused.file + " has bands 1 to " +
                       std::to_string(count) + ".");
    }
    bands.push_back(band);
  }
  for (int b = 0; request.fusedBands.empty() && b < count; ++b) {
    if (!fused.raster->GetRasterBand(b)->IsAlpha()) bands.push_back(b + 1);
  }
  return bands;
}

/// The one chosen multispectral band of a name, counted from 1; 0 where there is none or more than one.
int BandNamed(const ScenePair& pair, const std::string& name) {
  int found = 0;
  for (const int band : pair.Bands()) {
    if (name.empty() || NameOf(pair.Ms(), band) != name) continue;
    if (found > 0) return 0;
    found = band + 1;
  }
  return found;
}

void PairBands(const ReportRequest& request, const ScenePair& pair, FusedSource& fused) {
  const std::vector<int> bands = ChooseBands(request, fused);
  fused.fusedBands = bands;
  if (bands.size() == pair.Bands().size()) {
    for (const int band : pair.Bands()) fused.msBands.push_back(band + 1);
    return;
  }
  for (const int band : bands) {
    const int found = BandNamed(pair, NameOf(*fused.raster, band - 1));
    const bool isNew = std::find(fused.msBands.begin(), fused.msBands.end(), found) == fused.msBands.end();
    if (found > 0 && isNew) fused.msBands.push_back(found);
  }
  if (fused.msBands.size() == bands.size()) return;
  fused.msBands.clear();
  fused.unpaired = "It has " + std::to_string(bands.size()) + " bands, the multispectral image " +
                   std::to_string(pair.Bands().size()) +
                   ", and their names do not tell which belong together (--bands, --fused-bands).";
}

/// The name of a file without its folder and extension.
std::string StemOf(const std::string& file) {
  const std::size_t folder = file.find_last_of("/\\");
  const std::string name = folder == std::string::npos ? file : file.substr(folder + 1);
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

void Label(std::vector<FusedSource>& images) {
  for (FusedSource& image : images) image.label = StemOf(image.file);
  std::vector<bool> shared;
  shared.reserve(images.size());
  for (const FusedSource& image : images) {
    shared.push_back(std::count_if(images.begin(), images.end(),
                                   [&](const FusedSource& other) { return other.label == image.label; }) > 1);
  }
  for (std::size_t i = 0; i < images.size(); ++i) {
    if (shared[i]) images[i].label = images[i].file;
  }
}

std::optional<Provenance> Told(const std::string& file) {
  try {
    return ReadProvenance(file);
  } catch (const RunFailure& failure) {
    if (failure.GetKind() == RunFailure::Kind::kWrongUsage) return std::nullopt;
    throw;
  }
}

}  // namespace

std::vector<FusedSource> OpenFused(const ReportRequest& request, const ScenePair& pair) {
  std::vector<FusedSource> images;
  for (const std::string& file : request.fused) {
    FusedSource fused;
    fused.file = file;
    fused.raster = std::make_unique<CRasterSource>();
    OpenInput(*fused.raster, CommonFun::Utf82U(file));
    fused.raster->SetMaskNoData(true);
    try {
      fused.onPan = RectOnPan(pair.Pan(), *fused.raster);
    } catch (const RunFailure& failure) {
      throw UsageError(file + ": " + failure.Sentence());
    }
    PairBands(request, pair, fused);
    fused.provenance = Told(file);
    images.push_back(std::move(fused));
  }
  Label(images);
  return images;
}

}  // namespace fusion
