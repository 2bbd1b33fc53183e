// 64 threads at once through the whole surface of the library: what it says of foreign bytes, by the fuzz
// targets over their seeds, and everything else by hand, where each thread gets what one alone gets.
// check_surface.py sees to it that no exported name is left out. It is worth most under ThreadSanitizer.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "kxutil/kxutil.h"
#include "support/temporary_folder.h"
#include "support/test_support.h"
#include "threads/hand_calls.h"

#define QLN_TARGET(name) extern "C" int qlnTarget_##name(const uint8_t* data, size_t size);
#include "threads/fuzz_targets.inc"
#undef QLN_TARGET

namespace qln::test {
namespace {

namespace fs = std::filesystem;

constexpr uint32_t kThreads = 64;

struct Target {
  const char* name;
  int (*run)(const uint8_t* data, size_t size);
};
constexpr Target kTargets[] = {
#define QLN_TARGET(name) {#name, qlnTarget_##name},
#include "threads/fuzz_targets.inc"
#undef QLN_TARGET
};

struct Seed {
  const Target* target;
  Bytes bytes;
};

std::vector<Seed> AllSeeds() {
  std::vector<Seed> seeds;
  for (const Target& target : kTargets) {
    for (const auto& entry : fs::directory_iterator(fs::path(QLN_FUZZ_CORPUS) / target.name)) {
      std::ifstream file(entry.path(), std::ios::binary);
      seeds.push_back({&target, Bytes(std::istreambuf_iterator<char>(file), {})});
    }
  }
  return seeds;
}

void DropMessage(uint32_t, const char*, void*) {}

int Seconds() {
  const char* const asked = std::getenv("QLN_THREADS_SECONDS");
  return asked != nullptr ? std::atoi(asked) : 3;
}

TEST(SurfaceThreads, GiveWhatOneAloneGives) {
  const TemporaryFolder folder;
  kxCFGSetDefaultStore((folder / "settings.db").c_str());
  kxSetDiagnosticSink(DropMessage, nullptr);
  const std::vector<Seed> seeds = AllSeeds();
  ASSERT_GT(seeds.size(), std::size(kTargets));
  const std::string expected = PureCalls();
  std::atomic<uint64_t> runs = 0, rounds = 0;
  std::atomic<bool> differs = false;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(Seconds());
  const auto work = [&](uint32_t number) {
    Random random(number);
    // Each begins elsewhere, and comes around again where there is time.
    while (std::chrono::steady_clock::now() < end && !differs) {
      if (PureCalls() != expected || !KeepingCalls(folder.path(), number)) differs = true;
      ++rounds;
      for (int i = 0; i < 50 && std::chrono::steady_clock::now() < end; ++i, ++runs) {
        const Seed& seed = seeds[static_cast<size_t>(random.below(seeds.size()))];
        // Cut where no seed is: a copy of its own of just these bytes.
        const size_t bytes = random.below(2) == 0 ? seed.bytes.size() : random.below(seed.bytes.size() + 1);
        Bytes copy(seed.bytes.begin(), seed.bytes.begin() + static_cast<std::ptrdiff_t>(bytes));
        copy.shrink_to_fit();
        std::unique_lock<std::mutex> lock(SpeedRun(), std::defer_lock);
        if (seed.target->name == std::string_view("transport")) lock.lock();
        seed.target->run(copy.data(), copy.size());
      }
    }
  };
  std::vector<std::thread> threads;
  for (uint32_t i = 0; i < kThreads; ++i) threads.emplace_back(work, i);
  for (std::thread& thread : threads) thread.join();
  kxSetDiagnosticSink(nullptr, nullptr);
  kxCFGSetDefaultStore(nullptr);
  EXPECT_FALSE(differs);
  EXPECT_GE(rounds, kThreads);
  std::printf("threads: %u for %d s: %llu rounds of all calls, %llu inputs of %zu fuzz targets\n", kThreads,
              Seconds(), static_cast<unsigned long long>(rounds), static_cast<unsigned long long>(runs),
              std::size(kTargets));
}

}  // namespace
}  // namespace qln::test
