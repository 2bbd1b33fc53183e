// The read cache: the file calls that it makes, one by one, what it delivers and what it reports.

#include <gtest/gtest.h>

#include <memory>
#include <new>

#include "files/file_calls.h"
#include "qlnutil/kxdiskcache.h"

namespace qln {
namespace {

using test::Bytes;
using test::MessageCapture;
using test::ScriptedFile;
using Log = std::vector<std::string>;

constexpr uint32_t kCacheSize = 65536;
constexpr KXFileHandle kHandle = ScriptedFile::kHandle;

struct Outcome {
  uint32_t result;
  uint32_t delivered;
  Bytes bytes;
};

// Reads into a block of exactly the length asked for, filled with 0xEE.
Outcome ReadAt(CKXDiskCache& cache, uint64_t position, uint32_t length, uint32_t flags = 0) {
  const std::unique_ptr<uint8_t[]> block(new uint8_t[length]);
  std::fill_n(block.get(), length, uint8_t{0xEE});
  Outcome outcome{0, 0xDDDDDDDD, {}};
  outcome.result = cache.Read(block.get(), position, length, &outcome.delivered, flags);
  outcome.bytes.assign(block.get(), block.get() + length);
  return outcome;
}

void ExpectWhole(const Outcome& outcome, uint64_t position) {
  EXPECT_EQ(outcome.result, 0u);
  EXPECT_EQ(outcome.delivered, outcome.bytes.size());
  EXPECT_EQ(outcome.bytes, ScriptedFile::BytesAt(position, outcome.bytes.size()));
}

Bytes Front(const Bytes& bytes, size_t count) {
  return Bytes(bytes.begin(), bytes.begin() + static_cast<long>(count));
}
Bytes Back(const Bytes& bytes, size_t from) {
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

TEST_F(DiskCache, AtTheEndOfTheFileAShortReadIsNoErrorAndDeliversWhatTheWindowHad) {
  file.size = 70000;
  Open();
  ReadAt(cache, 4096, 1);
  file.TakeLog();
  Outcome outcome = ReadAt(cache, 69600, 1000);
  EXPECT_EQ(outcome.result, 0u);
  EXPECT_EQ(outcome.delivered, 32u);
  EXPECT_EQ(Front(outcome.bytes, 32), ScriptedFile::BytesAt(69600, 32));
  EXPECT_EQ(Back(outcome.bytes, 32), Bytes(968, 0xEE)) << "nothing else is written";
  EXPECT_EQ(file.TakeLog(), (Log{"seek 69632", "read 65536"}));
  outcome = ReadAt(cache, 80000, 10);
  EXPECT_EQ(outcome.result, 0u);
  EXPECT_EQ(outcome.delivered, 0u);
}

TEST_F(DiskCache, AShortReadWithAnErrorReportsItWithTheHighBit) {
  Open();
  file.steps = {{false, 0, 5}};
  Outcome outcome = ReadAt(cache, 0, 10);
  EXPECT_EQ(outcome.result, 0x80000005u);
  EXPECT_EQ(outcome.delivered, 0u);
  file.steps = {{true, 4, 0x80000009}};
  outcome = ReadAt(cache, 0, 10);
  EXPECT_EQ(outcome.result, 0x80000009u);
  EXPECT_EQ(file.sleeps, 0u) << "without the retry flag nobody waits";
}

TEST_F(DiskCache, ACountAboveTheRequestIsAFailedRead) {
  Open();
  file.steps = {{true, 65537, 8}};
  const Outcome outcome = ReadAt(cache, 0, 10);
  EXPECT_EQ(outcome.result, 0x80000008u);
  EXPECT_EQ(outcome.delivered, 0u);
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

TEST_F(DiskCache, AFailedSeekIsReported) {
  Open();
  ReadAt(cache, 8192, 1);
  file.TakeLog();
  file.failSeeks = 1;
  file.seekAnswer = 3;
  file.error = 0x1F;
  MessageCapture messages;
  const Outcome outcome = ReadAt(cache, 0, 10);
  EXPECT_EQ(outcome.result, 0x8000001Fu);
  EXPECT_EQ(outcome.delivered, 0u);
  EXPECT_EQ(outcome.bytes, Bytes(10, 0xEE));
  EXPECT_EQ(messages.texts(), (Log{"Diskcache seek failed 0x0000001F "}));
  EXPECT_EQ(file.TakeLog(), (Log{"seek 0"}));

  // The window's start has moved, its end has not: what the buffer holds now counts from 0.
  const Outcome stale = ReadAt(cache, 100, 50);
  EXPECT_EQ(stale.delivered, 50u);
  EXPECT_EQ(stale.bytes, ScriptedFile::BytesAt(8192 + 100, 50));
  const Outcome outside = ReadAt(cache, 65530, 12);
  EXPECT_EQ(outside.result, 0u);
  EXPECT_EQ(outside.delivered, 12u);
  EXPECT_EQ(Front(outside.bytes, 6), ScriptedFile::BytesAt(8192 + 65530, 6));
  EXPECT_EQ(Back(outside.bytes, 6), Bytes(6, 0)) << "outside the buffer there is nothing";
  EXPECT_EQ(file.TakeLog(), Log{});
}

TEST_F(DiskCache, AFailedSeekWithoutAnErrorIsTheHighBitAlone) {
  Open();
  file.failSeeks = 1;
  file.seekAnswer = UINT64_MAX;
  MessageCapture messages;
  EXPECT_EQ(ReadAt(cache, 0, 10).result, 0x80000000u);
  EXPECT_EQ(messages.texts(), (Log{"Diskcache seek failed 0x00000000 "}));
}

TEST_F(DiskCache, AFailedSeekBehindAPartKeepsThePart) {
  Open();
  ReadAt(cache, 0, 1);
  file.failSeeks = 1;
  file.error = 2;
  MessageCapture messages;
  const Outcome outcome = ReadAt(cache, 65500, 100);
  EXPECT_EQ(outcome.result, 0x80000002u);
  EXPECT_EQ(outcome.delivered, 36u);
  EXPECT_EQ(Front(outcome.bytes, 36), ScriptedFile::BytesAt(65500, 36));
  EXPECT_EQ(Back(outcome.bytes, 36), Bytes(64, 0xEE));
}

TEST_F(DiskCache, WithRetryAReadWaitsForTheFileToGrow) {
  file.size = 100;
  file.grownBySleep = 30;
  Open(kCacheSize, true);
  ExpectWhole(ReadAt(cache, 0, 200), 0);
  EXPECT_EQ(file.sleeps, 4u);
  EXPECT_EQ(file.TakeLog(),
            (Log{"seek 0", "read 65536", "read 65436", "read 65406", "read 65376", "read 65346"}));
  ExpectWhole(ReadAt(cache, 20, 190),
              20);  // 210 bytes stand in the window; it ends there, so 10 more are asked for
}

TEST_F(DiskCache, WithRetryAReadGivesUpAfter1500Milliseconds) {
  file.size = 100;
  for (const uint32_t start : {1000u, 0xFFFFFF00u}) {  // the second clock wraps meanwhile
    file.now = start;
    file.sleeps = 0;
    Open(kCacheSize, true);
    const Outcome outcome = ReadAt(cache, 0, 200);
    EXPECT_EQ(outcome.result, 0u);
    EXPECT_EQ(outcome.delivered, 0u);
    EXPECT_EQ(file.sleeps, 750u);
    EXPECT_EQ(file.TakeLog().size(), 752u);
  }
}

TEST_F(DiskCache, AClockThatStandsStillEndsTheWaitToo) {
  file.size = 100;
  file.clockMoves = false;
  Open(kCacheSize, true);
  EXPECT_EQ(ReadAt(cache, 0, 200).delivered, 0u);
  EXPECT_GE(file.sleeps, 9999u);
  EXPECT_LE(file.sleeps, 20000u);
}

TEST_F(DiskCache, AFailedReadThatALaterOneMakesUpForIsReportedPlain) {
  Open(kCacheSize, true);
  file.steps = {{false, 0, 6}, {true, 10, 0}};
  const Outcome outcome = ReadAt(cache, 0, 50);
  EXPECT_EQ(outcome.result, 6u);
  EXPECT_EQ(outcome.delivered, 50u);
  EXPECT_EQ(outcome.bytes, ScriptedFile::BytesAt(0, 50));
  EXPECT_EQ(file.TakeLog(), (Log{"seek 0", "read 65536", "read 65536", "read 65526"}));
  EXPECT_EQ(file.sleeps, 2u);
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

TEST_F(DiskCache, WithoutMemoryEveryReadGoesStraightToTheFile) {
  file.failAllocations = 1;
  EXPECT_EQ(cache.SetHandleAndCacheSize(kHandle, kCacheSize, false), 0xFFFFFFFFu);
  ExpectWhole(ReadAt(cache, 100, 16), 100);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 100", "read 16"}));
  Open();
  ReadAt(cache, 0, 1);
  file.failAllocations = 1;
  EXPECT_EQ(cache.SetHandleAndCacheSize(kHandle, kCacheSize, false), 0xFFFFFFFFu);
  file.TakeLog();
  ExpectWhole(ReadAt(cache, 100, 16), 100);
  EXPECT_EQ(file.TakeLog(), (Log{"seek 100", "read 16"})) << "the old buffer is gone";
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
