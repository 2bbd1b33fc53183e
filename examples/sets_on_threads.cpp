// A pool of threads that read parameter sets and keep what they found in one store: sets_on_threads STORE.db
// FILE...
//
// Readers work on records of their own and need no lock; the default store belongs to all threads, and a
// group of changes to the thread that began it.
#include <kxutil/kxutil.h>
#include <qlnutil/helpers.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace {

// What stands in the store for a file: its profile and level, as numbers of one key each.
bool Keep(const std::string& file, uint32_t profile, uint32_t level) {
  const std::string section = "Tarnwick\\Examples\\" + file;
  if (kxCFGBegin(KX_DEFAULT_STORE) != 0) return false;
  kxCFGValueDword(KX_DEFAULT_STORE, section.c_str(), "Profile", &profile, KX_CONFIG_WRITE);
  kxCFGValueDword(KX_DEFAULT_STORE, section.c_str(), "Level", &level, KX_CONFIG_WRITE);
  return kxCFGEnd(KX_DEFAULT_STORE) == 0;  // both at once, and on disk, or neither
}

bool ReadAndKeep(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  // What the readers have to say of this file, apart from what other threads read.
  std::string said;
  const qlnutil::DiagnosticScope scope([&](uint32_t, const char* text) { said += text; });
  for (const qlnutil::NalUnit& unit : qlnutil::StartCodeUnits(bytes.data(), bytes.size())) {
    if (const auto sps = qlnutil::ReadH264Sps(unit.data, unit.size)) {
      return Keep(file, sps->profile_idc, sps->level_idc);
    }
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: sets_on_threads STORE.db FILE.h264...\n");
    return 2;
  }
  kxCFGSetDefaultStore(argv[1]);  // before any thread uses it
  const std::vector<std::string> files(argv + 2, argv + argc);
  std::atomic<size_t> next{0}, failed{0};
  std::vector<std::thread> pool;
  for (int i = 0; i < 4; ++i) {
    pool.emplace_back([&] {
      for (size_t at = next++; at < files.size(); at = next++) {
        if (!ReadAndKeep(files[at])) ++failed;
      }
    });
  }
  for (std::thread& thread : pool) thread.join();

  for (const std::string& file : files) {
    const std::string section = "Tarnwick\\Examples\\" + file;
    uint32_t profile = 0, level = 0;
    if (kxCFGValueDword(KX_DEFAULT_STORE, section.c_str(), "Profile", &profile, KX_CONFIG_READ) != 0)
      continue;
    kxCFGValueDword(KX_DEFAULT_STORE, section.c_str(), "Level", &level, KX_CONFIG_READ);
    std::printf("%s: profile %u, level %u\n", file.c_str(), profile, level);
  }
  return failed == 0 ? 0 : 1;
}
