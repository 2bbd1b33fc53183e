// A read cache over a scripted file, and one read of it.
#ifndef TESTS_FILES_DISK_CACHE_SUPPORT_H
#define TESTS_FILES_DISK_CACHE_SUPPORT_H

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "files/file_calls.h"
#include "qlnutil/kxdiskcache.h"
#include "support/test_support.h"

namespace qln::test {

using Log = std::vector<std::string>;

inline constexpr uint32_t kCacheSize = 65536;
inline constexpr KXFileHandle kHandle = ScriptedFile::kHandle;

struct Outcome {
  uint32_t result;
  uint32_t delivered;
  Bytes bytes;
};

// Reads into a block of exactly the length asked for, filled with 0xEE.
inline Outcome ReadAt(CKXDiskCache& cache, uint64_t position, uint32_t length, uint32_t flags = 0) {
  const std::unique_ptr<uint8_t[]> block(new uint8_t[length]);
  std::fill_n(block.get(), length, uint8_t{0xEE});
  Outcome outcome{0, 0xDDDDDDDD, {}};
  outcome.result = cache.Read(block.get(), position, length, &outcome.delivered, flags);
  outcome.bytes.assign(block.get(), block.get() + length);
  return outcome;
}

inline void ExpectWhole(const Outcome& outcome, uint64_t position) {
  EXPECT_EQ(outcome.result, 0u);
  EXPECT_EQ(outcome.delivered, outcome.bytes.size());
  EXPECT_EQ(outcome.bytes, ScriptedFile::BytesAt(position, outcome.bytes.size()));
}

inline Bytes Front(const Bytes& bytes, size_t count) {
  return Bytes(bytes.begin(), bytes.begin() + static_cast<long>(count));
}

inline Bytes Back(const Bytes& bytes, size_t from) {
  return Bytes(bytes.begin() + static_cast<long>(from), bytes.end());
}

class DiskCache : public testing::Test {
 protected:
  explicit DiskCache(uint64_t size = 1000000) : file(size) {}
  void Open(uint32_t cacheSize = kCacheSize, bool retry = false) {
    ASSERT_EQ(cache.SetHandleAndCacheSize(kHandle, cacheSize, retry), 0u);
  }
  ScriptedFile file;
  CKXDiskCache cache;
};

}  // namespace qln::test

#endif
