// The replaced allocators: the utility layer's and the language's, which pass everything on but one.

#include "mediacmd/allocations.h"

#include <dlfcn.h>

#include <cstdlib>
#include <new>

#include "kxutil/kxutil.h"

namespace qln::test {
namespace {

thread_local int failCountdown = -1;
thread_local bool failed = false;
bool refusesBase64 = false;

bool FailsNow() {
  if (failCountdown < 0) return false;
  failed = failCountdown == 0;
  --failCountdown;
  return failed;
}

void* New(size_t size) { return FailsNow() ? nullptr : std::malloc(size != 0 ? size : 1); }

}  // namespace

FailAllocation::FailAllocation(int countdown) {
  failCountdown = countdown;
  failed = false;
}
FailAllocation::~FailAllocation() { failCountdown = -1; }
bool FailAllocation::hasFailed() const { return failed; }
RefuseBase64::RefuseBase64() { refusesBase64 = true; }
RefuseBase64::~RefuseBase64() { refusesBase64 = false; }

}  // namespace qln::test

using qln::test::FailsNow;

void* KXAlloc(size_t size) {
  static const auto real = reinterpret_cast<decltype(&KXAlloc)>(dlsym(RTLD_NEXT, "KXAlloc"));
  return FailsNow() ? nullptr : real(size);
}
void KXFree(void* block) {
  static const auto real = reinterpret_cast<decltype(&KXFree)>(dlsym(RTLD_NEXT, "KXFree"));
  real(block);
}

int32_t base64_encode(const void* source, uint32_t length, uint32_t* size, char* output) {
  static const auto real = reinterpret_cast<decltype(&base64_encode)>(dlsym(RTLD_NEXT, "base64_encode"));
  return qln::test::refusesBase64 ? -1 : real(source, length, size, output);
}

void* operator new(size_t size) {
  if (void* const block = qln::test::New(size)) return block;
  throw std::bad_alloc();
}
void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return qln::test::New(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return qln::test::New(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }
void operator delete[](void* block, size_t) noexcept { std::free(block); }
