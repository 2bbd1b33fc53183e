// The C library's allocation calls, seen from the program: libav leaves out what it finds no memory for, a
// tag or a stream's private data, and says nothing. Each call goes on to the next of its name, which may be
// that of an allocator that somebody put in front of the C library's; a failure is noted.

#include <dlfcn.h>
#include <stddef.h>

#include <cerrno>

#include "memory_watch.h"

namespace {

// What dlsym itself asks for while it looks, it does without.
constinit thread_local bool looking = false;

template <typename Function>
Function* Next(const char* name) {
  if (looking) return nullptr;
  looking = true;
  const auto found = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
  looking = false;
  return found;
}

void* Noted(void* block, size_t size) {
  if (block == nullptr && size != 0) qlnmedia::NoteMemoryRanOut();
  return block;
}

}  // namespace

#define QLNMEDIA_IN_FRONT extern "C" __attribute__((visibility("default")))

QLNMEDIA_IN_FRONT void* malloc(size_t size) {
  static void* (*next)(size_t) = nullptr;
  if (next == nullptr) next = Next<void*(size_t)>("malloc");
  return next == nullptr ? nullptr : Noted(next(size), size);
}

QLNMEDIA_IN_FRONT void* calloc(size_t count, size_t size) {
  static void* (*next)(size_t, size_t) = nullptr;
  if (next == nullptr) next = Next<void*(size_t, size_t)>("calloc");
  return next == nullptr ? nullptr : Noted(next(count, size), size);
}

QLNMEDIA_IN_FRONT void* realloc(void* block, size_t size) {
  static void* (*next)(void*, size_t) = nullptr;
  if (next == nullptr) next = Next<void*(void*, size_t)>("realloc");
  return next == nullptr ? nullptr : Noted(next(block, size), size);
}

QLNMEDIA_IN_FRONT int posix_memalign(void** block, size_t alignment, size_t size) {
  static int (*next)(void**, size_t, size_t) = nullptr;
  if (next == nullptr) next = Next<int(void**, size_t, size_t)>("posix_memalign");
  const int result = next == nullptr ? ENOMEM : next(block, alignment, size);
  if (result == ENOMEM) qlnmedia::NoteMemoryRanOut();
  return result;
}
