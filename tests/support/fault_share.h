// What a run with a fault leaves for whoever asked for it, in a file that both have mapped.
#ifndef TESTS_SUPPORT_FAULT_SHARE_H
#define TESTS_SUPPORT_FAULT_SHARE_H

#include <cstddef>
#include <cstdint>

namespace qln::test {

inline constexpr size_t kMostMarks = size_t{1} << 20;

struct FaultShare {
  uint64_t count;
  uint64_t fired;
  char where[4096];  // of the fault: a line a caller, object and offset
  uint64_t marks[kMostMarks];
};

// Null where nobody asked.
extern FaultShare* faultShare;

}  // namespace qln::test

#endif
