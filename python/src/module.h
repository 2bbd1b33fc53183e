// The parts of the extension, one a file.
#ifndef QLNPYTHON_MODULE_H
#define QLNPYTHON_MODULE_H

#include <pybind11/pybind11.h>

namespace qlnpython {

void AddStreams(pybind11::module_& module);    // parameter sets, frames, configuration records
void AddFiles(pybind11::module_& module);      // media files
void AddEditor(pybind11::module_& module);     // streams in memory
void AddValues(pybind11::module_& module);     // captions, commands, clip information
void AddFormats(pybind11::module_& module);    // formats, rates, timecodes
void AddTransport(pybind11::module_& module);  // speeds, positions, counters

}  // namespace qlnpython

#endif
