// A host with memory, files and diagnostics of its own: a settings file that exists in this program only is
// read and written by the utility layer's store through them, and its complaints arrive here.

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>

#include "hosts/host.h"
#include "kxutil/kxutil.h"
#include "qlnutil/qlninfo.h"

namespace {

constexpr char kFileName[] = "/nowhere/at/all.xml";
constexpr KXFileHandle kHandle = 77;

std::string fileText;
size_t position = 0;
uint32_t lastError = 0;
int blocks = 0, allocations = 0;
int opened = 0, closed = 0, reads = 0, sizes = 0, lookups = 0;
int errors = 0, warnings = 0, debugTexts = 0;
std::string lastMessage;

}  // namespace

void* KXAlloc(size_t size) {
  ++blocks;
  ++allocations;
  return std::malloc(size);
}
void KXFree(void* block) {
  --blocks;
  std::free(block);
}

KXFileHandle kxOSCreateFile(const char* path, uint32_t access, uint32_t, void*, uint32_t, uint32_t, void*) {
  if (std::strcmp(path, kFileName) != 0 || access != KX_ACCESS_READ) {
    lastError = ENOENT;
    return KX_INVALID_FILE_HANDLE;
  }
  ++opened;
  position = 0;
  lastError = 0;
  return kHandle;
}
int32_t kxOSCloseFile(KXFileHandle handle) {
  ++closed;
  return handle == kHandle;
}
int32_t kxOSReadFile(KXFileHandle handle, void* buffer, uint32_t count, uint32_t* bytesRead, void*) {
  ++reads;
  const size_t left = fileText.size() - position;
  *bytesRead = static_cast<uint32_t>(left < count ? left : count);
  std::memcpy(buffer, fileText.data() + position, *bytesRead);
  position += *bytesRead;
  return handle == kHandle;
}
int32_t kxOSWriteFile(KXFileHandle, const void*, uint32_t, uint32_t*, void*) { return 0; }
uint64_t kxOSSeek(KXFileHandle, uint64_t offset) { return offset; }
uint32_t kxOSGetFileSize(KXFileHandle, void*) { return static_cast<uint32_t>(fileText.size()); }
int32_t kxOSGetFileSizeEx(KXFileHandle, uint64_t* size) {
  ++sizes;
  *size = fileText.size();
  return 1;
}
int32_t kxOSFileExists(const char*) {
  ++lookups;
  return 0;
}
uint32_t kxOSGetLastError() { return lastError; }

void ErrOut(const char* format, ...) {
  char text[1000];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  lastMessage = text;
  ++errors;
}
void ErrFmtOut(uint32_t, uint32_t, uint32_t, const char*, ...) { ++warnings; }
void OutputDebugStringA(const char*) { ++debugTexts; }

int main() {
  // From inside libkxutil: the store's file comes through the calls above.
  fileText = "<settings><section path='S'><value key='K' number='9'/></section></settings>";
  const KXConfigHandle store = KXUTIL_CALL(kxCFGOpen)(kFileName, 0);
  HOST_CHECK(store != 0);
  HOST_CHECK(opened == 1 && sizes == 1 && reads == 1 && closed == 1);
  HOST_CHECK(allocations == 1 && blocks == 0);
  uint32_t value = 0;
  HOST_CHECK(KXUTIL_CALL(kxCFGValueDword)(store, "S", "K", &value, 0) == 0 && value == 9);
  HOST_CHECK(KXUTIL_CALL(kxCFGClose)(store, 0) == 0);

  fileText = "no document";
  HOST_CHECK(KXUTIL_CALL(kxCFGOpen)(kFileName, 0) == 0);
  HOST_CHECK(errors == 1 && lastMessage.find(kFileName) != std::string::npos);
  HOST_CHECK(blocks == 0);

  // From inside libqlnutil: blocks of this host, whose sizes nobody else knows.
  QLNInfo source = {}, destination = {};
  source.Title = static_cast<char*>(KXAlloc(5));
  std::memcpy(source.Title, "Dawn", 5);
  allocations = 0;
  QLNUTIL_CALL(qlnInfoSet)(&destination, &source);
  HOST_CHECK(allocations == 1 && std::strcmp(destination.Title, "Dawn") == 0);
  QLNUTIL_CALL(qlnInfoReadReg)(&destination, 0, 1);
  HOST_CHECK(lookups == 1);
  QLNUTIL_CALL(qlnInfoDelete)(&source);
  QLNUTIL_CALL(qlnInfoDelete)(&destination);
  HOST_CHECK(blocks == 0);
  HOST_CHECK(warnings == 0 && debugTexts == 0);
  return 0;
}
