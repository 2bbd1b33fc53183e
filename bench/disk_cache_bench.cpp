// The read cache with a window of 64 KiB beside a mapped file and the usual ways of reading one: small reads
// inside the window, from front to back, and in clusters.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "bench_support.h"
#include "qlnutil/kxdiskcache.h"

namespace {

using qln::bench::Bytes;
using qln::bench::Require;

constexpr size_t kFileSize = size_t{64} << 20;
constexpr uint32_t kWindow = 65536;
constexpr uint32_t kSmall = 16;

struct Place {
  uint64_t position;
  uint32_t length;
};

// The file, which stays in the system's own cache throughout.
struct File {
  std::string path = std::string(QLN_BENCH_DATA) + "/read_cache.bin";
  Bytes bytes = qln::bench::CodedLikeBytes(kFileSize);
  File() {
    std::filesystem::create_directories(QLN_BENCH_DATA);
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    Require(file.good(), "a file to read");
  }
};

const File& TheFile() {
  static const File file;
  return file;
}

// Anywhere in one window in the middle of the file.
std::vector<Place> InsideTheWindow() {
  std::mt19937 random(1);
  std::vector<Place> places(65536);
  for (Place& place : places) place = {kFileSize / 2 + random() % (kWindow - kSmall - 1), kSmall};
  return places;
}

// The whole file from front to back.
std::vector<Place> FrontToBack(uint32_t length) {
  std::vector<Place> places;
  for (uint64_t position = 0; position < kFileSize; position += length) places.push_back({position, length});
  return places;
}

// 256 reads of 16 to 4096 bytes, the small ones more frequent, inside 48 KiB; then somewhere else.
std::vector<Place> Clusters() {
  std::mt19937 random(2);
  std::vector<Place> places;
  for (int cluster = 0; cluster < 64; ++cluster) {
    const uint64_t base = random() % (kFileSize - kWindow) / 4096 * 4096;
    for (int i = 0; i < 256; ++i) {
      const uint32_t size = kSmall << random() % 9;
      const uint32_t length = i == 0 ? kSmall : size + static_cast<uint32_t>(random() % size);
      places.push_back({base + (i == 0 ? 0 : random() % 49152), std::min(length, 4096u)});
    }
  }
  return places;
}

// Checks each place once, then reads them all over and over.
template <class Places, class Read>
void ReadPlaces(benchmark::State& run, const Places& places, Read read) {
  const Bytes& bytes = TheFile().bytes;
  uint8_t block[4096];
  for (const Place place : places) {
    std::memset(block, 0, place.length);
    read(block, place);
    Require(std::memcmp(block, bytes.data() + place.position, place.length) == 0, "the bytes of the file");
  }
  for (auto _ : run) {
    for (const Place place : places) {
      read(block, place);
      benchmark::DoNotOptimize(block);
    }
  }
  run.SetItemsProcessed(run.iterations() * static_cast<int64_t>(places.size()));
}

template <class Places>
void Ours(benchmark::State& run, const Places& places) {
  const KXFileHandle handle = kxOSCreateFile(TheFile().path.c_str(), KX_ACCESS_READ, KX_SHARE_READ, nullptr,
                                             KX_OPEN_EXISTING, 0, nullptr);
  CKXDiskCache cache;
  Require(cache.SetHandleAndCacheSize(handle, kWindow, false) == 0, "a cache");
  ReadPlaces(run, places, [&cache](uint8_t* block, const Place& place) {
    uint32_t delivered = 0;
    cache.Read(block, place.position, place.length, &delivered, QLN_CACHE_TO_FILE_END);
  });
  kxOSCloseFile(handle);
}

template <class Places>
void Mapped(benchmark::State& run, const Places& places) {
  const int descriptor = open(TheFile().path.c_str(), O_RDONLY);
  void* const map = mmap(nullptr, kFileSize, PROT_READ, MAP_PRIVATE, descriptor, 0);
  Require(map != MAP_FAILED, "a mapped file");
  const uint8_t* const bytes = static_cast<const uint8_t*>(map);
  ReadPlaces(run, places, [bytes](uint8_t* block, const Place& place) {
    std::memcpy(block, bytes + place.position, place.length);
  });
  munmap(map, kFileSize);
  close(descriptor);
}

template <class Places>
void Pread(benchmark::State& run, const Places& places) {
  const int descriptor = open(TheFile().path.c_str(), O_RDONLY);
  ReadPlaces(run, places, [descriptor](uint8_t* block, const Place& place) {
    if (pread(descriptor, block, place.length, static_cast<off_t>(place.position)) < 0) std::abort();
  });
  close(descriptor);
}

void FreadInOrder(benchmark::State& run) {
  std::FILE* const file = std::fopen(TheFile().path.c_str(), "rb");
  ReadPlaces(run, FrontToBack(kSmall), [file](uint8_t* block, const Place& place) {
    if (place.position == 0) std::rewind(file);
    if (std::fread(block, 1, place.length, file) != place.length) std::abort();
  });
  std::fclose(file);
}

void StreamInOrder(benchmark::State& run) {
  std::ifstream file(TheFile().path, std::ios::binary);
  ReadPlaces(run, FrontToBack(kSmall), [&file](uint8_t* block, const Place& place) {
    if (place.position == 0) file.seekg(0);
    file.read(reinterpret_cast<char*>(block), place.length);
  });
}

void HitOurs(benchmark::State& run) { Ours(run, InsideTheWindow()); }
void HitMapped(benchmark::State& run) { Mapped(run, InsideTheWindow()); }
void OrderOurs(benchmark::State& run) { Ours(run, FrontToBack(kSmall)); }
void OrderMapped(benchmark::State& run) { Mapped(run, FrontToBack(kSmall)); }
void OrderPread(benchmark::State& run) { Pread(run, FrontToBack(kSmall)); }
void PagesOurs(benchmark::State& run) { Ours(run, FrontToBack(4096)); }
void PagesPread(benchmark::State& run) { Pread(run, FrontToBack(4096)); }
void ClustersOurs(benchmark::State& run) { Ours(run, Clusters()); }
void ClustersPread(benchmark::State& run) { Pread(run, Clusters()); }

BENCHMARK(HitOurs)->Name("read_cache_hit/ours");
BENCHMARK(HitMapped)->Name("read_cache_hit/mmap");
BENCHMARK(OrderOurs)->Name("read_cache_sequential/ours");
BENCHMARK(OrderMapped)->Name("read_cache_sequential/mmap");
BENCHMARK(PagesOurs)->Name("read_cache_pages/ours");
BENCHMARK(PagesPread)->Name("read_cache_pages/pread");
BENCHMARK(OrderPread)->Name("read_cache_sequential/pread");
BENCHMARK(FreadInOrder)->Name("read_cache_sequential/fread");
BENCHMARK(StreamInOrder)->Name("read_cache_sequential/ifstream");
BENCHMARK(ClustersOurs)->Name("read_cache_clusters/ours");
BENCHMARK(ClustersPread)->Name("read_cache_clusters/pread");

}  // namespace
