// A note a thread, taken by the handler that C++ calls in front of each failure.

#include "memory_watch.h"

#include <new>

namespace qlnmedia {

namespace {

constinit thread_local bool ranOut = false;
// Of a size that is there before memory runs out.
char lineSaid[128] = "out of memory";

[[noreturn]] void Note() {
  NoteMemoryRanOut();
  throw std::bad_alloc();
}

}  // namespace

const char* MemoryLine() noexcept { return lineSaid; }

void SetMemoryLine(const std::string& text) { lineSaid[text.copy(lineSaid, sizeof lineSaid - 1)] = 0; }

void WatchMemory() { std::set_new_handler(Note); }

void NoteMemoryRanOut() noexcept { ranOut = true; }
bool MemoryRanOut() noexcept { return ranOut; }
void ForgetMemory() noexcept { ranOut = false; }

void RequireMemory() {
  if (ranOut) throw std::bad_alloc();
}

}  // namespace qlnmedia
