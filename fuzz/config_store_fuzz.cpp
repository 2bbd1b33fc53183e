// Store files as bytes: the first byte chooses a settings file in XML or the default store's database, and
// for the latter a journal or a log beside it; all are read, changed and saved.

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "kxutil/kxutil.h"

namespace {

void DropMessage(uint32_t, const char*, void*) {}

// Emptied for each input.
const std::string& ScratchFolder() {
  static const std::string folder = std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") +
                                    "/kxutil_fuzz_" + std::to_string(getpid());
  return folder;
}

void Write(const std::string& path, const uint8_t* data, size_t size) {
  std::FILE* const file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) std::abort();
  if (size != 0 && std::fwrite(data, 1, size, file) != size) std::abort();
  std::fclose(file);
}

std::vector<uint8_t> Read(const std::string& path) {
  std::FILE* const file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) std::abort();
  std::vector<uint8_t> bytes(std::filesystem::file_size(path));
  if (!bytes.empty() && std::fread(bytes.data(), 1, bytes.size(), file) != bytes.size()) std::abort();
  std::fclose(file);
  return bytes;
}

void ReadKey(KXConfigHandle store, const char* section, const char* key) {
  uint32_t number = 0;
  kxCFGValueDword(store, section, key, &number, 0);
  uint32_t size = 0;
  kxCFGValueString(store, section, key, nullptr, &size, 0);
  std::vector<char> text(size + 1);
  kxCFGValueString(store, section, key, text.data(), &size, 0);
}

bool Holds(KXConfigHandle store, uint32_t expected) {
  uint32_t number = ~expected;
  return kxCFGValueDword(store, "S", "K", &number, 0) == 0 && number == expected;
}

// What is told as done is there. Calls `done` behind each change that is.
template <typename Done>
void Use(KXConfigHandle store, const Done& done) {
  uint32_t number = 7;
  char text[] = "text";
  if (kxCFGValueDword(store, "S", "K", &number, 1) == 0) {
    if (!Holds(store, 7)) std::abort();
    done();
  }
  if (kxCFGBegin(store) != 0) std::abort();
  number = 8;
  kxCFGValueDword(store, "S", "K", &number, 1);
  kxCFGValueString(store, "Tarnwick\\MetaData\\Default", "Title", text, nullptr, 1);
  if (kxCFGEnd(store) == 0) {
    if (!Holds(store, 8)) std::abort();
    done();
  }
  ReadKey(store, "Tarnwick\\MetaData\\Default", "Title");
  ReadKey(store, "S", "K");
  if (kxCFGDeleteValue(store, "S", "K") == 0 && (Holds(store, 7) || Holds(store, 8))) std::abort();
}

void UseXml(const uint8_t* data, size_t size) {
  const std::string path = ScratchFolder() + "/User.xml";
  Write(path, data, size);
  const KXConfigHandle store = kxCFGOpen(path.c_str(), 0);
  if (store == 0) return;
  ReadKey(store, "Tarnwick\\MetaData\\Default", "Title");
  Use(store, [] {});
  kxCFGClose(store, 1);
  // What was saved opens again.
  const KXConfigHandle saved = kxCFGOpen(path.c_str(), 0);
  if (saved == 0) std::abort();
  kxCFGClose(saved, 0);
}

// The header's versions of writing and reading say that there is a log; that is worked in before a change,
// with the counters of changes.
bool SameButForTheLog(std::vector<uint8_t> a, std::vector<uint8_t> b) {
  for (auto* const bytes : {&a, &b}) {
    for (const size_t at : {18u, 19u, 24u, 25u, 26u, 27u, 92u, 93u, 94u, 95u, 96u, 97u, 98u, 99u}) {
      if (at < bytes->size()) (*bytes)[at] = 0;
    }
  }
  return a == b;
}

// With a journal or a log, two bytes say how much of the rest is the database.
void UseDatabase(unsigned kind, const uint8_t* data, size_t size) {
  const std::string path = ScratchFolder() + "/settings.db";
  size_t database = size;
  if (kind != 0 && size >= 2) {
    database = std::min<size_t>(size - 2, data[0] + 256u * data[1]);
    data += 2;
    size -= 2;
    Write(path + (kind == 1 ? "-journal" : "-wal"), data + database, size - database);
  }
  Write(path, data, database);
  kxCFGSetDefaultStore(path.c_str());
  // One process begins with a change, another has read.
  if (size % 2 != 0) ReadKey(KX_DEFAULT_STORE, "S", "K");
  std::vector<std::vector<uint8_t>> states = {{data, data + database}};
  Use(KX_DEFAULT_STORE, [&] { states.push_back(Read(path)); });
  kxCFGSetDefaultStore(nullptr);
  if (kind != 0) return;
  // A store that was set aside is as it came, or as a change left it that was told as done.
  for (const auto& entry : std::filesystem::directory_iterator(ScratchFolder())) {
    if (entry.path().filename().string().find(".damaged-") == std::string::npos) continue;
    const std::vector<uint8_t> aside = Read(entry.path());
    const auto isIt = [&](const std::vector<uint8_t>& state) { return SameButForTheLog(aside, state); };
    if (std::none_of(states.begin(), states.end(), isIt)) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  kxSetDiagnosticSink(DropMessage, nullptr);
  std::filesystem::create_directory(ScratchFolder());
  if ((data[0] & 1) == 0) {
    UseXml(data + 1, size - 1);
  } else {
    UseDatabase(data[0] >> 1 & 3u, data + 1, size - 1);
  }
  std::filesystem::remove_all(ScratchFolder());
  return 0;
}
