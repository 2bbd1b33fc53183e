// The classes of records: numbers, tuples of them, and records inside of records, which are views.

#include "records.h"

#include <memory>
#include <string>

#include "byte_view.h"
#include "failure.h"

namespace qlnpython {

namespace py = pybind11;

namespace {

// An object with the memory of its record, or a view into the memory of `owner`.
struct RecordObject {
  PyObject_HEAD const RecordType* type;
  PyObject* owner;
  uint8_t* memory;
};

struct Made {
  const RecordType* type;
  PyTypeObject* object;
};

// Filled while the module is made, and never emptied: types outlive the module.
std::vector<Made>& Types() {
  static auto* const types = new std::vector<Made>;
  return *types;
}

RecordObject* Self(PyObject* object) { return reinterpret_cast<RecordObject*>(object); }

PyTypeObject* ObjectType(const RecordType* type) {
  for (const Made& made : Types())
    if (made.type == type) return made.object;
  return nullptr;
}

const RecordType* TypeFor(PyTypeObject* object) {
  for (const Made& made : Types())
    if (made.object == object) return made.type;
  return nullptr;
}

// A zeroed record, or a view of `memory` inside of `owner`. Null with an exception set where there is no
// memory.
RecordObject* Allocate(const RecordType& type, PyObject* owner, uint8_t* memory) {
  PyTypeObject* const objectType = ObjectType(&type);
  RecordObject* const self = Self(objectType->tp_alloc(objectType, 0));
  if (self == nullptr) return nullptr;
  self->type = &type;
  if (owner != nullptr) {
    self->owner = Py_NewRef(owner);
    self->memory = memory;
    return self;
  }
  self->memory = static_cast<uint8_t*>(PyMem_Calloc(1, type.size));
  if (self->memory != nullptr) return self;
  Py_DECREF(self);
  PyErr_NoMemory();
  return nullptr;
}

py::object AllocateOrThrow(const RecordType& type, PyObject* owner = nullptr, uint8_t* memory = nullptr) {
  RecordObject* const self = Allocate(type, owner, memory);
  if (self == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(reinterpret_cast<PyObject*>(self));
}

// Calls what may throw, from a slot that reports failure with a null.
template <class Call>
PyObject* Guarded(Call call) {
  try {
    return call().release().ptr();
  } catch (py::error_already_set& error) {
    error.restore();
  } catch (const py::builtin_exception& error) {
    error.set_error();
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const StreamFailure& failure) {
    try {
      const py::object type = py::module_::import("qlnutil.errors").attr("StreamError");
      PyErr_SetObject(type.ptr(), type("", failure.what(), failure.advice()).ptr());
    } catch (py::error_already_set& error) {
      error.restore();
    }
  } catch (const std::exception& error) {
    PyErr_SetString(PyExc_RuntimeError, error.what());
  }
  return nullptr;
}

uint64_t WordAt(const Field& field, const uint8_t* at) {
  uint64_t value = 0;
  std::memcpy(&value, at, field.bytes);
  return value;
}

size_t Dimensions(const Field& field) { return field.counts[0] == 0 ? 0 : field.counts[1] == 0 ? 1 : 2; }

size_t Entries(const Field& field, size_t from) {
  size_t entries = 1;
  for (size_t i = from; i < Dimensions(field); ++i) entries *= field.counts[i];
  return entries;
}

// ---- Reading
// -------------------------------------------------------------------------------------------------

py::object DictOf(const RecordType& type, const uint8_t* memory);

// A member's value from dimension `level` on: as attributes give it, or as plain lists and dicts.
py::object ValueOf(const Field& field, PyObject* owner, uint8_t* at, size_t level, bool plain) {
  if (level < Dimensions(field)) {
    const size_t stride = field.bytes * Entries(field, level + 1);
    py::list list(field.counts[level]);
    for (size_t i = 0; i < field.counts[level]; ++i)
      list[i] = ValueOf(field, owner, at + i * stride, level + 1, plain);
    return plain ? py::object(std::move(list)) : py::tuple(list);
  }
  if (field.record != nullptr)
    return plain ? DictOf(*field.record, at) : AllocateOrThrow(*field.record, owner, at);
  if (field.isSigned) return py::int_(static_cast<int32_t>(WordAt(field, at)));
  return py::int_(WordAt(field, at));
}

py::object DictOf(const RecordType& type, const uint8_t* memory) {
  py::dict dict;
  for (const Field& field : type.fields)
    dict[field.name] = ValueOf(field, nullptr, const_cast<uint8_t*>(memory) + field.offset, 0, true);
  return dict;
}

PyObject* Get(PyObject* object, void* closure) {
  const Field& field = *static_cast<const Field*>(closure);
  RecordObject* const self = Self(object);
  PyObject* const owner = self->owner != nullptr ? self->owner : object;
  return Guarded([&] { return ValueOf(field, owner, self->memory + field.offset, 0, false); });
}

// ---- Writing
// -------------------------------------------------------------------------------------------------

const Field& FieldOf(const RecordType& type, py::handle name) {
  const std::string text = py::str(name);
  for (const Field& field : type.fields)
    if (text == field.name) return field;
  throw py::attribute_error(std::string(type.name) + " has no element " + text);
}

void StoreNumber(const Field& field, uint8_t* at, py::handle value) {
  const auto number = py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr()));
  if (!number) throw py::error_already_set();
  const size_t bits = field.bytes * 8;
  uint64_t word = 0;
  bool fits = false;
  if (field.isSigned) {
    int overflow = 0;
    const int64_t wide = PyLong_AsLongLongAndOverflow(number.ptr(), &overflow);
    fits = overflow == 0 && wide >= INT32_MIN && wide <= INT32_MAX;
    word = static_cast<uint64_t>(wide);
  } else {
    word = PyLong_AsUnsignedLongLong(number.ptr());
    fits = PyErr_Occurred() == nullptr && (bits == 64 || word >> bits == 0);
    PyErr_Clear();
  }
  if (!fits) {
    PyErr_Format(PyExc_OverflowError, "%s holds %zu bits%s, not %R", field.name, bits,
                 field.isSigned ? " and a sign" : "", number.ptr());
    throw py::error_already_set();
  }
  std::memcpy(at, &word, field.bytes);
}

void Store(const Field& field, uint8_t* at, py::handle value, size_t level);

void StoreRecord(const RecordType& type, uint8_t* at, py::handle value) {
  if (Py_TYPE(value.ptr()) == ObjectType(&type)) {
    std::memmove(at, Self(value.ptr())->memory, type.size);
    return;
  }
  if (!PyMapping_Check(value.ptr()) || PySequence_Check(value.ptr()))
    if (!py::isinstance<py::dict>(value)) {
      PyErr_Format(PyExc_TypeError, "%s or a dict is wanted, not %s", type.name,
                   Py_TYPE(value.ptr())->tp_name);
      throw py::error_already_set();
    }
  const py::dict dict(py::reinterpret_borrow<py::object>(value));
  for (const auto& [name, inner] : dict) {
    const Field& field = FieldOf(type, name);
    Store(field, at + field.offset, inner, 0);
  }
}

void Store(const Field& field, uint8_t* at, py::handle value, size_t level) {
  if (level == Dimensions(field)) {
    if (field.record != nullptr) return StoreRecord(*field.record, at, value);
    return StoreNumber(field, at, value);
  }
  const auto list = py::reinterpret_steal<py::object>(PySequence_Tuple(value.ptr()));
  if (!list) throw py::error_already_set();
  const auto count = static_cast<size_t>(PyTuple_GET_SIZE(list.ptr()));
  if (count != field.counts[level]) {
    PyErr_Format(PyExc_ValueError, "%s has %zu entries, not %zu", field.name, field.counts[level], count);
    throw py::error_already_set();
  }
  const size_t stride = field.bytes * Entries(field, level + 1);
  for (size_t i = 0; i < count; ++i)
    Store(field, at + i * stride, PyTuple_GET_ITEM(list.ptr(), static_cast<Py_ssize_t>(i)), level + 1);
}

// All of a member or nothing: what an entry's own code does meanwhile cannot tear it.
void StoreWhole(const Field& field, uint8_t* memory, py::handle value) {
  std::vector<uint8_t> whole(field.bytes * Entries(field, 0));
  std::memcpy(whole.data(), memory + field.offset, whole.size());
  Store(field, whole.data(), value, 0);
  std::memcpy(memory + field.offset, whole.data(), whole.size());
}

int Set(PyObject* object, PyObject* value, void* closure) {
  const Field& field = *static_cast<const Field*>(closure);
  if (value == nullptr) {
    PyErr_Format(PyExc_AttributeError, "%s cannot be deleted", field.name);
    return -1;
  }
  PyObject* const done = Guarded([&]() -> py::object {
    StoreWhole(field, Self(object)->memory, value);
    return py::none();
  });
  Py_XDECREF(done);
  return done == nullptr ? -1 : 0;
}

// ---- The slots of the classes
// --------------------------------------------------------------------------------

PyObject* New(PyTypeObject* objectType, PyObject* arguments, PyObject* elements) {
  return Guarded([&]() -> py::object {
    if (PyTuple_GET_SIZE(arguments) != 0) throw py::type_error("elements are given by their names");
    const RecordType* const type = TypeFor(objectType);
    if (type == nullptr) throw py::type_error("no such record");
    py::object record = AllocateOrThrow(*type);
    if (elements == nullptr) return record;
    for (const auto& [name, value] : py::reinterpret_borrow<py::dict>(elements))
      StoreWhole(FieldOf(*type, name), Self(record.ptr())->memory, value);
    return record;
  });
}

void Free(PyObject* object) {
  RecordObject* const self = Self(object);
  PyTypeObject* const type = Py_TYPE(object);
  if (self->owner != nullptr) {
    Py_DECREF(self->owner);
  } else {
    PyMem_Free(self->memory);
  }
  type->tp_free(object);
  Py_DECREF(type);
}

PyObject* Compare(PyObject* left, PyObject* right, int operation) {
  if ((operation != Py_EQ && operation != Py_NE) || Py_TYPE(left) != Py_TYPE(right)) Py_RETURN_NOTIMPLEMENTED;
  const bool equal = std::memcmp(Self(left)->memory, Self(right)->memory, Self(left)->type->size) == 0;
  return PyBool_FromLong(equal == (operation == Py_EQ));
}

py::object Shown(const char* how, PyObject* object) {
  return py::module_::import("qlnutil._show").attr(how)(py::handle(object));
}
PyObject* Represent(PyObject* object) {
  return Guarded([&] { return Shown("record_text", object); });
}
PyObject* RepresentHtml(PyObject* object, PyObject*) {
  return Guarded([&] { return Shown("record_html", object); });
}
PyObject* ToDict(PyObject* object, PyObject*) {
  return Guarded([&] { return DictOf(*Self(object)->type, Self(object)->memory); });
}
PyObject* Copy(PyObject* object, PyObject*) {
  return Guarded([&] { return NewRecord(*Self(object)->type, Self(object)->memory); });
}
PyObject* Reduce(PyObject* object, PyObject*) {
  return Guarded([&]() -> py::object {
    const RecordObject* const self = Self(object);
    const py::object restore = py::module_::import("qlnutil._pickle").attr("restore");
    const py::handle type = reinterpret_cast<PyObject*>(Py_TYPE(object));
    return py::make_tuple(restore, py::make_tuple(type, BytesOf({self->memory, self->type->size})));
  });
}
PyObject* WriteOut(PyObject* object, PyObject*) {
  return Guarded([&]() -> py::object { return BytesOf(Self(object)->type->write(Self(object)->memory)); });
}

PyMethodDef kMethods[] = {
    {"to_dict", ToDict, METH_NOARGS,
     "to_dict()\n--\n\nAll elements by name, as numbers, lists and dicts; Record(**d) takes them back."},
    {"copy", Copy, METH_NOARGS, "copy()\n--\n\nA record of its own with the same elements."},
    {"__copy__", Copy, METH_NOARGS, nullptr},
    {"__deepcopy__", Copy, METH_O, nullptr},
    {"__reduce__", Reduce, METH_NOARGS, nullptr},
    {"_repr_html_", RepresentHtml, METH_NOARGS, "The elements as a table, for notebooks."},
    {nullptr, nullptr, 0, nullptr}};

PyMethodDef kWriter[] = {
    {"write", WriteOut, METH_NOARGS,
     "write()\n--\n\nThe record in the form in which streams and files hold it: of parameter sets a unit "
     "with\n"
     "emulation prevention, without start code or length. The record stays as it is. Raises StreamError\n"
     "where the elements make a unit that is too large."},
    {nullptr, nullptr, 0, nullptr}};

PyObject* MakeBase() {
  PyType_Slot slots[] = {
      {Py_tp_doc, const_cast<char*>("A record of the library, with an attribute for each "
                                    "element.\n\nNumbers are checked against the width "
                                    "of their word. Lists come as tuples and are assigned as "
                                    "a whole;\nrecords inside of a record are views of it.")},
      {Py_tp_methods, kMethods},
      {Py_tp_repr, reinterpret_cast<void*>(&Represent)},
      {Py_tp_richcompare, reinterpret_cast<void*>(&Compare)},
      {Py_tp_hash, reinterpret_cast<void*>(&PyObject_HashNotImplemented)},
      {Py_tp_dealloc, reinterpret_cast<void*>(&Free)},
      {0, nullptr}};
  PyType_Spec spec = {"qlnutil.Record", sizeof(RecordObject), 0,
                      Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_DISALLOW_INSTANTIATION, slots};
  return PyType_FromSpec(&spec);
}

PyObject* MakeClass(const RecordType& type, PyObject* base) {
  auto* const attributes = new std::vector<PyGetSetDef>;  // as long as the process, as the class
  for (const Field& field : type.fields)
    attributes->push_back({field.name, &Get, &Set, field.doc, const_cast<Field*>(&field)});
  attributes->push_back({});
  PyType_Slot slots[] = {{Py_tp_doc, const_cast<char*>(type.doc)},
                         {Py_tp_new, reinterpret_cast<void*>(&New)},
                         {Py_tp_getset, attributes->data()},
                         {Py_tp_methods, type.write != nullptr ? kWriter : kWriter + 1},
                         {0, nullptr}};
  auto* const name = new std::string(std::string(type.module) + "." + type.name);
  PyType_Spec spec = {name->c_str(), sizeof(RecordObject), 0, Py_TPFLAGS_DEFAULT, slots};
  return PyType_FromSpecWithBases(&spec, base);
}

py::object Restore(const py::object& objectType, const py::object& bytes) {
  const ByteView view(bytes);
  const RecordType* const type =
      PyType_Check(objectType.ptr()) ? TypeFor(reinterpret_cast<PyTypeObject*>(objectType.ptr())) : nullptr;
  if (type == nullptr || view.size() != type->size) throw py::value_error("no record of that class");
  return NewRecord(*type, view.data());
}

}  // namespace

void AddRecords(py::module_& module) {
  const auto base = py::reinterpret_steal<py::object>(MakeBase());
  if (!base) throw py::error_already_set();
  module.attr("Record") = base;
  for (const NamedType& named : AllRecordTypes()) {
    PyObject* const made = MakeClass(*named.type, base.ptr());
    if (made == nullptr) throw py::error_already_set();
    Types().push_back({named.type, reinterpret_cast<PyTypeObject*>(made)});
    module.attr(named.name) = py::handle(made);
  }
  module.def("restore_record", &Restore, "A record from the bytes of a pickle.");
}

py::object NewRecord(const RecordType& type, const void* record) {
  py::object object = AllocateOrThrow(type);
  std::memcpy(Self(object.ptr())->memory, record, type.size);
  return object;
}

void* RecordIn(py::handle object, const RecordType& type) {
  if (Py_TYPE(object.ptr()) != ObjectType(&type)) {
    PyErr_Format(PyExc_TypeError, "%s.%s is wanted, not %s", type.module, type.name,
                 Py_TYPE(object.ptr())->tp_name);
    throw py::error_already_set();
  }
  return Self(object.ptr())->memory;
}

}  // namespace qlnpython
