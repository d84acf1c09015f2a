// orvane._orvane: the exported classes of the library for Python.
//
// Signature wraps a CFIDContainer, Extractor a CFIDExtractor, Database a CFIDDatabase. The
// GIL is released while the library works (extract, add, remove, classify and what is built
// on it, save, load), so threads with their own Extractor or Database run in parallel. The
// library's FID_Exception becomes orvane.Error with the library's text.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <orvane.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "CExclusiveUse.h"
#include "CPixelRows.h"
#include "DuplicatePairs.h"

namespace py = pybind11;

namespace {

constexpr int kDatabaseType = 1;
constexpr int kSamePhotoMode = 0;
constexpr int kNearestMode = 1;
constexpr int kWeightKeys = 2;

struct Extractor {
  CFIDExtractor extractor{kDatabaseType};
  CExclusiveUse use{"Extractor"};
};

struct Database {
  CFIDDatabase database{kDatabaseType, 0};
  CExclusiveUse use{"Database"};
};

using Weights = std::vector<std::optional<float>>;
using Matches = std::vector<std::pair<int, float>>;

Weights weightsOf(CFIDDatabase& database) {
  Weights weights;
  for (int key = 0; key < kWeightKeys; ++key) {
    float percent = 0;
    weights.push_back(database.getWeight(key, &percent) ? std::optional<float>(percent)
                                                        : std::nullopt);
  }
  return weights;
}

void setWeights(CFIDDatabase& database, const Weights& weights) {
  for (int key = 0; key < kWeightKeys; ++key) {
    if (weights[key]) database.setWeight(key, *weights[key]);
  }
}

// The library's load leaves both weights at a hundredth of a new database's; setting a new
// database's weights again makes scores read the same before a save and after the load.
const Weights& newDatabaseWeights() {
  static const Weights weights = [] {
    CFIDDatabase fresh(kDatabaseType, 0);
    return weightsOf(fresh);
  }();
  return weights;
}

// The bytes of a bytes-like object (bytes, bytearray, memoryview, ...), copied; a str or
// anything else without the buffer protocol is a TypeError naming `what`.
std::string bytesOf(const py::handle& data, const char* what) {
  if (PyUnicode_Check(data.ptr()) || !PyObject_CheckBuffer(data.ptr())) {
    throw py::type_error(std::string(what) + " expects bytes, bytearray or memoryview, not " +
                         Py_TYPE(data.ptr())->tp_name);
  }
  Py_buffer view;
  if (PyObject_GetBuffer(data.ptr(), &view, PyBUF_SIMPLE) != 0) throw py::error_already_set();
  std::string bytes(static_cast<const char*>(view.buf), static_cast<size_t>(view.len));
  PyBuffer_Release(&view);
  return bytes;
}

std::string streamOf(const CFIDContainer& signature) {
  std::ostringstream out;
  signature.write(out);
  return out.str();
}

// The stream of the signature as read back from its own stream. The library writes a
// signature it has read with one parameter more than an extracted one (the row time step),
// and writes it unchanged from then on: equality and hashing compare this form, so that a
// signature read back from its stream, or unpickled, equals the original.
std::string comparableStream(const CFIDContainer& signature) {
  std::istringstream in(streamOf(signature));
  CFIDContainer readBack;
  readBack.read(in);
  return streamOf(readBack);
}

std::unique_ptr<CFIDContainer> signatureFromBytes(const py::handle& data) {
  std::istringstream in(bytesOf(data, "Signature.from_bytes"));
  auto signature = std::make_unique<CFIDContainer>();
  signature->read(in);
  // One signature per stream: bytes left over mean the caller passed something else.
  const std::streamoff used = in.tellg();
  const auto size = static_cast<std::streamoff>(in.str().size());
  if (used >= 0 && used < size) {
    throw py::value_error("Signature.from_bytes: " + std::to_string(size - used) +
                          " bytes after the end of the signature stream");
  }
  return signature;
}

Matches classify(Database& self, const CFIDContainer& signature, long long maxResults,
                 int mode) {
  if (maxResults < 0) {
    throw py::value_error("the number of results must be 0 (all) or more, not " +
                          std::to_string(maxResults));
  }
  // Asking for more than fit in the library's count is asking for all of them.
  const unsigned count = maxResults > UINT_MAX ? 0u : static_cast<unsigned>(maxResults);
  CExclusiveUse::Claim claim(self.use);
  py::gil_scoped_release release;
  Matches matches;
  for (const CFIDMatch& match : self.database.classify(signature, count, mode)) {
    matches.emplace_back(match.id, match.score);
  }
  return matches;
}

int checkedId(long long id) {
  if (id < INT_MIN || id > INT_MAX) {
    throw py::value_error("id must be a 32-bit signed integer, not " + std::to_string(id));
  }
  return static_cast<int>(id);
}

// A path as the file system names it: str or os.PathLike encoded, bytes as they are.
std::string fileSystemPath(const py::handle& path, const char* what) {
  PyObject* fsPath = PyOS_FSPath(path.ptr());
  if (fsPath == nullptr) {
    PyErr_Clear();
    throw py::type_error(std::string(what) + " expects a path or a binary file object, not " +
                         Py_TYPE(path.ptr())->tp_name);
  }
  py::object name = py::reinterpret_steal<py::object>(fsPath);
  if (PyUnicode_Check(name.ptr())) {
    name = py::reinterpret_steal<py::object>(PyUnicode_EncodeFSDefault(name.ptr()));
    if (!name) throw py::error_already_set();
  }
  return name.cast<std::string>();
}

// An OSError of the errno kind (FileNotFoundError, PermissionError, ...) naming the path.
[[noreturn]] void raiseFileError(int error, const py::handle& path) {
  errno = error != 0 ? error : EIO;
  PyErr_SetFromErrnoWithFilenameObject(PyExc_OSError, path.ptr());
  throw py::error_already_set();
}

py::bytes saveToBytes(Database& self) {
  CExclusiveUse::Claim claim(self.use);
  std::string stream;
  {
    py::gil_scoped_release release;
    std::ostringstream out;
    self.database.save(out);
    stream = out.str();
  }
  return py::bytes(stream);
}

// Loads a database stream, then gives the weights back to what they were meant to be.
void loadStream(Database& self, std::istream& in, const Weights& weights) {
  try {
    self.database.load(in);
  } catch (...) {
    setWeights(self.database, weights);
    throw;
  }
  setWeights(self.database, weights);
}

void loadFromBytes(Database& self, const py::handle& data, const Weights& weights) {
  std::string stream = bytesOf(data, "Database.load");
  CExclusiveUse::Claim claim(self.use);
  py::gil_scoped_release release;
  std::istringstream in(std::move(stream));
  loadStream(self, in, weights);
}

// Runs work(file) on the file `name` opened as a Stream, without the GIL. A file that does
// not open, or for which work answers false, is an OSError naming it.
template <typename Stream, typename Work>
void withFile(Database& self, const py::handle& name, const char* what, std::ios::openmode mode,
              const Work& work) {
  const std::string path = fileSystemPath(name, what);
  CExclusiveUse::Claim claim(self.use);
  bool failed = false;
  int error = 0;
  {
    py::gil_scoped_release release;
    // A folder opens for reading on Linux, and then reads as empty.
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
      failed = true;
      error = EISDIR;
    } else {
      Stream file(path, mode);
      failed = !file || !work(file);
      error = errno;
    }
  }
  if (failed) raiseFileError(error, name);
}

void save(Database& self, const py::handle& target) {
  if (py::hasattr(target, "write")) {
    target.attr("write")(saveToBytes(self));
    return;
  }
  withFile<std::ofstream>(self, target, "Database.save", std::ios::binary | std::ios::trunc,
                          [&self](std::ofstream& out) {
                            self.database.save(out);
                            out.close();  // written through, or failed
                            return !out.fail();
                          });
}

void load(Database& self, const py::handle& source) {
  if (py::hasattr(source, "read")) {
    const py::object data = source.attr("read")();
    if (PyUnicode_Check(data.ptr())) {
      throw py::type_error("Database.load expects a path or a binary file object, not a text "
                           "file (read() returned str)");
    }
    loadFromBytes(self, data, newDatabaseWeights());
    return;
  }
  withFile<std::ifstream>(self, source, "Database.load", std::ios::binary,
                          [&self](std::ifstream& in) {
                            loadStream(self, in, newDatabaseWeights());
                            return true;
                          });
}

// The search engine scores as a new database does; other weights would give pairs that
// disagree with same_photo.
void requireNewWeights(Database& database) {
  if (weightsOf(database.database) != newDatabaseWeights()) {
    throw py::value_error(
        "Database.duplicate_pairs scores with the weights of a new Database; set them back "
        "with set_weight, or ask same_photo photo by photo");
  }
}

std::vector<std::tuple<int, int, float>> samePhotoPairs(Database& self, Database* other) {
  const unsigned threads = std::max(1u, std::thread::hardware_concurrency());
  CExclusiveUse::Claim claim(self.use);
  requireNewWeights(self);
  if (other == nullptr) {
    py::gil_scoped_release release;
    return duplicatePairs(self.database, threads);
  }
  // A database against itself: one claim, both sides read the same photos.
  std::optional<CExclusiveUse::Claim> otherClaim;
  if (other != &self) {
    otherClaim.emplace(other->use);
    requireNewWeights(*other);
  }
  py::gil_scoped_release release;
  return duplicatePairs(self.database, other->database, threads);
}

}  // namespace

PYBIND11_MODULE(_orvane, m) {
  m.doc() = "The orvane photo identification library (extension module; use the orvane package).";
  py::register_exception<FID_Exception>(m, "Error", PyExc_Exception);

  m.def(
      "library_version", [] { return CFIDContainer::getLibraryVersion(); },
      "The library's version text, \"Orvane.dll 0.2 000\".");

  py::class_<CFIDContainer>(m, "Signature",
                            "The signature of one photo. Immutable; a signature read back "
                            "from its stream equals the original.")
      .def_static("from_bytes", &signatureFromBytes, py::arg("data"),
                  "Reads a signature stream, as to_bytes() writes it.")
      .def("to_bytes", [](const CFIDContainer& self) { return py::bytes(streamOf(self)); },
           "The signature stream.")
      .def("__bytes__", [](const CFIDContainer& self) { return py::bytes(streamOf(self)); })
      .def("__len__", [](const CFIDContainer& self) { return streamOf(self).size(); })
      .def_property_readonly(
          "feature_version",
          // A scratch copy: the library writes the answer into the container it asks.
          [](const CFIDContainer& self) { return CFIDContainer(self).getFeatureVersion(); },
          "The feature version of the signature (\"V6\").")
      .def("__eq__",
           [](const CFIDContainer& self, const py::object& other) -> py::object {
             if (!py::isinstance<CFIDContainer>(other)) return py::reinterpret_borrow<py::object>(Py_NotImplemented);
             return py::bool_(comparableStream(self) ==
                              comparableStream(other.cast<const CFIDContainer&>()));
           })
      .def("__hash__",
           [](const CFIDContainer& self) { return py::hash(py::bytes(comparableStream(self))); })
      .def("__repr__",
           [](const CFIDContainer& self) {
             return "<orvane.Signature of " + std::to_string(streamOf(self).size()) + " bytes>";
           })
      .def(py::pickle([](const CFIDContainer& self) { return py::make_tuple(py::bytes(streamOf(self))); },
                      [](const py::tuple& state) { return signatureFromBytes(state[0]); }));

  py::class_<Extractor>(m, "Extractor", "Computes signatures of photos. One thread at a time.")
      .def(py::init<>())
      .def(
          "extract",
          [](Extractor& self, const py::handle& image, const std::string& order) {
            CPixelRows rows(image, CPixelRows::parseOrder(order));
            CExclusiveUse::Claim claim(self.use);
            py::gil_scoped_release release;
            rows.prepare();
            // The extractor's own container is overwritten by its next extract: keep a copy.
            return std::make_unique<CFIDContainer>(self.extractor.extract(
                rows.pixels(), rows.width(), rows.height(), rows.lineStep(), 0, 0));
          },
          py::arg("image"), py::arg("order") = "bgr",
          "The signature of a uint8 image of shape (height, width, 3), blue-green-red rows "
          "(order=\"rgb\" for red-green-blue).")
      // Nothing of an extractor outlives a call: a pickled one arrives as a new one.
      .def(py::pickle([](const Extractor&) { return py::tuple(); },
                      [](const py::tuple&) { return std::make_unique<Extractor>(); }));

  py::class_<Database>(m, "Database", "Stored photo signatures under ids. One thread at a time.")
      .def(py::init<>())
      .def(
          "add",
          [](Database& self, const CFIDContainer& signature, long long id, unsigned tag) {
            const int checked = checkedId(id);
            CExclusiveUse::Claim claim(self.use);
            py::gil_scoped_release release;
            self.database.addSignature(signature, checked, tag);
          },
          py::arg("signature"), py::arg("id"), py::arg("tag") = 0u,
          "Stores the signature under id (not 0; ids are not checked for uniqueness).")
      .def(
          "remove",
          [](Database& self, long long id) {
            const int checked = checkedId(id);
            CExclusiveUse::Claim claim(self.use);
            py::gil_scoped_release release;
            self.database.removeSignature(checked);
          },
          py::arg("id"), "Removes the signature stored under id.")
      .def("__len__",
           [](Database& self) {
             CExclusiveUse::Claim claim(self.use);
             return self.database.size();
           })
      .def(
          "clear",
          [](Database& self) {
            CExclusiveUse::Claim claim(self.use);
            self.database.clear();
          },
          "Removes every stored signature; the weights stay.")
      .def(
          "same_photo",
          [](Database& self, const CFIDContainer& signature) {
            return classify(self, signature, 0, kSamePhotoMode);
          },
          py::arg("signature"),
          "[(id, score), ...]: the stored photos that count as the same photo (score at most "
          "0.07), closest first.")
      .def(
          "nearest",
          [](Database& self, const CFIDContainer& signature, long long n) {
            return classify(self, signature, n, kNearestMode);
          },
          py::arg("signature"), py::arg("n"),
          "[(id, score), ...]: the n nearest stored photos, closest first; n=0 gives all.")
      .def("classify", &classify, py::arg("signature"), py::arg("max_results"), py::arg("mode"),
           "The library's classify: [(id, score), ...] closest first.")
      .def(
          "set_weight",
          [](Database& self, int key, float percent) {
            CExclusiveUse::Claim claim(self.use);
            self.database.setWeight(key, percent);
          },
          py::arg("key"), py::arg("percent"),
          "Sets the weight of key 0 (colour) or 1 (edges), in percent.")
      .def(
          "get_weight",
          [](Database& self, int key) -> std::optional<float> {
            CExclusiveUse::Claim claim(self.use);
            float percent = 0;
            if (!self.database.getWeight(key, &percent)) return std::nullopt;
            return percent;
          },
          py::arg("key"), "The weight of key in percent; None for a key without a weight.")
      .def("duplicate_pairs", &samePhotoPairs, py::arg("other") = py::none(),
           "[(id_a, id_b, score), ...]: every pair of stored photos that count as the same "
           "photo (score at most 0.07), id_a stored before id_b, in stored order; on all "
           "cores. With other, the pairs of a photo of this database (id_a, the query) and "
           "one of other (id_b), by position here, then there. Needs the weights of a new "
           "Database on both.")
      .def("save", &save, py::arg("target"),
           "Writes the database stream to a path or a binary file object.")
      .def("load", &load, py::arg("source"),
           "Replaces the stored signatures by those of a database stream read from a path or "
           "a binary file object; the weights become those of a new Database.")
      // Pickled as the database stream and the weights, so a copy scores as the original.
      .def(py::pickle(
          [](Database& self) {
            py::bytes stream = saveToBytes(self);
            CExclusiveUse::Claim claim(self.use);
            return py::make_tuple(stream, weightsOf(self.database));
          },
          [](const py::tuple& state) {
            auto database = std::make_unique<Database>();
            loadFromBytes(*database, state[0], state[1].cast<Weights>());
            return database;
          }));
}
