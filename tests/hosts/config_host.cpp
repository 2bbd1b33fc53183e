// A host with a configuration store of its own: the library reads and writes there. It has no groups of
// changes; the utility layer's, which are found instead, must then do nothing.

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "hosts/host.h"
#include "kxutil/kxutil.h"
#include "qlnutil/qlninfo.h"

namespace {

std::map<std::string, std::string>& Texts() {
  static std::map<std::string, std::string> texts;
  return texts;
}
std::map<std::string, uint32_t>& Numbers() {
  static std::map<std::string, uint32_t> numbers;
  return numbers;
}
std::string Name(const char* section, const char* key) { return std::string(section) + "|" + key; }

}  // namespace

KXConfigHandle kxCFGOpen(const char*, uint32_t) { return 0; }
int32_t kxCFGClose(KXConfigHandle, uint32_t) { return 0; }
int32_t kxCFGValueDword(KXConfigHandle handle, const char* section, const char* key, uint32_t* value,
                        uint32_t mode) {
  HOST_CHECK(handle == KX_DEFAULT_STORE);
  if (mode == 1) {
    Numbers()[Name(section, key)] = *value;
    return 0;
  }
  const auto found = Numbers().find(Name(section, key));
  if (found == Numbers().end()) return -1;
  if (value != nullptr) *value = found->second;
  return 0;
}
int32_t kxCFGValueString(KXConfigHandle handle, const char* section, const char* key, char* buffer,
                         uint32_t* size, uint32_t mode) {
  HOST_CHECK(handle == KX_DEFAULT_STORE);
  if (mode == 1) {
    Texts()[Name(section, key)] = buffer;
    return 0;
  }
  const auto found = Texts().find(Name(section, key));
  *size = found != Texts().end() ? static_cast<uint32_t>(found->second.size()) + 1 : 0;
  if (found == Texts().end()) return -1;
  if (buffer != nullptr) std::memcpy(buffer, found->second.c_str(), *size);
  return 0;
}
int32_t kxCFGDeleteValue(KXConfigHandle, const char* section, const char* key) {
  Texts().erase(Name(section, key));
  Numbers().erase(Name(section, key));
  return 0;
}
void kxCFGSetDefaultStore(const char*) {}

int main() {
  // Where the utility layer's own default store would stand.
  char folder[] = "/tmp/config_host.XXXXXX";
  HOST_CHECK(mkdtemp(folder) != nullptr);
  HOST_CHECK(setenv("XDG_CONFIG_HOME", folder, 1) == 0);
  const auto alloc = &KXUTIL_CALL(KXAlloc);
  QLNInfo info = {};
  info.Title = static_cast<char*>(alloc(5));
  std::memcpy(info.Title, "Dawn", 5);
  info.FileSize = 12;
  QLNUTIL_CALL(qlnInfoReadReg)(&info, 1, 0);  // seeds this host's store
  HOST_CHECK(Texts()["Tarnwick\\MetaData\\Default|Title"] == "Dawn");
  HOST_CHECK(Numbers()["Tarnwick\\MetaData\\Default|FileSize"] == 12);

  Numbers()["Tarnwick\\MetaData|XMLDisable"] = 0;
  Texts()["Tarnwick\\MetaData\\Default|Title"] = "Dusk";
  QLNUTIL_CALL(qlnInfoReadReg)(&info, 1, 0);
  HOST_CHECK(std::strcmp(info.Title, "Dusk") == 0);
  QLNUTIL_CALL(qlnInfoWriteReg)(&info, 1, 0);
  QLNUTIL_CALL(qlnInfoDelete)(&info);
  HOST_CHECK(rmdir(folder) == 0);  // nothing stands in it
  return 0;
}
