// The library's records as Python classes with an attribute for each element, by tables that generate.py
// writes.
#ifndef QLNPYTHON_RECORDS_H
#define QLNPYTHON_RECORDS_H

#include <pybind11/pybind11.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace qlnpython {

struct RecordType;

// One member of a record.
struct Field {
  const char* name;
  const char* doc;
  size_t offset;
  size_t bytes;              // of one entry
  bool isSigned;             // of numbers
  size_t counts[2];          // entries in each dimension; 0 for none
  const RecordType* record;  // what the entries are; null for numbers
};

struct RecordType {
  const char* name;    // of the class
  const char* module;  // where it is found
  const char* doc;
  size_t size;
  std::span<const Field> fields;
  std::vector<uint8_t> (*write)(const void* record);  // null for parts of records
};

// A class under its name in the extension, where the modules take it from.
struct NamedType {
  const char* name;
  const RecordType* type;
};

// The tables, in an order in which a record stands behind those that it holds.
std::vector<NamedType> AllRecordTypes();

// The table of a record of the library.
template <class Record>
const RecordType& TypeOf();

// Makes the classes, and the function that pickles take records back from.
void AddRecords(pybind11::module_& module);

// A new object with a copy of the record.
pybind11::object NewRecord(const RecordType& type, const void* record);

// The record of an object; throws TypeError where it is none of that type. Valid as long as the object.
void* RecordIn(pybind11::handle object, const RecordType& type);

template <class Record>
pybind11::object NewRecord(const Record& record) {
  return NewRecord(TypeOf<Record>(), &record);
}

template <class Record>
const Record& RecordIn(pybind11::handle object) {
  return *static_cast<const Record*>(RecordIn(object, TypeOf<Record>()));
}

}  // namespace qlnpython

#endif
