// The replaced timecode service.

#include "mediacmd/timecode_calls.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <utility>

#include "timecode/kxtimecode.h"

namespace qln::test {
namespace {

bool isCollecting = false;
size_t endless = 0;
std::vector<std::string>& Collected() {
  static std::vector<std::string> calls;
  return calls;
}

void Note(const std::string& what, uint32_t flags) {
  if (!isCollecting) return;
  char text[16];
  std::snprintf(text, sizeof text, " 0x%X", flags);
  Collected().push_back(what + text);
}

}  // namespace

TimecodeCalls::TimecodeCalls() { isCollecting = true; }
TimecodeCalls::~TimecodeCalls() {
  isCollecting = false;
  endless = 0;
  Collected().clear();
}
void TimecodeCalls::MakeEndless(size_t characters) { endless = characters; }
std::vector<std::string> TimecodeCalls::Take() { return std::exchange(Collected(), {}); }

}  // namespace qln::test

int32_t TimeCodeToString(uint32_t timecode, uint32_t flags, char* output) {
  static const auto real =
      reinterpret_cast<decltype(&TimeCodeToString)>(dlsym(RTLD_NEXT, "TimeCodeToString"));
  qln::test::Note(std::to_string(timecode), flags);
  if (qln::test::endless != 0) {
    std::memset(output, '7', qln::test::endless);
    return 0;
  }
  return real(timecode, flags, output);
}

int32_t TimeCodeFromString(const char* text, uint32_t flags, uint32_t* timecode) {
  static const auto real =
      reinterpret_cast<decltype(&TimeCodeFromString)>(dlsym(RTLD_NEXT, "TimeCodeFromString"));
  qln::test::Note(text, flags);
  return real(text, flags, timecode);
}
