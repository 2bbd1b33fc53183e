// Store files as bytes: the first byte chooses a settings file in XML or the default store's database; both
// are read, changed and saved.

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "kxutil/kxutil.h"

namespace {

void DropMessage(uint32_t, const char*, void*) {}

std::string ScratchFile(const char* name) {
  const bool inMemory = access("/dev/shm", W_OK) == 0;
  return std::string(inMemory ? "/dev/shm/" : "/tmp/") + name + std::to_string(getpid());
}

void Write(const std::string& path, const uint8_t* data, size_t size) {
  std::FILE* const file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) std::abort();
  if (size != 0 && std::fwrite(data, 1, size, file) != size) std::abort();
  std::fclose(file);
}

void ReadKey(KXConfigHandle store, const char* section, const char* key) {
  uint32_t number = 0;
  kxCFGValueDword(store, section, key, &number, 0);
  uint32_t size = 0;
  kxCFGValueString(store, section, key, nullptr, &size, 0);
  std::vector<char> text(size + 1);
  kxCFGValueString(store, section, key, text.data(), &size, 0);
}

void Use(KXConfigHandle store) {
  ReadKey(store, "Tarnwick\\MetaData\\Default", "Title");
  ReadKey(store, "S", "K");
  uint32_t number = 7;
  char text[] = "text";
  const bool wrote = kxCFGValueDword(store, "S", "K", &number, 1) == 0;
  number = 0;
  if (wrote && (kxCFGValueDword(store, "S", "K", &number, 0) != 0 || number != 7)) std::abort();
  kxCFGValueString(store, "Tarnwick\\MetaData\\Default", "Title", text, nullptr, 1);
  kxCFGDeleteValue(store, "S", "K");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  kxSetDiagnosticSink(DropMessage, nullptr);
  if ((data[0] & 1) == 0) {
    const std::string path = ScratchFile("kxutil_fuzz_xml_");
    Write(path, data + 1, size - 1);
    const KXConfigHandle store = kxCFGOpen(path.c_str(), 0);
    if (store != 0) {
      Use(store);
      kxCFGClose(store, 1);
      // What was saved opens again.
      const KXConfigHandle saved = kxCFGOpen(path.c_str(), 0);
      if (saved == 0) std::abort();
      kxCFGClose(saved, 0);
    }
    unlink(path.c_str());
  } else {
    const std::string path = ScratchFile("kxutil_fuzz_db_");
    Write(path, data + 1, size - 1);
    kxCFGSetDefaultStore(path.c_str());
    Use(KX_DEFAULT_STORE);
    kxCFGSetDefaultStore(nullptr);
    unlink(path.c_str());
    unlink((path + "-journal").c_str());
  }
  return 0;
}
