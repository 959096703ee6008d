#include "platform/raster/band_stack.h"

#include <cpl_string.h>
#include <gdal_priv.h>
#include <gdal_utils.h>
#include <ogr_spatialref.h>

#include <atomic>
#include <memory>
#include <stdexcept>

#include "platform/raster/companions.h"
#include "platform/raster/gdal_access.h"
#include "platform/utility/common_fun.h"

namespace platform {
namespace {

using Dataset = std::unique_ptr<GDALDataset>;

Dataset Open(const std::string& name, const GdalErrors& errors) {
  Dataset file(OpenDataset(name, false));
  if (file) return file;
  const std::string& why = errors.Reason();
  throw std::runtime_error(why.find(name) == std::string::npos ? name + " cannot be opened: " + why : why);
}

/// What a band shows: what its file says, else the file's name.
std::string TitleOf(GDALDataset& file, const std::string& name) {
  const std::string said = file.GetRasterBand(1)->GetDescription();
  if (!said.empty()) return said;
  const std::wstring path = StemOf(CommonFun::Utf82U(name));
  return CommonFun::U2Utf8(path.substr(FolderOf(path).size()));
}

}  // namespace

BandStack::BandStack(const std::vector<std::wstring>& files) {
  static std::atomic<int> count{0};
  InitialiseGdal();
  const GdalErrors errors;
  std::vector<Dataset> sources;
  std::vector<std::string> names;
  for (const std::wstring& path : files) {
    const std::string name = CommonFun::U2Utf8(path);
    Dataset file = Open(name, errors);
    if (file->GetRasterCount() != 1) {
      throw std::runtime_error(name + " has " + std::to_string(file->GetRasterCount()) +
                               " bands; several multispectral files have one band each");
    }
    double t[6];
    if (file->GetGeoTransform(t) != CE_None || t[2] != 0.0 || t[4] != 0.0) {
      throw std::runtime_error(name + " has no north-up georeference, by which it could be laid on the other files");
    }
    const OGRSpatialReference* system = file->GetSpatialRef();
    const OGRSpatialReference* first = sources.empty() ? system : sources[0]->GetSpatialRef();
    if ((system == nullptr) != (first == nullptr) || (system && !system->IsSame(first))) {
      throw std::runtime_error(name + " has another coordinate system than " + names[0]);
    }
    names.push_back(name);
    sources.push_back(std::move(file));
  }
  std::vector<const char*> list;
  for (const std::string& name : names) list.push_back(name.c_str());
  CPLStringList arguments;
  arguments.AddString("-separate").AddString("-resolution").AddString("highest");
  GDALBuildVRTOptions* options = GDALBuildVRTOptionsNew(arguments.List(), nullptr);
  const std::string path = "/vsimem/fusion_view_stack_" + std::to_string(++count) + ".vrt";
  const Dataset stack(GDALDataset::FromHandle(
      GDALBuildVRT(path.c_str(), static_cast<int>(list.size()), nullptr, list.data(), options, nullptr)));
  GDALBuildVRTOptionsFree(options);
  if (!stack || stack->GetRasterCount() != static_cast<int>(names.size())) {
    VSIUnlink(path.c_str());
    throw std::runtime_error("the multispectral files cannot be seen as one image: " + errors.Reason());
  }
  for (std::size_t b = 0; b < names.size(); ++b) {
    GDALRasterBand& band = *stack->GetRasterBand(static_cast<int>(b) + 1);
    GDALRasterBand& source = *sources[b]->GetRasterBand(1);
    band.SetDescription(TitleOf(*sources[b], names[b]).c_str());
    band.SetScale(source.GetScale());
    band.SetOffset(source.GetOffset());
    band.SetUnitType(source.GetUnitType());
    const GDALColorInterp colour = source.GetColorInterpretation();
    if (colour != GCI_PaletteIndex) band.SetColorInterpretation(colour);
  }
  m_path = CommonFun::Utf82U(path);
}

BandStack::~BandStack() { VSIUnlink(CommonFun::U2Utf8(m_path).c_str()); }

}  // namespace platform
