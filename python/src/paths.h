// Paths between Python and the engine: any path object in, text with the file system's escapes out.
#ifndef QLNPYTHON_PATHS_H
#define QLNPYTHON_PATHS_H

#include <pybind11/pybind11.h>

#include <string>

namespace qlnpython {

// The bytes of a str, bytes or os.PathLike. Throws TypeError for other objects, ValueError for a zero inside.
inline std::string PathOf(pybind11::handle object) {
  PyObject* encoded = nullptr;
  if (PyUnicode_FSConverter(object.ptr(), &encoded) == 0) throw pybind11::error_already_set();
  return pybind11::reinterpret_steal<pybind11::bytes>(encoded);
}

// The reverse: bytes that are no text come as surrogate escapes, as os.fsdecode has them.
inline pybind11::object PathText(const std::string& path) {
  return pybind11::reinterpret_steal<pybind11::object>(
      PyUnicode_DecodeFSDefaultAndSize(path.data(), static_cast<Py_ssize_t>(path.size())));
}

}  // namespace qlnpython

#endif
