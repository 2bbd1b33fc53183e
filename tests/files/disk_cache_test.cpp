// The read cache: the file calls that it makes, one by one, and what it delivers.

#include <gtest/gtest.h>

#include <new>

#include "files/disk_cache_support.h"
#include "files/file_calls.h"
#include "qlnutil/kxdiskcache.h"

namespace qln {
namespace {

using test::Back;
using test::Bytes;
using test::DiskCache;
using test::ExpectWhole;
using test::Front;
using test::kCacheSize;
using test::Log;
using test::Outcome;
using test::ReadAt;
using test::ScriptedFile;

TEST(DiskCacheAlone, WithoutAHandleEveryReadFails) {
  CKXDiskCache cache;
  const Outcome outcome = ReadAt(cache, 0, 10);
  EXPECT_EQ(outcome.result, KX_ERROR_INVALID_HANDLE) << "plain, without an added bit";
  EXPECT_EQ(outcome.delivered, 0u);
}

TEST_F(DiskCache, ARefillReadsTheWholeCacheFromAMultipleOf4096) {
  Open();
  ExpectWhole(ReadAt(cache, 5000, 16), 5000);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 4096", "read 65536"}));
}

TEST_F(DiskCache, AReadInsideTheWindowMakesNoFileCall) {
  Open();
  ReadAt(cache, 4096, 1);
  file.TakeLog();
  ExpectWhole(ReadAt(cache, 4096, 4000), 4096);
  ExpectWhole(ReadAt(cache, 69531, 100), 69531);  // its last byte is the last but one of the window
  ExpectWhole(ReadAt(cache, 6000, 0), 6000);
  EXPECT_EQ(file.TakeLog(), Log{});
}

TEST_F(DiskCache, AReadThatEndsAtTheWindowsEndSeeksAndEmptiesIt) {
  Open();
  ReadAt(cache, 0, 1);
  file.TakeLog();
  ExpectWhole(ReadAt(cache, 65436, 100), 65436);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 65536"}));
  ExpectWhole(ReadAt(cache, 65536, 1), 65536);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 65536", "read 65536"}));
  ExpectWhole(ReadAt(cache, 131000, 72), 131000);
  file.TakeLog();
  ExpectWhole(ReadAt(cache, 65600, 1), 65600);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 65536", "read 65536"})) << "the window was empty";
}

TEST_F(DiskCache, AReadThatEndsAtTheWindowsEndAsksForTheSizeWithFlags4) {
  Open();
  ReadAt(cache, 0, 1, 4);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 0", "size", "read 65536"}));
  ExpectWhole(ReadAt(cache, 65436, 100, 4), 65436);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 65536", "size"}));
}

TEST_F(DiskCache, AReadAcrossTheWindowsEndDeliversBothPartsInOrder) {
  Open();
  ReadAt(cache, 0, 1);
  file.TakeLog();
  ExpectWhole(ReadAt(cache, 65000, 5000), 65000);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 65536", "read 65536"}));
  ExpectWhole(ReadAt(cache, 66000, 5000), 66000);
  EXPECT_EQ(file.TakeLog(), Log{});
}

TEST_F(DiskCache, OneByteMoreThanTheCacheLess4096GoesStraightToTheFile) {
  Open();
  ExpectWhole(ReadAt(cache, 10, kCacheSize - 4096), 10);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 0", "read 65536"}));
  ExpectWhole(ReadAt(cache, 10, kCacheSize - 4095), 10);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 10", "read 61441"}));
  ExpectWhole(ReadAt(cache, 100, 60000), 100);
  EXPECT_EQ(file.TakeLog(), Log{}) << "the window is not touched by a direct read";
}

TEST_F(DiskCache, DirectReadsTellTheFilesOwnCountAndError) {
  Open();
  ReadAt(cache, 0, 1);
  file.TakeLog();
  file.failSeeks = 1;  // not examined
  file.steps = {{true, 5000, 0}};
  Outcome outcome = ReadAt(cache, 123, 70000);
  EXPECT_EQ(outcome.result, 0u);
  EXPECT_EQ(outcome.delivered, 5000u);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 123", "read 70000"}));
  file.steps = {{false, 4000, 21}};
  outcome = ReadAt(cache, 123, 70000);
  EXPECT_EQ(outcome.result, 21u) << "plain";
  EXPECT_EQ(outcome.delivered, 4000u);
  file.steps = {{true, 70001, 13}};
  outcome = ReadAt(cache, 123, 70000);
  EXPECT_EQ(outcome.result, 13u) << "more bytes than asked for are no success";
  EXPECT_EQ(outcome.delivered, 0u);
  file.TakeLog();
  ExpectWhole(ReadAt(cache, 9, 60000), 9);
  EXPECT_EQ(file.TakeLog(), Log{});
}

TEST_F(DiskCache, OnlyBit2WithoutBit1BoundsTheRefillByTheFile) {
  for (uint32_t flags = 0; flags < 64; ++flags) {
    Open();
    ExpectWhole(ReadAt(cache, 990000, 16, flags), 990000);
    if ((flags & 6) == 4) {
      EXPECT_EQ(file.TakeLog(), (Log{"seek 987136", "size", "read 12864"})) << flags;
    } else {
      EXPECT_EQ(file.TakeLog(), (Log{"seek 987136", "read 65536"})) << flags;
    }
  }
  Open();
  ExpectWhole(ReadAt(cache, 990000, 16, 0xFFFFFFF9 | 4), 990000);
  EXPECT_EQ(file.TakeLog().size(), 3u);
}

TEST_F(DiskCache, ARefillAtTheFilesEndAsksForWhatIsThereOrForTheLength) {
  file.size = 10000;
  Open(1048576);
  ExpectWhole(ReadAt(cache, 8192, 1000, 4), 8192);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 8192", "size", "read 1808"}));
  Open(1048576);
  const Outcome outcome = ReadAt(cache, 8192, 3000, 4);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 8192", "size", "read 3000"}));
  EXPECT_EQ(outcome.result, 0u);
  EXPECT_EQ(outcome.delivered, 0u);
  // The length counts whole, also behind a part that the window gave.
  Open(1048576);
  file.size = 8292;
  ReadAt(cache, 4096, 10, 4);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 4096", "size", "read 4196"}));
  file.size = 10000;
  ExpectWhole(ReadAt(cache, 8192, 1808, 4), 8192);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 8192", "size", "read 1808"}));
}

TEST_F(DiskCache, AFileSizeThatCannotBeToldCountsAs0) {
  struct Mute : ScriptedFile {
    using ScriptedFile::ScriptedFile;
    int32_t SizeEx(KXFileHandle, uint64_t*) override { return 0; }
  } mute(1000000);
  Open();
  ExpectWhole(ReadAt(cache, 4096, 3000, 4), 4096);
  EXPECT_EQ(mute.TakeLog(), (Log{"seek 4096", "read 3000"}));
}

TEST_F(DiskCache, TheNeedIsCountedFromTheWindowsStart) {
  // 4906 of the 5000 bytes lie in front of the position, yet they are enough for a need of 1000.
  file.size = 5000;
  Open();
  const Outcome outcome = ReadAt(cache, 4090, 1000);
  EXPECT_EQ(outcome.result, 0u);
  EXPECT_EQ(outcome.delivered, 1000u);
  EXPECT_EQ(Front(outcome.bytes, 910), ScriptedFile::BytesAt(4090, 910));
  EXPECT_EQ(Back(outcome.bytes, 910), Bytes(90, 0)) << "the buffer begins zeroed";
}

TEST_F(DiskCache, AnEmptyReadOutsideTheWindowSeeksAndEmptiesIt) {
  Open();
  ReadAt(cache, 0, 1);
  file.TakeLog();
  uint32_t delivered = 5;
  EXPECT_EQ(cache.Read(nullptr, 200000, 0, &delivered, 0), 0u);
  EXPECT_EQ(delivered, 0u);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 196608"}));
  ReadAt(cache, 0, 1);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 0", "read 65536"}));
}

TEST_F(DiskCache, ANewCacheBeginsEmpty) {
  Open();
  ReadAt(cache, 0, 1);
  Open();
  file.TakeLog();
  ExpectWhole(ReadAt(cache, 0, 1), 0);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 0", "read 65536"}));
}

TEST_F(DiskCache, ACacheBelowAPageMakesTheSameCallsAndStaysInItsBuffer) {
  Open(100);
  ExpectWhole(ReadAt(cache, 0, 50), 0);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 0", "read 100"}));
  Outcome outcome = ReadAt(cache, 4090, 10);  // lies behind what the buffer holds
  EXPECT_EQ(outcome.result, 0u);
  EXPECT_EQ(outcome.delivered, 10u);
  EXPECT_EQ(outcome.bytes, Bytes(10, 0));
  EXPECT_EQ(file.TakeLog(), (Log{"seek 0", "read 100"}));
  outcome = ReadAt(cache, 8192, 200);  // more than the cache: asks for what is left of it, which is nothing
  EXPECT_EQ(outcome.result, 0u);
  EXPECT_EQ(outcome.delivered, 0u);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 8192", "read 100"}));
  Open(0);
  outcome = ReadAt(cache, 0, 1);
  EXPECT_EQ(outcome.delivered, 0u);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 0", "read 0"}));
}

TEST_F(DiskCache, ARefillLargerThanTheCacheKeepsWhatFits) {
  file.size = 40;
  Open(100, true);
  file.grownBySleep = 1000;
  const Outcome outcome = ReadAt(cache, 0, 200, 4);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 0", "size", "read 200", "read 160"}));
  EXPECT_EQ(outcome.result, 0u);
  EXPECT_EQ(outcome.delivered, 200u);
  EXPECT_EQ(Front(outcome.bytes, 100), ScriptedFile::BytesAt(0, 100));
  EXPECT_EQ(Back(outcome.bytes, 100), Bytes(100, 0));
  Open(100);
  file.size = 40;
  file.failAllocations = 1;
  EXPECT_EQ(ReadAt(cache, 0, 200, 4).result, 0xFFFFFFFFu);
}

TEST_F(DiskCache, PositionsAtTheEndOf64Bits) {
  file.size = UINT64_MAX;
  Open();
  ExpectWhole(ReadAt(cache, UINT64_MAX - 5000, 16), UINT64_MAX - 5000);
  file.TakeLog();
  ReadAt(cache, UINT64_MAX - 10, 40000, 4);
  EXPECT_EQ(file.log.front(), "seek 18446744073709547520");
  EXPECT_EQ(file.log.at(1), "size");
}

TEST_F(DiskCache, CopiesShareTheBuffer) {
  Open();
  ReadAt(cache, 0, 1);
  file.TakeLog();
  // The copies are never destroyed, as a host must see to.
  alignas(CKXDiskCache) unsigned char place[2][sizeof(CKXDiskCache)];
  CKXDiskCache* const copy = new (place[0]) CKXDiskCache(cache);
  CKXDiskCache* const assigned = new (place[1]) CKXDiskCache;
  EXPECT_EQ(&(*assigned = cache), assigned);
  ExpectWhole(ReadAt(*copy, 100, 50), 100);
  ExpectWhole(ReadAt(*assigned, 200, 50), 200);
  EXPECT_EQ(file.TakeLog(), Log{});
}

}  // namespace
}  // namespace qln
