// A host whose utility layer has no groups of changes: the library finds none and writes without. The program
// defines what is called; for the other names a stand-in is loaded in the place of the utility layer.

#include <dlfcn.h>

#include <cstring>
#include <map>
#include <string>

#include "hosts/host.h"
#include "kxutil/kxutil.h"
#include "qlnutil/qlninfo.h"

namespace {

// Never destroyed, as the library may be used to the end.
std::map<std::string, std::string>& Texts() {
  static auto* const texts = new std::map<std::string, std::string>;
  return *texts;
}
int numbers = 0, removals = 0;

}  // namespace

void* KXAlloc(size_t size) { return std::malloc(size); }
void KXFree(void* block) { std::free(block); }
size_t KXAllocSize(const void*) { return 0; }
void kxOSCopyMemory(void* destination, const void* source, uint32_t count) {
  std::memcpy(destination, source, count);
}
void kxOSZeroMemory(void* destination, uint32_t count) { std::memset(destination, 0, count); }
void CopyMemoryFast(void* destination, const void* source, uint32_t count) {
  std::memcpy(destination, source, count);
}
void ZeroMemoryFast(void* destination, uint32_t count) { std::memset(destination, 0, count); }

int32_t kxCFGValueDword(KXConfigHandle, const char*, const char*, uint32_t*, uint32_t mode) {
  if (mode == 0) return -1;
  ++numbers;
  return 0;
}
int32_t kxCFGValueString(KXConfigHandle, const char*, const char* key, char* buffer, uint32_t*,
                         uint32_t mode) {
  if (mode == 1) Texts()[key] = buffer;
  return mode == 1 ? 0 : -1;
}
int32_t kxCFGDeleteValue(KXConfigHandle, const char*, const char*) {
  ++removals;
  return 0;
}

int main() {
  QLNInfo info = {};
  auto* const read = QLNUTIL_CALL(qlnInfoReadReg);
  auto* const forget = QLNUTIL_CALL(qlnInfoDelete);
  // What was loaded has no such names, or this test would show nothing.
  HOST_CHECK(dlsym(RTLD_DEFAULT, "kxCFGBegin") == nullptr);
  void* const layer = dlopen("libkxutil.so.1", RTLD_NOW | RTLD_NOLOAD);
  HOST_CHECK(layer != nullptr && dlsym(layer, "kxCFGBegin") == nullptr);
  HOST_CHECK(dlsym(layer, "kxCFGOpen") != nullptr);

  forget(&info);
  info.Title = static_cast<char*>(KXAlloc(5));
  std::memcpy(info.Title, "Dawn", 5);
  info.FileSize = 12;
  read(&info, 1, 0);  // seeds this host's store
  HOST_CHECK(Texts().size() == 1 && Texts()["Title"] == "Dawn");
  HOST_CHECK(numbers == 5 && removals == 92 + 44);  // four numbers begin as 0
  forget(&info);
  return 0;
}
