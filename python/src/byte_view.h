// Bytes that a Python object lends for the time of a call.
#ifndef QLNPYTHON_BYTE_VIEW_H
#define QLNPYTHON_BYTE_VIEW_H

#include <pybind11/pybind11.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace qlnpython {

// Any object with a contiguous buffer: bytes, bytearray, memoryview, mmap, arrays. Nothing is copied, and the
// object cannot be resized or closed while the view lives. Made and destroyed with the interpreter's lock
// held.
class ByteView {
 public:
  // Throws Python's own TypeError, BufferError or ValueError (closed files) for anything else.
  explicit ByteView(pybind11::handle object) {
    if (PyObject_GetBuffer(object.ptr(), &buffer_, PyBUF_SIMPLE) != 0) throw pybind11::error_already_set();
  }
  ~ByteView() { PyBuffer_Release(&buffer_); }
  ByteView(const ByteView&) = delete;
  ByteView& operator=(const ByteView&) = delete;

  const uint8_t* data() const { return static_cast<const uint8_t*>(buffer_.buf); }
  size_t size() const { return static_cast<size_t>(buffer_.len); }
  std::span<const uint8_t> span() const { return {data(), size()}; }

 private:
  Py_buffer buffer_{};
};

// A new bytes object.
inline pybind11::bytes BytesOf(std::span<const uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace qlnpython

#endif
