// Stands in front of the timecode service: writes down every call and passes it on.
#ifndef TESTS_MEDIACMD_TIMECODE_CALLS_H
#define TESTS_MEDIACMD_TIMECODE_CALLS_H

#include <cstddef>
#include <string>
#include <vector>

namespace qln::test {

// Collects the calls while it lives: "100 0x32108" for a text that is made, "01:00 0x104" for one that is
// read.
class TimecodeCalls {
 public:
  TimecodeCalls();
  ~TimecodeCalls();
  TimecodeCalls(const TimecodeCalls&) = delete;
  TimecodeCalls& operator=(const TimecodeCalls&) = delete;

  // Texts that are made have this many characters and no end, from here on.
  static void MakeEndless(size_t characters);

  // What was collected since the last time.
  std::vector<std::string> Take();
};

}  // namespace qln::test

#endif
