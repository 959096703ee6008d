#include "platform/raster/references.h"

#include <cpl_conv.h>
#include <cpl_minixml.h>
#include <cpl_string.h>
#include <cpl_vsi.h>
#include <gdal_priv.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <memory>
#include <set>
#include <string_view>
#include <system_error>

#include "platform/raster/gdal_access.h"
#include "platform/system/process.h"
#include "platform/utility/common_fun.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

using Xml = std::unique_ptr<CPLXMLNode, decltype(&CPLDestroyXMLNode)>;

constexpr ReferencePolicy kOwn{};
std::atomic<const ReferencePolicy*> g_policy{nullptr};

/// File systems of GDAL's that are elsewhere, and what addresses begin with.
constexpr std::array kElsewhere = {"/vsicurl",  "/vsis3",   "/vsigs",      "/vsiaz",  "/vsiadls", "/vsioss",
                                   "/vsiswift", "/vsihdfs", "/vsiwebhdfs", "http://", "https://", "ftp://"};

/// Drivers that speak to services or databases, and the words that their names begin with.
constexpr std::array kServices = {"AmigoCloud",
                                  "Carto",
                                  "CSW",
                                  "DAAS",
                                  "EEDA",
                                  "EEDAI",
                                  "Elasticsearch",
                                  "GPSBabel",
                                  "HANA",
                                  "HTTP",
                                  "MongoDBv3",
                                  "MSSQLSpatial",
                                  "MySQL",
                                  "NGW",
                                  "OAPIF",
                                  "OCI",
                                  "ODBC",
                                  "OGCAPI",
                                  "PGeo",
                                  "PLMOSAIC",
                                  "PLSCENES",
                                  "PostGISRaster",
                                  "PostgreSQL",
                                  "STACIT",
                                  "STACTA",
                                  "WCS",
                                  "WFS",
                                  "WMS",
                                  "WMTS",
                                  "MYSQL",
                                  "MSSQL",
                                  "PG",
                                  "ES",
                                  "OAPIF_COLLECTION",
                                  "WFS3",
                                  "SOSI"};

/// Kinds of files that hold everything themselves or whose references are looked at.
constexpr std::array kSeenThrough = {
    "GTiff",          "COG",     "VRT",  "HFA",     "ENVI",       "PNG", "JPEG", "BMP",    "MEM",       "JP2OpenJPEG",
    "ESRI Shapefile", "GeoJSON", "GPKG", "OGR_VRT", "FlatGeobuf", "KML", "CSV",  "Memory", "GeoJSONSeq"};

/// Elements of descriptions, and keys of metadata, that name files.
constexpr std::array kNames = {"SourceFilename", "SourceDataset", "SrcDataSource", "DEMPath",
                               "Source",         "DataFile",      "IndexFile",     "OVERVIEW_FILE",
                               "X_DATASET",      "Y_DATASET",     "RPC_DEM",       "SourceDatasetName"};

template <std::size_t n>
bool IsOneOf(const std::string& word, const std::array<const char*, n>& words) {
  return std::any_of(words.begin(), words.end(), [&](const char* one) { return EQUAL(word.c_str(), one); });
}

bool HoldsWord(const std::string& text, const char* word) {
  return std::string_view(CPLString(text).tolower()).find(word) != std::string_view::npos;
}

std::string FolderOfName(const std::string& name) { return CPLGetPath(name.c_str()); }

/// The place of a file with all links followed.
fs::path Place(const std::string& name) {
  std::error_code error;
  const fs::path path = CommonFun::ToPath(CommonFun::Utf82U(name.empty() ? "." : name));
  if (name.rfind("/vsi", 0) == 0) return path.lexically_normal();
  fs::path place = fs::weakly_canonical(fs::absolute(path, error), error);
  return error ? path : place;
}

bool LiesInside(const std::string& name, const fs::path& folder) {
  const fs::path place = Place(name);
  return std::mismatch(folder.begin(), folder.end(), place.begin(), place.end()).first == folder.end();
}

/// Looks at a file and at all that it would have opened, without opening any of it as an image.
class References {
 public:
  References(const ReferencePolicy& policy, const std::string& name)
      : m_policy(policy), m_folder(Place(FolderOfName(name))) {}

  std::string Look(const std::string& name) {
    constexpr std::size_t kMost = 100000;
    if (!m_seen.insert(name).second) return {};
    if (m_seen.size() > kMost) return "it refers to more than 100000 files";
    VSIStatBufL status;
    const bool exists = VSIStatL(name.c_str(), &status) == 0;
    if (exists && !VSI_ISREG(status.st_mode) && !VSI_ISDIR(status.st_mode)) {
      return "it refers to " + name + ", which is no regular file";
    }
    // Beside a file of any kind there may be some of every kind.
    for (const char* companion : {".ovr", ".OVR", ".msk", ".MSK"}) {
      const std::string file = name + companion;
      if (!exists || VSIStatL(file.c_str(), &status) != 0) continue;
      if (std::string fault = Follow(file); !fault.empty()) return fault;
    }
    const std::string description = name + ".aux.xml";
    if (exists && VSIStatL(description.c_str(), &status) == 0) {
      const Xml xml(CPLParseXMLFile(description.c_str()), CPLDestroyXMLNode);
      if (std::string fault = LookInto(xml.get(), name); !fault.empty()) return fault;
    }
    return LookByKind(name);
  }

 private:
  std::string LookByKind(const std::string& name) {
    GDALDriverH driver = GDALIdentifyDriverEx(name.c_str(), GDAL_OF_RASTER | GDAL_OF_VECTOR, nullptr, nullptr);
    if (!driver) return {};
    const std::string kind = GDALGetDriverShortName(driver);
    if (!m_policy.network && IsOneOf(kind, kServices)) {
      return "it describes a service (" + kind + "); --allow-network lets it be asked";
    }
    if (m_policy.confined && !IsOneOf(kind, kSeenThrough)) {
      return "what files of its kind (" + kind + ") refer to cannot be told, which --confined forbids";
    }
    if (!EQUAL(kind.c_str(), "VRT") && !EQUAL(kind.c_str(), "OGR_VRT") && !EQUAL(kind.c_str(), "MRF")) return {};
    const bool isText = name.find('<') != std::string::npos;
    const Xml xml(isText ? CPLParseXMLString(name.c_str()) : CPLParseXMLFile(name.c_str()), CPLDestroyXMLNode);
    if (!xml)
      return STARTS_WITH_CI(name.c_str(), "vrt://") ? Follow(name.substr(6, name.find('?') - 6)) : std::string();
    return LookInto(xml.get(), name);
  }

  /// What a description names, all through it.
  std::string LookInto(const CPLXMLNode* node, const std::string& name) {
    for (; node; node = node->psNext) {
      const bool isText = node->eType == CXT_Text;
      if (isText && !m_policy.network && HoldsWord(node->pszValue, "/vsi") && IsElsewhere(node->pszValue)) {
        return Elsewhere(node->pszValue);
      }
      const std::string key = node->eType != CXT_Element     ? ""
                              : EQUAL(node->pszValue, "MDI") ? CPLGetXMLValue(node, "key", "")
                                                             : node->pszValue;
      if (IsOneOf(key, kNames)) {
        const char* text = CPLGetXMLValue(node, nullptr, "");
        const bool beside =
            CPLTestBool(CPLGetXMLValue(node, "relativeToVRT", CPLGetXMLValue(node, "relativetoVRT", "0"))) ||
            EQUAL(key.c_str(), "DataFile") || EQUAL(key.c_str(), "IndexFile");
        const std::string folder = name.find('<') == std::string::npos ? FolderOfName(name) : std::string();
        const std::string file = beside ? CPLProjectRelativeFilename(folder.c_str(), text) : text;
        if (std::string fault = file.empty() ? std::string() : Follow(file); !fault.empty()) return fault;
      }
      if (std::string fault = LookInto(node->psChild, name); !fault.empty()) return fault;
    }
    return {};
  }

  std::string Follow(const std::string& file) {
    if (IsElsewhere(file)) return m_policy.network ? std::string() : Elsewhere(file);
    if (m_policy.confined && file.find('<') == std::string::npos && !LiesInside(file, m_folder)) {
      return "it refers to " + file + ", which lies outside its folder (--confined)";
    }
    return Look(file);
  }

  static std::string Elsewhere(const std::string& file) {
    constexpr std::size_t kShown = 200;
    return "it refers to " + file.substr(0, kShown) + ", across the network; --allow-network lets it be read";
  }

  const ReferencePolicy& m_policy;
  fs::path m_folder;
  std::set<std::string> m_seen;
};

}  // namespace

ReferenceScope::ReferenceScope(const ReferencePolicy& policy) : m_before(g_policy), m_policy(policy) {
  g_policy = &m_policy;
}
ReferenceScope::~ReferenceScope() { g_policy = m_before; }

const ReferencePolicy* CurrentReferences() {
  const ReferencePolicy* policy = g_policy;
  return policy || !OwnsProcess() ? policy : &kOwn;
}

bool IsElsewhere(const std::string& name) {
  if (std::any_of(kElsewhere.begin(), kElsewhere.end(), [&](const char* word) { return HoldsWord(name, word); })) {
    return true;
  }
  const std::size_t colon = name.find(':');
  // A single letter is a drive.
  return colon != std::string::npos && colon > 1 && IsOneOf(name.substr(0, colon), kServices);
}

std::string ForbiddenPart(const std::string& name, const ReferencePolicy& policy, const char* const* files) {
  if (!policy.confined || name.rfind("/vsimem/fusion_view_", 0) == 0) return {};
  const fs::path folder = Place(FolderOfName(name));
  for (; files && *files; ++files) {
    if (*files != name && !LiesInside(*files, folder)) {
      return std::string("it consists of ") + *files + ", too, which lies outside its folder (--confined)";
    }
  }
  return {};
}

std::string ForbiddenReference(const std::string& name, const ReferencePolicy& policy) {
  // Views of the library's own over files that were looked at when they were opened.
  if (name.rfind("/vsimem/fusion_view_", 0) == 0 || IsElsewhere(name)) return {};
  return References(policy, name).Look(name);
}

}  // namespace platform
