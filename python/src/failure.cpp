// Failures as exceptions of Python, and diagnostics as log records.

#include "failure.h"

#include <pybind11/pybind11.h>

#include "paths.h"
#include "qlnmedia/error.h"
#include "qlnmedia/progress.h"

namespace qlnpython {

namespace py = pybind11;

namespace {

// A run over a damaged file may say the same thousands of times.
constexpr size_t kMostTexts = 100;

// Texts of files need not be UTF-8; none may make an exception of an exception.
py::object Text(const std::string& text) {
  return py::reinterpret_steal<py::object>(
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"));
}

void Raise(const char* name, const std::string& path, const std::string& what, const std::string& advice) {
  try {
    const py::object type = py::module_::import("qlnutil.errors").attr(name);
    const py::object error = type(PathText(path), Text(what), Text(advice));
    PyErr_SetObject(type.ptr(), error.ptr());
  } catch (py::error_already_set& error) {
    error.restore();
  }
}

void Translate(std::exception_ptr pointer) {
  try {
    if (pointer) std::rethrow_exception(pointer);
  } catch (const qlnmedia::Cancelled& error) {
    Raise("Cancelled", error.where(), error.problem(), error.advice());
  } catch (const qlnmedia::NotApplicable& error) {
    Raise("NotApplicable", error.where(), error.problem(), error.advice());
  } catch (const qlnmedia::Error& error) {
    Raise("Error", error.where(), error.problem(), error.advice());
  } catch (const StreamFailure& error) {
    Raise("StreamError", {}, error.what(), error.advice());
  } catch (const py::cast_error&) {
    PyErr_SetString(PyExc_TypeError, "a value is of another kind, or does not fit its field");
  }
}

}  // namespace

void RegisterFailures() { py::register_exception_translator(&Translate); }

void Listener::Take(const char* text) {
  if (texts_.size() < kMostTexts) texts_.emplace_back(text);
}

void Listener::Log() {
  if (texts_.empty()) return;
  const py::object warning = py::module_::import("logging").attr("getLogger")("qlnutil").attr("warning");
  for (const std::string& text : texts_) warning("%s", Text(text));
  texts_.clear();
}

}  // namespace qlnpython
