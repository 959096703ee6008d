// rsfusion._core: runs for Python. Options come by name and as texts, reports go as what --json says; what is Python's
// own (arguments, kinds of images, exceptions) is in rsfusion/*.py.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <exception>
#include <limits>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "apps/report_json.h"
#include "fusion_api.h"

namespace py = pybind11;

namespace {

using Options = std::vector<std::pair<std::string, std::string>>;
using std::chrono::steady_clock;

/// Who watches a run in Python: an object with stage(title), progress(percent) and notice(text), of which False ends
/// the run, or None. What it raises, and an interrupt from the keyboard, ends the run, too, and is raised when it has
/// ended.
class Watcher : public fusion::RunObserver {
 public:
  explicit Watcher(py::object watcher) : m_watcher(std::move(watcher)) {}

  void StageBegins(const fusion::RunStage& stage) override { Tell("stage", stage.title); }
  void Progress(int percent) override { Tell("progress", percent); }
  void Notice(const std::string& text) override { Tell("notice", text); }

  bool WantsCancel() override {
    // Asked far more often than anybody could press a key.
    constexpr std::chrono::milliseconds kPause{20};
    const auto now = steady_clock::now();
    if (m_over || now - m_looked < kPause) return m_over;
    m_looked = now;
    const py::gil_scoped_acquire locked;
    if (PyErr_CheckSignals() != 0) {
      m_over = true;
      m_raised = std::make_exception_ptr(py::error_already_set());
    }
    return m_over;
  }

  /// With the interpreter's lock.
  void Raise() const {
    if (m_raised) std::rethrow_exception(m_raised);
  }

 private:
  template <typename What>
  void Tell(const char* operation, const What& what) {
    if (m_over) return;
    const py::gil_scoped_acquire locked;
    if (m_watcher.is_none()) return;
    try {
      m_over = m_watcher.attr(operation)(what).is(py::bool_(false));
    } catch (const py::error_already_set&) {
      m_over = true;
      m_raised = std::current_exception();
    }
  }

  py::object m_watcher;
  bool m_over = false;
  std::exception_ptr m_raised;
  steady_clock::time_point m_looked;
};

/// The turn of a run: there is one at a time in a process. Others wait for it, as long as nobody interrupts them.
class Turn {
 public:
  explicit Turn(Watcher& watcher) {
    if (s_owner == std::this_thread::get_id()) {
      throw std::logic_error("a run cannot be started from the progress of another one");
    }
    constexpr std::chrono::milliseconds kPause{50};
    while (!s_mutex.try_lock_for(kPause)) {
      if (watcher.WantsCancel()) return;
    }
    s_owner = std::this_thread::get_id();
    m_has = true;
  }
  ~Turn() {
    if (!m_has) return;
    s_owner = std::thread::id();
    s_mutex.unlock();
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  bool Has() const { return m_has; }

 private:
  static inline std::timed_mutex s_mutex;
  static inline std::atomic<std::thread::id> s_owner;
  bool m_has = false;
};

py::object ToPython(const nlohmann::ordered_json& value) {
  if (value.is_object()) {
    py::dict object;
    for (const auto& [name, part] : value.items()) object[py::str(name)] = ToPython(part);
    return object;
  }
  if (value.is_array()) {
    py::list list;
    for (const auto& part : value) list.append(ToPython(part));
    return list;
  }
  if (value.is_string()) {
    const auto text = value.get<std::string>();
    // Names of files may be no UTF-8.
    return py::reinterpret_steal<py::object>(
        PyUnicode_DecodeUTF8(text.data(), static_cast<py::ssize_t>(text.size()), "surrogateescape"));
  }
  if (value.is_boolean()) return py::bool_(value.get<bool>());
  if (value.is_number_float()) return py::float_(value.get<double>());
  if (value.is_number()) return py::int_(value.get<long long>());
  return py::none();
}

/// Does some work without the interpreter's lock, in its turn.
template <typename Work>
py::object Watched(const py::object& watching, const Work& work) {
  Watcher watcher(watching);
  nlohmann::ordered_json report;
  std::exception_ptr failed;
  {
    const py::gil_scoped_release unlocked;
    try {
      const Turn turn(watcher);
      if (turn.Has()) report = work(watcher);
    } catch (...) {
      failed = std::current_exception();
    }
  }
  watcher.Raise();
  if (failed) std::rethrow_exception(failed);
  return ToPython(report);
}

template <typename Request>
void Take(Request& request, const Options& options) {
  for (const auto& [name, value] : options) {
    if constexpr (std::is_base_of_v<fusion::FuseRequest, Request>) {
      // Those of a driver may have commas of their own.
      if (name == "co") {
        request.creationOptions.push_back(value);
        continue;
      }
    }
    fusion::SetOption(request, name, value);
  }
}

template <auto Start, typename Request>
py::object Run(const Options& options, const py::object& watching) {
  Request request;
  Take(request, options);
  return Watched(watching, [&](Watcher& watcher) { return app::ToJson(Start(request, &watcher)); });
}

py::object Methods() {
  py::list methods;
  for (const fusion::Method& method : fusion::Methods()) methods.append(ToPython(app::ToJson(method)));
  return methods;
}

py::object Info(const std::string& file) { return ToPython(app::ToJson(fusion::ReadProvenance(file), file)); }

py::object Verify(const std::string& file, const py::object& watching) {
  return Watched(watching,
                 [&](Watcher& watcher) { return app::VerifiedJson(fusion::VerifyOutput(file, &watcher), file); });
}

struct SampleType {
  const char* name;
  PixelDataType type;
};
constexpr std::array kTypes = {SampleType{"uint8", PDT_UINT8},    SampleType{"uint16", PDT_UINT16},
                               SampleType{"int16", PDT_INT16},    SampleType{"uint32", PDT_UINT32},
                               SampleType{"int32", PDT_INT32},    SampleType{"float32", PDT_FLOAT32},
                               SampleType{"float64", PDT_FLOAT64}};

/// An array (bands, rows, columns) that runs read where it lies.
class ArrayRaster {
 public:
  ArrayRaster(py::array array, const std::optional<std::array<double, 6>>& transform, const std::string& system,
              std::optional<double> noData)
      : m_array(std::move(array)) {
    platform::MemorySamples samples;
    if (m_array.ndim() != 3) throw py::type_error("an array (bands, rows, columns) is needed");
    const py::dtype dtype = m_array.dtype();
    const auto name = dtype.attr("newbyteorder")("=").attr("name").cast<std::string>();
    const auto* const known =
        std::find_if(kTypes.begin(), kTypes.end(), [&](const SampleType& type) { return name == type.name; });
    if (known == kTypes.end()) throw py::type_error("arrays of " + name + " are not taken");
    samples.type = known->type;
    samples.swapped = !dtype.attr("isnative").cast<bool>();
    samples.first = m_array.data();
    const auto size = [&](int axis) {
      return static_cast<int>(std::min<py::ssize_t>(m_array.shape(axis), std::numeric_limits<int>::max()));
    };
    samples.bands = size(0);
    samples.height = size(1);
    samples.width = size(2);
    samples.bandSpace = m_array.strides(0);
    samples.lineSpace = m_array.strides(1);
    samples.pixelSpace = m_array.strides(2);
    m_raster.emplace(samples, transform ? transform->data() : nullptr, system, noData);
  }

  const std::string& Path() const { return m_raster->Path(); }

 private:
  py::array m_array;
  std::optional<platform::MemoryRaster> m_raster;
};

/// The samples (bands, rows, columns), the georeference, the coordinate system and the no-data value of an image.
py::tuple ReadImage(const std::string& path) {
  CRasterSource source;
  const std::wstring name = CommonFun::Utf82U(path);
  if (!source.OpenSimple(name)) throw std::runtime_error(path + " cannot be opened");
  const PixelDataType type = source.GetRasterDataType();
  const auto* const known =
      std::find_if(kTypes.begin(), kTypes.end(), [&](const SampleType& one) { return one.type == type; });
  const int width = source.GetWidth();
  const int height = source.GetHeight();
  py::array samples(py::dtype(known->name), std::vector<py::ssize_t>{source.GetBandCount(), height, width});
  bool read = true;
  auto* place = static_cast<unsigned char*>(samples.mutable_data());
  {
    const py::gil_scoped_release unlocked;
    const auto size = static_cast<std::size_t>(samples.itemsize()) * static_cast<std::size_t>(width) *
                      static_cast<std::size_t>(height);
    for (int b = 0; b < source.GetBandCount() && read; ++b, place += size) {
      read = source.GetRasterBand(b)->ReadBlock(0, 0, width, height, place, width, height, type) == 0;
    }
  }
  if (!read) throw std::runtime_error(path + " cannot be read");
  py::object transform = py::none();
  std::array<double, 6> t{};
  if (source.HasGeoTransform() && source.GetGeoTransform(t.data())) transform = py::tuple(py::cast(t));
  py::object noData = py::none();
  const CRasterBand& first = *source.GetRasterBand(0);
  if (first.IsHaveNoData()) noData = py::float_(first.GetNoDataValue());
  return py::make_tuple(samples, transform, CommonFun::U2Utf8(source.GetSpatialReferenceWKT()), noData);
}

void Translate(std::exception_ptr thrown) {
  try {
    if (thrown) std::rethrow_exception(std::move(thrown));
  } catch (const fusion::RunFailure& failure) {
    using Kind = fusion::RunFailure::Kind;
    const char* kind = failure.GetKind() == Kind::kWrongUsage  ? "UsageError"
                       : failure.GetKind() == Kind::kCancelled ? "Cancelled"
                                                               : "FusionError";
    const py::object type = py::module_::import("rsfusion._errors").attr(kind);
    PyErr_SetObject(type.ptr(), py::make_tuple(failure.Type(), failure.Message(), failure.Sentence()).ptr());
  }
}

}  // namespace

PYBIND11_MODULE(_core, module) {
  py::register_local_exception_translator(Translate);
  using py::arg;
  const auto run = [&](const char* name, auto start) { module.def(name, start, arg("options"), arg("watcher")); };
  run("fuse", Run<fusion::Fuse, fusion::FuseRequest>);
  run("evaluate", Run<fusion::Evaluate, fusion::EvaluateRequest>);
  run("check", Run<fusion::Check, fusion::CheckRequest>);
  run("assess", Run<fusion::Assess, fusion::AssessRequest>);
  run("report", Run<fusion::Report, fusion::ReportRequest>);
  run("survey", Run<fusion::MakeSurvey, fusion::SurveyRequest>);
  run("sample", Run<fusion::MakeSample, fusion::SampleRequest>);
  module.def("verify", Verify, arg("file"), arg("watcher"));
  module.def("info", Info, arg("file"));
  module.def("methods", Methods);
  module.def("read_image", ReadImage, arg("path"));
  module.def(
      "delete_image", [](const std::string& path) { return CRasterSource::DeleteFileW(CommonFun::Utf82U(path)); },
      arg("path"));
  py::class_<ArrayRaster>(module, "ArrayRaster")
      .def(py::init<py::array, std::optional<std::array<double, 6>>, std::string, std::optional<double>>(),
           arg("array"), arg("transform"), arg("crs"), arg("nodata"))
      .def_property_readonly("path", &ArrayRaster::Path);
  module.attr("version") = FUSION_VERSION;
}
