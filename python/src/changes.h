// What Python says of streams and of changes, as the engine takes it.
#ifndef QLNPYTHON_CHANGES_H
#define QLNPYTHON_CHANGES_H

#include <pybind11/pybind11.h>

#include <string>

#include "qlnmedia/stream_editor.h"

namespace qlnpython {

// A value of a dict, or nothing where the key is missing or the value is None. Throws TypeError that names
// the key where it is of another kind.
template <class Value, class Take>
void Given(const pybind11::dict& values, const char* key, Take take) {
  if (!values.contains(key)) return;
  const pybind11::object value = values[key];
  if (value.is_none()) return;
  Value plain;
  try {
    plain = value.cast<Value>();
  } catch (const pybind11::cast_error&) {
    throw pybind11::type_error(std::string(key) + " cannot be " + std::string(pybind11::repr(value)));
  }
  take(std::move(plain));
}

// Throws TypeError for a key that is not of `known`, whose words have blanks around them.
void CheckKeys(const pybind11::dict& values, const std::string& known);

// The keys that ReadChanges takes, for CheckKeys.
extern const char* const kChangeKeys;

// Sets what `values` has: texts in the forms that the command line takes, and flags. Throws qlnmedia::Error
// for texts that are none.
void ReadChanges(const pybind11::dict& values, qlnmedia::StreamChanges& changes);

// Throws TypeError and ValueError for what no stream can be.
qlnmedia::StreamDescription ReadDescription(const pybind11::dict& values);

}  // namespace qlnpython

#endif
