// Memory that is out for the library: what it allocates without throwing comes from here. One file of a test
// program includes this, and has to be the only one.
#ifndef TESTS_SUPPORT_NO_MEMORY_H
#define TESTS_SUPPORT_NO_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <new>

namespace qln::test {

inline int64_t allocationsLeft = -1;  // below 0: all succeed

// While one lives there is none, or none behind so many allocations.
class NoMemory {
 public:
  explicit NoMemory(int64_t allocations = 0) { allocationsLeft = allocations; }
  ~NoMemory() { allocationsLeft = -1; }
  NoMemory(const NoMemory&) = delete;
  NoMemory& operator=(const NoMemory&) = delete;
};

inline bool MemoryIsOut() {
  if (allocationsLeft > 0)
    --allocationsLeft;
  else if (allocationsLeft == 0)
    return true;
  return false;
}

}  // namespace qln::test

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return qln::test::MemoryIsOut() ? nullptr : ::operator new(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return qln::test::MemoryIsOut() ? nullptr : ::operator new[](size);
}

#endif
