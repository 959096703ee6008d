#include "tests/attacks/corpus.h"

#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>

#include "platform/utility/common_fun.h"

namespace attacks {
namespace {

using test_support::FileBytes;
using test_support::TemporaryFolder;
using Dataset = std::unique_ptr<GDALDataset>;

constexpr int kPanSize = 64;
constexpr int kMsSize = 16;
constexpr int kBands = 4;

void Must(CPLErr result) {
  if (result != CE_None) throw std::runtime_error(CPLGetLastErrorMsg());
}

struct Shape {
  int width;
  int height;
  int bands;
  double pixel;
};
constexpr Shape kPan{kPanSize, kPanSize, 1, 0.5};
constexpr Shape kMs{kMsSize, kMsSize, kBands, 2.0};

/// Fields with an edge, and noise, in counts of 10 to 240.
double Sample(const Shape& shape, int band, int x, int y) {
  const double gx = x * shape.pixel;
  const double gy = y * shape.pixel;
  const bool field = gx > 11.0 && gy < 20.0;
  const unsigned noise = (static_cast<unsigned>(x) * 73856093U) ^ (static_cast<unsigned>(y) * 19349663U) ^
                         (static_cast<unsigned>(band) * 83492791U);
  return (field ? 120.0 : 60.0) + band * 20.0 + gx + noise % 31;
}

std::string Wkt(int epsg) {
  OGRSpatialReference crs;
  crs.importFromEPSG(epsg);
  char* text = nullptr;
  crs.exportToWkt(&text);
  std::string wkt = text;
  CPLFree(text);
  return wkt;
}

struct Made {
  GDALDataType type = GDT_UInt16;
  std::vector<std::string> options = {};
  std::vector<double> geoTransform = {};  ///< empty: none
  std::string wkt = {};
  std::function<void(GDALDataset&)> finish = {};
  const char* driver = "GTiff";
};

std::vector<double> GroundOf(const Shape& shape) { return {440000.0, shape.pixel, 0.0, 4475000.0, 0.0, -shape.pixel}; }

void Make(const TemporaryFolder& folder, const std::string& name, const Shape& shape, const Made& made) {
  GDALAllRegister();
  CPLStringList options;
  for (const std::string& option : made.options) options.AddString(option.c_str());
  const Dataset file(
      GetGDALDriverManager()
          ->GetDriverByName(made.driver)
          ->Create(folder.Path(name).c_str(), shape.width, shape.height, shape.bands, made.type, options.List()));
  std::vector<double> geo = made.geoTransform;
  if (!geo.empty()) file->SetGeoTransform(geo.data());
  if (!made.wkt.empty()) file->SetProjection(made.wkt.c_str());
  std::vector<double> row(static_cast<std::size_t>(shape.width));
  for (int b = 0; b < shape.bands; ++b) {
    for (int y = 0; y < shape.height; ++y) {
      for (int x = 0; x < shape.width; ++x) row[static_cast<std::size_t>(x)] = Sample(shape, b, x, y);
      Must(file->GetRasterBand(b + 1)->RasterIO(GF_Write, 0, y, shape.width, 1, row.data(), shape.width, 1, GDT_Float64,
                                                0, 0, nullptr));
    }
  }
  if (made.finish) made.finish(*file);
}

/// A mosaic's description: one source file, band by band.
std::string Mosaic(const std::string& source, const Shape& shape, const std::string& head,
                   const std::string& perBand = "") {
  std::string text = "<VRTDataset rasterXSize=\"" + std::to_string(shape.width) + "\" rasterYSize=\"" +
                     std::to_string(shape.height) + "\">" + head;
  for (int b = 1; b <= shape.bands; ++b) {
    text += R"(<VRTRasterBand dataType="UInt16" band=")" + std::to_string(b) + "\">" + perBand;
    if (!source.empty()) {
      text += "<SimpleSource><SourceFilename relativeToVRT=\"1\">" + source + "</SourceFilename><SourceBand>" +
              std::to_string(b) + "</SourceBand></SimpleSource>";
    }
    text += "</VRTRasterBand>";
  }
  return text + "</VRTDataset>";
}

std::string Geo(const std::string& terms) { return "<GeoTransform>" + terms + "</GeoTransform>"; }
const char kPanGeo[] = "440000,0.5,0,4475000,0,-0.5";
const char kMsGeo[] = "440000,2,0,4475000,0,-2";

/// The same entry made of each image of the good pair.
void Both(Corpus& corpus, const std::string& name, End end, const std::function<void(const std::string&, bool)>& make) {
  make("pan_" + name, true);
  corpus.pans.push_back({"pan_" + name, end});
  make("ms_" + name, false);
  corpus.mss.push_back({"ms_" + name, end});
}

}  // namespace

void Write(const TemporaryFolder& folder, const std::string& name, const std::string& bytes) {
  std::ofstream(CommonFun::ToPath(folder.WidePath(name)), std::ios::binary) << bytes;
}

void MakeGoodPair(const TemporaryFolder& folder) {
  Make(folder, "pan.tif", kPan, {.geoTransform = GroundOf(kPan), .wkt = Wkt(32630)});
  Make(folder, "ms.tif", kMs, {.geoTransform = GroundOf(kMs), .wkt = Wkt(32630)});
}

Corpus CutShort(const TemporaryFolder& folder) {
  constexpr int kPlaces = 100;
  Corpus corpus{"files cut short", {}, {}};
  Make(
      folder, "pan_packed.tif", kPan,
      {.options = {"COMPRESS=DEFLATE", "TILED=YES", "BLOCKXSIZE=16", "BLOCKYSIZE=16"}, .geoTransform = GroundOf(kPan)});
  Make(folder, "ms_packed.tif", kMs, {.options = {"COMPRESS=LZW"}, .geoTransform = GroundOf(kMs)});
  for (const std::string name : {"pan", "ms", "pan_packed", "ms_packed"}) {
    const std::string bytes = FileBytes(folder.Path(name + ".tif"));
    for (int i = 0; i < kPlaces; i += name.ends_with("packed") ? 4 : 1) {
      const std::string cut = name + "_cut_" + std::to_string(i) + ".tif";
      Write(folder, cut, bytes.substr(0, bytes.size() * static_cast<std::size_t>(i) / kPlaces));
      (name.starts_with("pan") ? corpus.pans : corpus.mss).push_back({cut, i == 0 ? End::kRefused : End::kAny});
    }
  }
  return corpus;
}

Corpus ChangedBytes(const TemporaryFolder& folder) {
  constexpr int kChanges = 200;
  Corpus corpus{"files with changed bytes", {}, {}};
  std::mt19937 random(20240229);
  for (const std::string name : {"pan", "ms"}) {
    const std::string bytes = FileBytes(folder.Path(name + ".tif"));
    // The directory of a file written by GDAL comes first.
    const std::size_t head = std::min<std::size_t>(bytes.size(), 512);
    for (int i = 0; i < kChanges; ++i) {
      std::string changed = bytes;
      for (unsigned n = 0; n <= random() % 3; ++n) changed[random() % head] = static_cast<char>(random());
      const std::string file = name + "_changed_" + std::to_string(i) + ".tif";
      Write(folder, file, changed);
      (name == "pan" ? corpus.pans : corpus.mss).push_back({file, End::kAny});
    }
  }
  return corpus;
}

Corpus Sizes(const TemporaryFolder& folder) {
  Corpus corpus{"sizes", {}, {}};
  const std::pair<int, int> sizes[] = {{1, 1}, {1, 64}, {64, 1}, {2, 2}, {3, 1}};
  for (const auto& [width, height] : sizes) {
    const std::string name = std::to_string(width) + "x" + std::to_string(height) + ".tif";
    Both(corpus, name, End::kAny, [&, w = width, h = height](const std::string& file, bool pan) {
      const Shape& shape = pan ? kPan : kMs;
      Make(folder, file, {w, h, shape.bands, shape.pixel}, {.geoTransform = GroundOf(shape), .wkt = Wkt(32630)});
    });
  }
  // A few hundred bytes that tell of more than any disk or memory holds.
  const std::pair<int, int> huge[] = {{2147483647, 2147483647}, {2147483647, 1000}};
  for (const auto& [width, height] : huge) {
    const std::string name = "huge_" + std::to_string(height) + ".vrt";
    Write(folder, name, Mosaic("pan.tif", {width, height, 1, 0.5}, ""));
    corpus.pans.push_back({name, End::kRefused});
  }
  Write(folder, "none.vrt", Mosaic("", {64, 64, 0, 0.5}, Geo(kPanGeo)));
  corpus.pans.push_back({"none.vrt", End::kRefused});
  corpus.mss.push_back({"none.vrt", End::kRefused});
  Write(folder, "empty.tif", "");
  corpus.pans.push_back({"empty.tif", End::kRefused});
  corpus.mss.push_back({"empty.tif", End::kRefused});
  return corpus;
}

Corpus GeoTransforms(const TemporaryFolder& folder) {
  struct Case {
    const char* name;
    const char* pan;
    const char* ms;
    End end;
  };
  constexpr Case kCases[] = {
      {"nan", "nan,nan,nan,nan,nan,nan", "nan,nan,nan,nan,nan,nan", End::kRefused},
      {"nan_pixel", "440000,nan,0,4475000,0,-0.5", "440000,nan,0,4475000,0,-2", End::kRefused},
      {"nan_origin", "nan,0.5,0,4475000,0,-0.5", "nan,2,0,4475000,0,-2", End::kRefused},
      {"infinite", "inf,0.5,0,inf,0,-0.5", "inf,2,0,inf,0,-2", End::kRefused},
      {"infinite_pixel", "440000,inf,0,4475000,0,-inf", "440000,inf,0,4475000,0,-inf", End::kRefused},
      {"zero", "0,0,0,0,0,0", "0,0,0,0,0,0", End::kRefused},
      {"zero_height", "440000,0.5,0,4475000,0,0", "440000,2,0,4475000,0,0", End::kRefused},
      {"singular", "440000,0.5,0.5,4475000,0.5,0.5", "440000,2,2,4475000,2,2", End::kRefused},
      {"far", "1e15,0.5,0,1e15,0,-0.5", "1e15,2,0,1e15,0,-2", End::kRefused},
      {"tiny", "440000,1e-300,0,4475000,0,-1e-300", "440000,1e-300,0,4475000,0,-1e-300", End::kRefused},
      {"small", "440000,1e-9,0,4475000,0,-1e-9", "440000,1e-9,0,4475000,0,-1e-9", End::kRefused},
      {"large", "440000,1e300,0,4475000,0,-1e300", "440000,1e300,0,4475000,0,-1e300", End::kRefused},
      {"south_up", "440000,0.5,0,4474968,0,0.5", "440000,2,0,4474968,0,2", End::kFused},
      {"east_left", "440032,-0.5,0,4475000,0,-0.5", "440032,-2,0,4475000,0,-2", End::kFused},
      {"turned", "440000,0.4,0.3,4475000,0.3,-0.4", "440000,1.6,1.2,4475000,1.2,-1.6", End::kFused},
      {"upright", "440000,0,0.5,4474968,0.5,0", "440000,0,2,4474968,2,0", End::kFused},
  };
  Corpus corpus{"georeferences", {}, {}};
  for (const Case& c : kCases) {
    Both(corpus, std::string(c.name) + ".vrt", c.end, [&](const std::string& file, bool pan) {
      Write(folder, file, Mosaic(pan ? "pan.tif" : "ms.tif", pan ? kPan : kMs, Geo(pan ? c.pan : c.ms)));
    });
  }
  return corpus;
}

Corpus CoordinateSystems(const TemporaryFolder& folder) {
  Corpus corpus{"coordinate systems", {}, {}};
  const std::pair<const char*, std::string> systems[] = {
      {"engineering", R"(LOCAL_CS["nowhere",UNIT["metre",1]])"},
      {"garbage", "PROJCS[\"half a"},
      {"unknown_epsg", "EPSG:999999"},
      {"web", "https://example.invalid/crs"},
      {"geocentric", Wkt(4978)},
      {"vertical", Wkt(5773)},
  };
  for (const auto& [name, wkt] : systems) {
    Both(corpus, std::string(name) + ".vrt", End::kAny, [&, text = wkt](const std::string& file, bool pan) {
      std::string escaped = text;
      for (std::size_t at = 0; (at = escaped.find('"', at)) != std::string::npos; at += 6) {
        escaped.replace(at, 1, "&quot;");
      }
      Write(folder, file,
            Mosaic(pan ? "pan.tif" : "ms.tif", pan ? kPan : kMs,
                   Geo(pan ? kPanGeo : kMsGeo) + "<SRS>" + escaped + "</SRS>"));
    });
  }
  Both(corpus, "zone31.tif", End::kRefused, [&](const std::string& file, bool pan) {
    Make(folder, file, pan ? kPan : kMs, {.geoTransform = GroundOf(pan ? kPan : kMs), .wkt = Wkt(32631)});
  });
  Both(corpus, "points.tif", End::kAny, [&](const std::string& file, bool pan) {
    const double extent = 32.0;
    const double pixels = pan ? kPanSize : kMsSize;
    Make(folder, file, pan ? kPan : kMs, {.finish = [&](GDALDataset& dataset) {
           GDAL_GCP points[3];
           GDALInitGCPs(3, points);
           const double at[3][2] = {{0, 0}, {1, 0}, {0, 1}};
           for (int i = 0; i < 3; ++i) {
             points[i].dfGCPPixel = at[i][0] * pixels;
             points[i].dfGCPLine = at[i][1] * pixels;
             points[i].dfGCPX = 440000.0 + at[i][0] * extent;
             points[i].dfGCPY = 4475000.0 - at[i][1] * extent;
           }
           dataset.SetGCPs(3, points, Wkt(32630).c_str());
           GDALDeinitGCPs(3, points);
         }});
  });
  // All control points in one place, and coefficients that are none.
  Both(corpus, "one_point.tif", End::kAny, [&](const std::string& file, bool pan) {
    Make(folder, file, pan ? kPan : kMs, {.finish = [&](GDALDataset& dataset) {
           GDAL_GCP points[4];
           GDALInitGCPs(4, points);
           dataset.SetGCPs(4, points, Wkt(32630).c_str());
           GDALDeinitGCPs(4, points);
         }});
  });
  Both(corpus, "rpc.vrt", End::kAny, [&](const std::string& file, bool pan) {
    std::string rpc = "<Metadata domain=\"RPC\">";
    for (const std::string key : {"LINE_OFF", "SAMP_OFF", "LAT_OFF", "LONG_OFF", "HEIGHT_OFF", "LINE_SCALE",
                                  "SAMP_SCALE", "LAT_SCALE", "LONG_SCALE", "HEIGHT_SCALE"}) {
      rpc += "<MDI key=\"" + key + "\">" + (key.ends_with("SCALE") ? "0" : "nan") + "</MDI>";
    }
    for (const std::string key : {"LINE_NUM_COEFF", "LINE_DEN_COEFF", "SAMP_NUM_COEFF", "SAMP_DEN_COEFF"}) {
      rpc += "<MDI key=\"" + key + "\">0 0 0</MDI>";
    }
    Write(folder, file, Mosaic(pan ? "pan.tif" : "ms.tif", pan ? kPan : kMs, rpc + "</Metadata>"));
  });
  return corpus;
}

Corpus SampleTypes(const TemporaryFolder& folder) {
  Corpus corpus{"samples", {}, {}};
  const std::pair<const char*, Made> types[] = {
      {"int64", {.type = GDT_Int64}},
      {"uint64", {.type = GDT_UInt64}},
      {"complex_int16", {.type = GDT_CInt16}},
      {"complex_float64", {.type = GDT_CFloat64}},
      {"float32", {.type = GDT_Float32}},
      {"signed_byte", {.type = GDT_Byte, .options = {"PIXELTYPE=SIGNEDBYTE"}}},
      {"one_bit", {.type = GDT_Byte, .options = {"NBITS=1"}}},
      {"eleven_bits", {.options = {"NBITS=11"}}},
      {"palette",
       {.type = GDT_Byte,
        .finish =
            [](GDALDataset& dataset) {
              GDALColorTable table;
              const GDALColorEntry red{255, 0, 0, 255};
              table.SetColorEntry(7, &red);
              dataset.GetRasterBand(1)->SetColorTable(&table);
            }}},
      {"scaled",
       {.finish =
            [](GDALDataset& dataset) {
              dataset.GetRasterBand(1)->SetScale(0.0);
              dataset.GetRasterBand(1)->SetOffset(1e300);
            }}},
  };
  for (const auto& [name, made] : types) {
    Both(corpus, std::string(name) + ".tif", End::kFused, [&, of = made](const std::string& file, bool pan) {
      Made whole = of;
      whole.geoTransform = GroundOf(pan ? kPan : kMs);
      whole.wkt = Wkt(32630);
      Make(folder, file, pan ? kPan : kMs, whole);
    });
  }
  Make(folder, "ms_twelve.tif", {kMsSize, kMsSize, 12, 2.0}, {.geoTransform = GroundOf(kMs), .wkt = Wkt(32630)});
  corpus.mss.push_back({"ms_twelve.tif", End::kFused});
  Make(folder, "ms_two_bits.tif", kMs, {.type = GDT_Byte, .options = {"NBITS=2"}, .geoTransform = GroundOf(kMs)});
  corpus.mss.push_back({"ms_two_bits.tif", End::kAny});
  return corpus;
}

Corpus Masks(const TemporaryFolder& folder) {
  Corpus corpus{"masks", {}, {}};
  struct Case {
    const char* name;
    const char* inside;
    unsigned char value;
    End end;
  };
  constexpr Case kCases[] = {{"mask_inside.tif", "YES", 255, End::kFused},
                             {"mask_beside.tif", "NO", 255, End::kFused},
                             {"nothing_inside.tif", "YES", 0, End::kRefused},
                             {"nothing_beside.tif", "NO", 0, End::kRefused}};
  for (const Case& c : kCases) {
    Both(corpus, c.name, c.end, [&](const std::string& file, bool pan) {
      const Shape& shape = pan ? kPan : kMs;
      const CPLConfigOptionSetter inside("GDAL_TIFF_INTERNAL_MASK", c.inside, false);
      Make(folder, file, shape,
           {.geoTransform = GroundOf(shape), .wkt = Wkt(32630), .finish = [&](GDALDataset& d) {
              d.CreateMaskBand(GMF_PER_DATASET);
              const std::vector<unsigned char> mask(static_cast<std::size_t>(shape.width * shape.height), c.value);
              Must(d.GetRasterBand(1)->GetMaskBand()->RasterIO(GF_Write, 0, 0, shape.width, shape.height,
                                                               const_cast<unsigned char*>(mask.data()), shape.width,
                                                               shape.height, GDT_Byte, 0, 0, nullptr));
            }});
    });
  }
  for (const char* value : {"nan", "inf", "-1", "1e400", "65535"}) {
    Both(corpus, std::string("nodata_") + value + ".vrt", End::kFused, [&](const std::string& file, bool pan) {
      Write(folder, file,
            Mosaic(pan ? "pan.tif" : "ms.tif", pan ? kPan : kMs, Geo(pan ? kPanGeo : kMsGeo) + "<SRS>EPSG:32630</SRS>",
                   std::string("<NoDataValue>") + value + "</NoDataValue>"));
    });
  }
  // Nonsense where companions are looked for is no reason to fail.
  Both(corpus, "noisy.tif", End::kAny, [&](const std::string& file, bool pan) {
    std::filesystem::copy_file(CommonFun::ToPath(folder.WidePath(pan ? "pan.tif" : "ms.tif")),
                               CommonFun::ToPath(folder.WidePath(file)));
    for (const std::string companion : {".ovr", ".msk", ".aux.xml"})
      Write(folder, file + companion, "II*\xff nonsense");
  });
  return corpus;
}

Corpus Mosaics(const TemporaryFolder& folder) {
  Corpus corpus{"mosaics", {}, {}};
  const auto add = [&](const std::string& name, End end, const std::string& source, const std::string& perBand = "") {
    Both(corpus, name, end, [&](const std::string& file, bool pan) {
      const std::string from = source == "good" ? (pan ? "pan.tif" : "ms.tif") : source == "itself" ? file : source;
      Write(folder, file,
            Mosaic(from, pan ? kPan : kMs, Geo(pan ? kPanGeo : kMsGeo) + "<SRS>EPSG:32630</SRS>", perBand));
    });
  };
  add("good.vrt", End::kFused, "good");
  add("missing.vrt", End::kRefused, "nowhere.tif");
  add("itself.vrt", End::kRefused, "itself");
  add("folder.vrt", End::kRefused, ".");
  add("nothing.vrt", End::kAny, "");
  const auto derived = [](const std::string& language, const std::string& function) {
    return "</VRTRasterBand><VRTRasterBand subClass=\"VRTDerivedRasterBand\" dataType=\"UInt16\" band=\"2\">"
           "<PixelFunctionLanguage>" +
           language + "</PixelFunctionLanguage><PixelFunctionType>" + function + "</PixelFunctionType>";
  };
  add("unknown_function.vrt", End::kAny, "good", derived("C", "no_such_function"));
  add("python.vrt", End::kAny, "good", derived("Python", "os.abort"));
  Write(folder, "first.vrt", Mosaic("second.vrt", kPan, Geo(kPanGeo)));
  Write(folder, "second.vrt", Mosaic("first.vrt", kPan, Geo(kPanGeo)));
  corpus.pans.push_back({"first.vrt", End::kRefused});
  Write(folder, "unfinished.vrt", R"(<VRTDataset rasterXSize="64" rasterYSize="64"><VRTRasterBand)");
  corpus.pans.push_back({"unfinished.vrt", End::kRefused});
  Write(folder, "negative.vrt", Mosaic("pan.tif", {-1, 64, 1, 0.5}, ""));
  corpus.pans.push_back({"negative.vrt", End::kRefused});
  std::string deep = "pan.tif";
  for (int i = 0; i < 40; ++i) {
    const std::string name = "deep_" + std::to_string(i) + ".vrt";
    Write(folder, name, Mosaic(deep, kPan, Geo(kPanGeo) + "<SRS>EPSG:32630</SRS>"));
    deep = name;
  }
  corpus.pans.push_back({deep, End::kAny});
  return corpus;
}

}  // namespace attacks
