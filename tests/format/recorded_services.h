// Stand-ins for what the library imports: the timecode service, the fourcc classes and the configuration
// store as this test program defines them. They record their calls and pass them on to the real ones unless a
// test has set an answer.
#ifndef TESTS_FORMAT_RECORDED_SERVICES_H
#define TESTS_FORMAT_RECORDED_SERVICES_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace qln::test {

struct RecordedServices {
  // One line a call, such as "TimeCodeToString 100 0x32108".
  std::vector<std::string> calls;
  // Where set, these answer in place of the real service.
  std::function<int32_t(uint32_t timecode, char* output)> timeCodeToString;
  std::function<int32_t(const char* text, uint32_t* timecode)> timeCodeFromString;
  std::function<int32_t(const std::string& name)> fourccClass;
  // What the configuration store holds under any key; nothing where not set. The user's own store is never
  // touched.
  std::optional<uint32_t> storedDword;
  // Where set, calls reach the real store: the test has given it a file of its own.
  bool asksRealStore = false;
};

// The calls and answers of the running test; empty at its start by ResetServices.
RecordedServices& Services();
void ResetServices();

}  // namespace qln::test

#endif
