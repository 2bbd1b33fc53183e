// Project documents as bytes: loaded, read, changed and written, with files that exist or not as the input
// says.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kxutil/kxutil.h"
#include "qlnutil/kxprojecttoxml.h"

namespace {

uint8_t fate;  // one bit for each question

bool NextAnswer() {
  const bool answer = (fate & 1u) != 0;
  fate = static_cast<uint8_t>(fate >> 1 | (answer ? 0x80u : 0u));
  return answer;
}

void Check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

// No file is looked for or made in earnest.
int32_t kxOSFileExists(const char* path) { return *path != '\0' && NextAnswer(); }
KXFileHandle kxOSCreateFile(const char* path, uint32_t, uint32_t, void*, uint32_t, uint32_t, void*) {
  Check(std::strlen(path) < KX_PATH_SIZE);
  return NextAnswer() ? 1 : KX_INVALID_FILE_HANDLE;
}
int32_t kxOSCloseFile(KXFileHandle) { return 1; }
int32_t kxOSWriteFile(KXFileHandle, const void* buffer, uint32_t count, uint32_t* bytes_written, void*) {
  Check(count != 0 && std::memchr(buffer, 0, count) == nullptr);
  *bytes_written = count;
  return 1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  fate = data[0];
  const int descriptor = memfd_create("project", MFD_CLOEXEC);
  Check(descriptor >= 0 && write(descriptor, data + 1, size - 1) == static_cast<ssize_t>(size - 1));

  CKXProjectToXML project;
  project.LoadXMLFile(("/proc/self/fd/" + std::to_string(descriptor)).c_str());
  close(descriptor);
  char text[KX_PATH_SIZE];
  project.GetClipFile(text);
  project.GetEDLName(text);
  project.GetConfigString("A", text);
  project.GetConfigDWORD("A");

  // Whatever was loaded, a setter works.
  const std::string value(reinterpret_cast<const char*>(data) + 1,
                          strnlen(reinterpret_cast<const char*>(data) + 1, std::min(size - 1, size_t{200})));
  if (project.SetConfigString("A", value.c_str()) == 0) {
    project.GetConfigString("A", text);
    Check(value == text);
  }
  project.SetClipFile(value.substr(0, 100).c_str());
  project.SetXMLName("/dev/null");
  project.SaveXMLFile();
  return 0;
}
