// The read cache where the file fails or is still growing: what it reports and how long it waits.

#include <gtest/gtest.h>

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
using test::kHandle;
using test::Log;
using test::MessageCapture;
using test::Outcome;
using test::ReadAt;
using test::ScriptedFile;

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

}  // namespace
}  // namespace qln
