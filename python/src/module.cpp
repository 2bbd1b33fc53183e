// qlnutil._core: what the modules of the package stand on.

#include "module.h"

#include "failure.h"
#include "records.h"

PYBIND11_MODULE(_core, module) {
  module.doc() = "The library and the engine, as the modules of the package qlnutil take them.";
  qlnpython::RegisterFailures();
  qlnpython::AddRecords(module);
  qlnpython::AddStreams(module);
  qlnpython::AddFiles(module);
  qlnpython::AddEditor(module);
  qlnpython::AddValues(module);
  qlnpython::AddFormats(module);
  qlnpython::AddTransport(module);
}
