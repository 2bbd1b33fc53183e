// The read cache against a plain second form of its rules, in worlds where calls fail at random, and against
// a sparse file that is larger than 4 GiB.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <memory>

#include "files/file_calls.h"
#include "qlnutil/kxdiskcache.h"
#include "support/media.h"

namespace qln {
namespace {

using test::Bytes;
using test::Random;
using test::ScriptedFile;

// A file in which seeks and reads fail, come up short and tell too much, all out of one random source: two
// worlds of one seed behave alike for as long as the same calls are made.
class RandomWorld : public ScriptedFile {
 public:
  RandomWorld(uint64_t seed, uint64_t fileSize) : ScriptedFile(fileSize), random_(seed) {}

  int32_t Read(KXFileHandle handle, void* buffer, uint32_t count, uint32_t* bytesRead) override {
    if (random_.below(4) == 0) {
      const bool succeeds = random_.below(2) == 0;
      const uint32_t most = count + (random_.below(8) == 0 ? 3u : 0u);
      steps = {{succeeds, static_cast<uint32_t>(random_.below(uint64_t{most} + 1)), Error()}};
    }
    if (random_.below(16) == 0) size += 500;
    return ScriptedFile::Read(handle, buffer, count, bytesRead);
  }
  uint64_t Seek(KXFileHandle handle, uint64_t offset) override {
    if (random_.below(12) == 0) {
      failSeeks = 1;
      seekAnswer = offset + 1;
      error = Error();
    }
    return ScriptedFile::Seek(handle, offset);
  }
  void SleepMs(uint32_t milliseconds) override {
    ScriptedFile::SleepMs(milliseconds);
    now += 200;  // so that waits are short
  }

 private:
  uint32_t Error() {
    constexpr uint32_t kErrors[] = {0, 5, 0x80000001, 0xFFFFFFFF};
    return kErrors[random_.below(4)];
  }
  Random random_;
};

// The rules in the order in which they are told, over a buffer without bounds in which nobody ever wrote
// behind the cache size.
struct PlainCache {
  ScriptedFile& world;
  uint32_t cacheSize;
  bool retry;
  uint64_t start = 0;
  uint64_t end = 0;
  Bytes buffer = {};

  uint8_t At(uint64_t offset) const {
    return offset < cacheSize && offset < buffer.size() ? buffer[offset] : 0;
  }

  uint32_t Read(Bytes& destination, uint64_t position, uint32_t length, uint32_t* delivered, uint32_t flags) {
    buffer.resize(1 << 20);
    *delivered = 0;
    if (length > cacheSize - 4096u) {
      world.Seek(ScriptedFile::kHandle, position);
      uint32_t count = 0;
      const bool read = world.Read(ScriptedFile::kHandle, destination.data(), length, &count) != 0;
      if (count <= length) *delivered = count;
      return read && count <= length ? 0 : world.LastError();
    }
    if (position >= start && position < end) {
      const uint64_t count = std::min<uint64_t>(length, end - position);
      for (uint64_t i = 0; i < count; ++i) destination[i] = At(position - start + i);
      *delivered = static_cast<uint32_t>(count);
      if (position + length < end) return 0;
      position += count;
    }
    start = position / 4096 * 4096;
    if (world.Seek(ScriptedFile::kHandle, start) != start) {
      ErrOut("Diskcache seek failed 0x%08X ", world.LastError());
      return world.LastError() | 0x80000000u;
    }
    const uint32_t startTime = world.Ms();
    uint64_t amount = cacheSize;
    if ((flags & 6) == 4) {
      uint64_t size = 0;
      world.SizeEx(ScriptedFile::kHandle, &size);
      if (start + cacheSize > size) amount = start + length > size ? length : size - start;
    }
    uint64_t readSoFar = 0;
    uint32_t lastError = 0;
    if (length != *delivered) {
      const uint32_t needed = length - *delivered;
      do {
        uint32_t count = 0;
        const uint32_t request = static_cast<uint32_t>(amount - readSoFar);
        if (world.Read(ScriptedFile::kHandle, buffer.data() + readSoFar, request, &count) != 0 &&
            count <= request) {
          readSoFar += count;
        } else {
          lastError = world.LastError();
        }
        if (readSoFar < needed) {
          if (!retry || world.Ms() - startTime >= 1500) {
            return world.LastError() == 0 ? 0 : world.LastError() | 0x80000000u;
          }
          world.SleepMs(2);
        }
      } while (readSoFar < needed);
    }
    end = start + readSoFar;
    for (uint32_t i = *delivered; i < length; ++i) destination[i] = At(position - start + i - *delivered);
    *delivered = length;
    return lastError;
  }
};

TEST(DiskCacheModel, RandomProgramsInFailingWorlds) {
  for (uint64_t seed = 1; seed <= 300; ++seed) {
    Random random(seed);
    constexpr uint32_t kSizes[] = {100, 4095, 4096, 5000, 8192, 20000};
    const uint32_t cacheSize = kSizes[random.below(6)];
    const bool retry = random.below(2) == 0;
    const uint64_t fileSize = random.below(60000);
    RandomWorld modelWorld(seed, fileSize);
    PlainCache model{modelWorld, cacheSize, retry};
    RandomWorld world(seed, fileSize);  // made last: the one in place
    CKXDiskCache cache;
    ASSERT_EQ(cache.SetHandleAndCacheSize(ScriptedFile::kHandle, cacheSize, retry), 0u);
    test::MessageCapture messages;
    for (int i = 0; i < 200; ++i) {
      const uint64_t position = random.below(3) == 0 ? random.below(70000) : model.start + random.below(9000);
      const uint32_t length = static_cast<uint32_t>(random.below(random.below(2) == 0 ? 64 : 6000));
      const uint32_t flags = static_cast<uint32_t>(random.below(8));
      Bytes expected(length, 0xEE);
      uint32_t expectedDelivered = 1;
      const uint32_t expectedResult = model.Read(expected, position, length, &expectedDelivered, flags);
      const std::unique_ptr<uint8_t[]> block(new uint8_t[length]);
      std::fill_n(block.get(), length, uint8_t{0xEE});
      uint32_t delivered = 1;
      const uint32_t result = cache.Read(block.get(), position, length, &delivered, flags);
      ASSERT_EQ(world.TakeLog(), modelWorld.TakeLog()) << "seed " << seed << " read " << i;
      ASSERT_EQ(result, expectedResult) << "seed " << seed << " read " << i;
      ASSERT_EQ(delivered, expectedDelivered) << "seed " << seed << " read " << i;
      ASSERT_EQ(Bytes(block.get(), block.get() + length), expected) << "seed " << seed << " read " << i;
    }
    const std::vector<std::string> texts = messages.texts();
    ASSERT_EQ(texts.size() % 2, 0u) << "each seek that fails is told by both";
  }
}

// A sparse file with a few written islands, one across 4 GiB and one at its end.
class SparseFile {
 public:
  static constexpr uint64_t kSize = (uint64_t{5} << 30) + 1234;

  SparseFile() : path_(test::MediaPath("sparse.bin")) {
    const int descriptor = open(path_.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    EXPECT_EQ(ftruncate(descriptor, static_cast<off_t>(kSize)), 0);
    for (const uint64_t at : {uint64_t{0}, uint64_t{1} << 20, (uint64_t{4} << 30) - 20000, kSize - 30000}) {
      const Bytes bytes = ScriptedFile::BytesAt(at, 30000);
      islands_[at] = bytes;
      EXPECT_EQ(pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(at)), 30000);
    }
    close(descriptor);
    handle_ =
        kxOSCreateFile(path_.c_str(), KX_ACCESS_READ, KX_SHARE_READ, nullptr, KX_OPEN_EXISTING, 0, nullptr);
  }
  ~SparseFile() {
    kxOSCloseFile(handle_);
    unlink(path_.c_str());
  }
  KXFileHandle handle() const { return handle_; }

  Bytes BytesAt(uint64_t position, size_t count) const {
    Bytes bytes(count);
    for (const auto& [at, island] : islands_) {
      for (size_t i = 0; i < count; ++i) {
        if (position + i >= at && position + i < at + island.size()) bytes[i] = island[position + i - at];
      }
    }
    return bytes;
  }

  // A position on or near an island.
  uint64_t SomePosition(Random& random) const {
    auto island = islands_.begin();
    std::advance(island, static_cast<long>(random.below(islands_.size())));
    const uint64_t position = island->first + random.below(50000);
    return position < 10000 ? position : position - 10000;
  }

 private:
  std::string path_;
  KXFileHandle handle_;
  std::map<uint64_t, Bytes> islands_;
};

TEST(DiskCacheModel, RandomReadsOfASparseFileBeyond4GiB) {
  const SparseFile file;
  Random random(4);
  CKXDiskCache cache;
  ASSERT_EQ(cache.SetHandleAndCacheSize(file.handle(), 65536, false), 0u);
  uint64_t position = 0;
  for (int i = 0; i < 8000; ++i) {
    position = random.below(4) == 0 ? file.SomePosition(random) : position + random.below(3000);
    const uint32_t length = static_cast<uint32_t>(random.below(20) == 0 ? 62000 : random.below(2000));
    Bytes bytes(length, 0xEE);
    uint32_t delivered = 0;
    ASSERT_EQ(cache.Read(bytes.data(), position, length, &delivered, random.below(2) == 0 ? 4 : 0), 0u);
    const uint64_t there = position < SparseFile::kSize ? SparseFile::kSize - position : 0;
    if (length <= there) {
      ASSERT_EQ(delivered, length) << "at " << position;
    }
    const size_t real = static_cast<size_t>(std::min<uint64_t>({there, delivered, length}));
    ASSERT_EQ(Bytes(bytes.begin(), bytes.begin() + static_cast<long>(real)), file.BytesAt(position, real))
        << "at " << position;
  }
}

TEST(DiskCacheModel, AnEmptyFileDeliversNothing) {
  const std::string path = test::MediaPath("empty.bin");
  test::WriteFile(path, {});
  const KXFileHandle handle =
      kxOSCreateFile(path.c_str(), KX_ACCESS_READ, KX_SHARE_READ, nullptr, KX_OPEN_EXISTING, 0, nullptr);
  CKXDiskCache cache;
  ASSERT_EQ(cache.SetHandleAndCacheSize(handle, 65536, false), 0u);
  for (const uint32_t flags : {0u, 4u}) {
    uint8_t byte = 0;
    uint32_t delivered = 9;
    EXPECT_EQ(cache.Read(&byte, 0, 1, &delivered, flags), 0u);
    EXPECT_EQ(delivered, 0u);
  }
  kxOSCloseFile(handle);
}

}  // namespace
}  // namespace qln
