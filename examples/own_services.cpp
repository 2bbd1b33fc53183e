// A host with services of its own: diagnostics go where it wants them, and the library's file calls are
// answered by the host, here out of memory. own_services prints what the library read and what it said.
#include <kxutil/kxutil.h>
#include <qlnutil/kxdiskcache.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

// The only file of this host.
const std::string kClip = "a clip that is nowhere on disk";
constexpr KXFileHandle kHandle = 42;
uint64_t position = 0;
uint32_t lastError = 0;

}  // namespace

// A host that brings file calls brings all of them; they are found in place of the utility layer's.
KXFileHandle kxOSCreateFile(const char* path, uint32_t access, uint32_t, void*, uint32_t, uint32_t, void*) {
  const bool known = std::strcmp(path, "host:clip") == 0 && access == KX_ACCESS_READ;
  lastError = known ? 0 : 2;
  position = 0;
  return known ? kHandle : KX_INVALID_FILE_HANDLE;
}
int32_t kxOSCloseFile(KXFileHandle handle) { return handle == kHandle; }
int32_t kxOSReadFile(KXFileHandle, void* buffer, uint32_t count, uint32_t* bytesRead, void*) {
  const uint64_t left = kClip.size() - std::min<uint64_t>(position, kClip.size());
  const uint32_t taken = static_cast<uint32_t>(std::min<uint64_t>(count, left));
  std::memcpy(buffer, kClip.data() + position, taken);
  position += taken;
  if (bytesRead != nullptr) *bytesRead = taken;
  return 1;
}
int32_t kxOSWriteFile(KXFileHandle, const void*, uint32_t, uint32_t*, void*) { return 0; }
uint64_t kxOSSeek(KXFileHandle, uint64_t offset) { return position = offset; }
uint32_t kxOSGetFileSize(KXFileHandle, void*) { return static_cast<uint32_t>(kClip.size()); }
int32_t kxOSGetFileSizeEx(KXFileHandle, uint64_t* size) {
  *size = kClip.size();
  return 1;
}
int32_t kxOSFileExists(const char* path) { return std::strcmp(path, "host:clip") == 0; }
uint32_t kxOSGetLastError() { return lastError; }

int main() {
  kxSetDiagnosticSink([](uint32_t severity, const char* text,
                         void*) { std::printf("diagnostic %08X: %s\n", severity, text); },
                      nullptr);
  ErrOut("the host is listening");

  // The read cache does all its reading through the calls above.
  const KXFileHandle file =
      kxOSCreateFile("host:clip", KX_ACCESS_READ, KX_SHARE_READ, nullptr, KX_OPEN_EXISTING, 0, nullptr);
  CKXDiskCache cache;
  if (file == KX_INVALID_FILE_HANDLE || cache.SetHandleAndCacheSize(file, 4096, false) != 0) return 1;
  char text[5] = {};
  uint32_t delivered = 0;
  if (cache.Read(text, 2, 4, &delivered, QLN_CACHE_TO_FILE_END) != 0 || delivered != 4) return 1;
  std::printf("read: %s\n", text);
  kxOSCloseFile(file);
  kxSetDiagnosticSink(nullptr, nullptr);
  return 0;
}
