// Default values, repair and merge of the command record.

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "mediacmd/command_support.h"

namespace qln::test {
namespace {

TEST(MediaCmdLayout, EveryFieldStandsAtItsOffset) {
  EXPECT_EQ(sizeof(MediaCmd), 4188u);
  EXPECT_EQ(offsetof(MediaCmd, prev), 0u);
  EXPECT_EQ(offsetof(MediaCmd, next), 8u);
  EXPECT_EQ(offsetof(MediaCmd, list), 16u);
  EXPECT_EQ(offsetof(MediaCmd, CmdID), 24u);
  EXPECT_EQ(offsetof(MediaCmd, StructSize), 28u);
  EXPECT_EQ(offsetof(MediaCmd, Channel), 32u);
  EXPECT_EQ(offsetof(MediaCmd, Cmd), 36u);
  EXPECT_EQ(offsetof(MediaCmd, Flags), 40u);
  EXPECT_EQ(offsetof(MediaCmd, Speed), 44u);
  EXPECT_EQ(offsetof(MediaCmd, VideoChannels), 48u);
  EXPECT_EQ(offsetof(MediaCmd, AudioChannels), 52u);
  EXPECT_EQ(offsetof(MediaCmd, InfoChannels), 56u);
  EXPECT_EQ(offsetof(MediaCmd, CmdAlt), 60u);
  EXPECT_EQ(offsetof(MediaCmd, Position), 64u);
  EXPECT_EQ(offsetof(MediaCmd, Start), 68u);
  EXPECT_EQ(offsetof(MediaCmd, End), 72u);
  EXPECT_EQ(offsetof(MediaCmd, ClipID), 76u);
  EXPECT_EQ(offsetof(MediaCmd, FileName), 85u);
}

TEST(InitMediaCmd, SetsTheDefaultsAndZeroesTheRest) {
  MediaCmd command;
  std::memset(&command, 0xA5, sizeof command);
  initMediaCmd(&command, 2);

  // The record byte by byte, as it lies: numbers in the order of the host.
  std::string expected(4188, '\0');
  const auto put = [&](size_t offset, uint32_t value) {
    std::memcpy(&expected[offset], &value, sizeof value);
  };
  put(24, 0xFA250200u);
  put(28, 4188);
  put(32, 0xFFFFFFFFu);
  put(36, 2);
  put(44, 0x7FFFFFFFu);
  for (size_t offset = 48; offset < 76; offset += 4) put(offset, 0xFFFFFFFFu);
  EXPECT_EQ(BytesAt(command, 0, sizeof command), expected);
}

TEST(InitMediaCmd, TakesNull) { initMediaCmd(nullptr, 2); }

TEST(FixMediaCmd, TakesNull) { EXPECT_EQ(fixMediaCmd(nullptr, 0), 0u); }

TEST(FixMediaCmd, PlayGetsNominalSpeed) {
  MediaCmd command = Command(ctPlay);
  EXPECT_EQ(fixMediaCmd(&command, 0xFFFFFFFFu), 0x10u);
  EXPECT_EQ(command.Speed, 65520);
  EXPECT_EQ(command.Flags, 0x10u);
}

// Speed repair of every command, and of values that are none.
TEST(FixMediaCmd, RepairsSpeedByCommand) {
  constexpr int32_t kNone = 0x7FFFFFFF;
  const int32_t repaired[] = {0,     0,     65520, 65520, 0,     0,     kNone, kNone,
                              kNone, kNone, kNone, kNone, kNone, kNone, kNone, kNone,
                              kNone, kNone, 0,     0,     kNone, kNone, kNone, kNone};
  for (uint32_t cmd = 0; cmd < std::size(repaired); ++cmd) {
    MediaCmd command = Command(cmd);
    const uint32_t flags = repaired[cmd] == kNone ? 0u : 0x10u;
    EXPECT_EQ(fixMediaCmd(&command, 0), flags) << cmd;
    EXPECT_EQ(command.Speed, repaired[cmd]) << cmd;
    EXPECT_EQ(command.Flags, flags) << cmd;
  }
  for (const uint32_t cmd : {32u, 34u, 50u, 0x80000002u, 0xFFFFFFFFu}) {
    MediaCmd command = Command(cmd);
    EXPECT_EQ(fixMediaCmd(&command, 0), 0u) << cmd;
    EXPECT_EQ(command.Speed, kNone) << cmd;
  }
}

TEST(FixMediaCmd, TransferChangesOnlyTheChannels) {
  MediaCmd command = Command(ctTransfer, CF_DEFERRED);
  command.VideoChannels = 1;
  command.AudioChannels = 2;
  command.InfoChannels = 3;
  command.Speed = 77;
  MediaCmd expected = command;
  expected.VideoChannels = expected.AudioChannels = expected.InfoChannels = -1;
  EXPECT_EQ(fixMediaCmd(&command, 0xFFFFFFFFu), CF_DEFERRED);
  EXPECT_TRUE(SameRecord(command, expected));
}

TEST(FixMediaCmd, KeepsValidPresetsAndSpeed) {
  MediaCmd command = Command(ctPlay, CF_USE_PRESETS | CF_USE_SPEED);
  command.VideoChannels = 1;
  command.AudioChannels = 2;
  command.InfoChannels = 3;
  command.Speed = 1234;
  const MediaCmd expected = command;
  EXPECT_EQ(fixMediaCmd(&command, 0), CF_USE_PRESETS | CF_USE_SPEED);
  EXPECT_TRUE(SameRecord(command, expected));
}

TEST(FixMediaCmd, MaskZeroIsMaskAllOnes) {
  for (uint32_t cmd = 0; cmd < 23; ++cmd) {
    for (const uint32_t flags : {0u, 0x10u, 0x20u, 0x30u}) {
      MediaCmd zero = Command(cmd, flags);
      zero.VideoChannels = 5;
      zero.Speed = 6;
      MediaCmd ones = zero;
      EXPECT_EQ(fixMediaCmd(&zero, 0), fixMediaCmd(&ones, 0xFFFFFFFFu));
      EXPECT_TRUE(SameRecord(zero, ones));
    }
  }
}

TEST(FixMediaCmd, MaskForcesTheDefaults) {
  MediaCmd command = Command(ctStop, CF_USE_SPEED | CF_USE_PRESETS);
  command.Speed = 4711;
  command.VideoChannels = 9;
  EXPECT_EQ(fixMediaCmd(&command, ~CF_USE_SPEED), CF_USE_SPEED | CF_USE_PRESETS);
  EXPECT_EQ(command.Speed, 0);
  EXPECT_EQ(command.VideoChannels, 9);
  // Presets that are masked away are reset, and their flag stays.
  EXPECT_EQ(fixMediaCmd(&command, CF_USE_SPEED), CF_USE_SPEED | CF_USE_PRESETS);
  EXPECT_EQ(command.VideoChannels, -1);
}

TEST(CopyMediaCmd, TakesNull) {
  MediaCmd command = Command(ctPlay);
  const MediaCmd before = command;
  copyMediaCmd(nullptr, &command, 0xFFFFFFFFu);
  copyMediaCmd(&command, nullptr, 0xFFFFFFFFu);
  EXPECT_TRUE(SameRecord(command, before));
}

TEST(CopyMediaCmd, CopiesIdentityAndPointsButNotSizeAndLinks) {
  MediaCmd source = Command(ctTransfer);
  source.prev = &source;
  source.next = &source;
  source.list = &source;
  source.CmdID = 1;
  source.Channel = 7;
  source.Position = 10;
  source.Start = 20;
  source.End = 30;
  source.StructSize = 100;
  source.CmdAlt = 99;
  MediaCmd destination = Command(ctPlay);
  destination.CmdID = 2;
  destination.StructSize = 4000;
  destination.CmdAlt = 5;
  copyMediaCmd(&destination, &source, 0xFFFFFFFFu);

  MediaCmd expected = Command(ctTransfer);
  expected.StructSize = 4000;
  expected.Channel = 7;
  expected.Position = 10;
  expected.Start = 20;
  expected.End = 30;
  expected.CmdAlt = 5;
  EXPECT_TRUE(SameRecord(destination, expected));
}

TEST(CopyMediaCmd, StopWithoutSpeedStandsStill) {
  MediaCmd destination = Command(ctPlay);
  copyMediaCmd(&destination, &static_cast<const MediaCmd&>(Command(ctStop)), 0);
  EXPECT_EQ(destination.Speed, 0);
  EXPECT_EQ(destination.Flags, CF_USE_SPEED);
}

TEST(CopyMediaCmd, SpeedByCommand) {
  for (uint32_t cmd = 0; cmd < 24; ++cmd) {
    MediaCmd source = Command(cmd);
    source.Speed = 1;  // not valid, so not taken
    MediaCmd destination = Command(ctError);
    destination.Speed = 2;
    MediaCmd fixed = Command(cmd);
    fixMediaCmd(&fixed, 0);
    copyMediaCmd(&destination, &source, 0);
    EXPECT_EQ(destination.Speed, fixed.Speed) << cmd;
    EXPECT_EQ(destination.Flags, fixed.Flags) << cmd;

    source.Flags = CF_USE_SPEED;
    copyMediaCmd(&destination, &source, 0);
    EXPECT_EQ(destination.Speed, 1) << cmd;
    EXPECT_EQ(destination.Flags, CF_USE_SPEED) << cmd;
  }
}

TEST(CopyMediaCmd, SpeedFlagOfTheDestinationStaysBesideNoSpeed) {
  MediaCmd source = Command(ctTransfer);
  MediaCmd destination = Command(ctPlay, CF_USE_SPEED);
  destination.Speed = 5;
  copyMediaCmd(&destination, &source, 0xFFFFFFFFu);
  EXPECT_EQ(destination.Speed, 0x7FFFFFFF);
  EXPECT_EQ(destination.Flags, CF_USE_SPEED);
}

// What each flag becomes from source and destination, with a mask that lets everything or nothing through.
TEST(CopyMediaCmd, EveryFlag) {
  constexpr uint32_t kFollow[] = {0x1,    0x40000000, 0x2,      0x4,        0x8,        0x1000,    0x4000,
                                  0x8000, 0x400000,   0x200000, 0x10000000, 0x20000000, 0x80000000};
  constexpr uint32_t kAdded = 0x10 | 0x20 | 0x40 | 0x80 | 0x1000E;  // added whatever the mask
  constexpr uint32_t kReplaced = 0xF00;                             // those of the source whatever the mask
  for (int shift = 0; shift < 32; ++shift) {
    const uint32_t bit = 1u << shift;
    const bool follows = std::find(std::begin(kFollow), std::end(kFollow), bit) != std::end(kFollow);
    for (const uint32_t mask : {0u, 0xFFFFFFFFu}) {
      for (const bool inSource : {false, true}) {
        for (const bool inDestination : {false, true}) {
          MediaCmd source = Command(ctTransfer, inSource ? bit : 0);
          MediaCmd destination = Command(ctTransfer, inDestination ? bit : 0);
          copyMediaCmd(&destination, &source, mask);
          bool expected = inDestination || (inSource && mask != 0);
          if (follows && !inSource) expected = false;
          if ((bit & kAdded) != 0 && inSource) expected = true;
          if ((bit & kReplaced) != 0) expected = inSource;
          EXPECT_EQ(destination.Flags, expected ? bit : 0u)
              << std::hex << bit << " mask " << mask << " source " << inSource << " destination "
              << inDestination;
        }
      }
    }
  }
}

TEST(CopyMediaCmd, KeepsShuttleButDropsDeferred) {
  MediaCmd source = Command(ctTransfer);
  MediaCmd destination = Command(ctTransfer, 0x20001);
  copyMediaCmd(&destination, &source, 0xFFFFFFFFu);
  EXPECT_EQ(destination.Flags, 0x20000u);
}

TEST(CopyMediaCmd, PresetsFollowTheSource) {
  MediaCmd source = Command(ctTransfer, CF_USE_PRESETS);
  source.VideoChannels = 1;
  source.AudioChannels = 2;
  source.InfoChannels = 3;
  MediaCmd destination = Command(ctTransfer);
  copyMediaCmd(&destination, &source, 0);
  EXPECT_EQ(destination.VideoChannels, 1);
  EXPECT_EQ(destination.AudioChannels, 2);
  EXPECT_EQ(destination.InfoChannels, 3);
  source.Flags = 0;
  copyMediaCmd(&destination, &source, 0);
  EXPECT_EQ(destination.VideoChannels, -1);
  EXPECT_EQ(destination.AudioChannels, -1);
  EXPECT_EQ(destination.InfoChannels, -1);
  EXPECT_EQ(destination.Flags, CF_USE_PRESETS);  // kept from the destination
}

TEST(CopyMediaCmd, CmdAltByFlagOrCommand) {
  for (uint32_t cmd = 0; cmd < 24; ++cmd) {
    for (const uint32_t flag : {0u, 0x2u, 0x4u, 0x8u, 0x10000u}) {
      MediaCmd source = Command(cmd, flag | CF_USE_SPEED);
      source.CmdAlt = 8;
      MediaCmd destination = Command(ctTransfer);
      destination.CmdAlt = 9;
      copyMediaCmd(&destination, &source, 0);
      const bool copied = flag != 0 || (cmd >= 14 && cmd <= 16);
      EXPECT_EQ(destination.CmdAlt, copied ? 8 : 9) << cmd << " " << flag;
      EXPECT_EQ(destination.Flags, flag | CF_USE_SPEED);
    }
  }
}

TEST(CopyMediaCmd, TextsOnlyWithClipIdFlag) {
  MediaCmd source = Command(ctTransfer);
  Put(source, 76, "CLIP");
  Put(source, 85, "file.mov");
  MediaCmd destination = Command(ctTransfer, CF_USE_CLIP_ID);
  copyMediaCmd(&destination, &source, 0xFFFFFFFFu);
  EXPECT_STREQ(destination.ClipID, "");
  EXPECT_STREQ(destination.FileName, "");
  source.Flags = CF_USE_CLIP_ID;
  copyMediaCmd(&destination, &source, 0xFFFFFFFFu);
  EXPECT_STREQ(destination.ClipID, "CLIP");
  EXPECT_STREQ(destination.FileName, "file.mov");
}

TEST(CopyMediaCmd, ClipIdIsEightCharactersFilledWithZeros) {
  MediaCmd source = Command(ctTransfer, CF_USE_CLIP_ID);
  Put(source, 76, "123456789");
  MediaCmd destination = Command(ctTransfer);
  Put(destination, 76, "abcdefghX");
  copyMediaCmd(&destination, &source, 0);
  EXPECT_EQ(BytesAt(destination, 76, 9), "12345678X");
  Put(source, 76, std::string_view("AB\0DEFGH", 8));
  copyMediaCmd(&destination, &source, 0);
  EXPECT_EQ(BytesAt(destination, 76, 9), std::string("AB\0\0\0\0\0\0X", 9));
}

TEST(CopyMediaCmd, SizesBoundTheFileName) {
  const std::string name(4103, 'n');
  const auto copied = [&](uint32_t sourceSize, uint32_t destinationSize) {
    MediaCmd source = Command(ctTransfer, CF_USE_CLIP_ID);
    Put(source, 85, name);
    source.StructSize = sourceSize;
    MediaCmd destination = Command(ctTransfer);
    std::memset(destination.FileName, '-', sizeof destination.FileName);
    destination.StructSize = destinationSize;
    copyMediaCmd(&destination, &source, 0);
    const std::string all = BytesAt(destination, 85, 4103);
    return static_cast<long>(std::count(all.begin(), all.end(), 'n'));
  };
  EXPECT_EQ(copied(85, 4188), 0);
  EXPECT_EQ(copied(4188, 85), 0);
  EXPECT_EQ(copied(86, 4188), 1);
  EXPECT_EQ(copied(4188, 86), 1);
  EXPECT_EQ(copied(100, 90), 5);
  EXPECT_EQ(copied(4184, 4188), 4099);
  EXPECT_EQ(copied(4183, 4188), 4098);
  EXPECT_EQ(copied(4188, 4188), 4099);
  EXPECT_EQ(copied(0, 4188), 0);
  EXPECT_EQ(copied(4188, 0), 0);
  EXPECT_EQ(copied(0x80000000u, 4188), 0);
  EXPECT_EQ(copied(4188, 0xFFFFFFFFu), 0);
}

TEST(CopyMediaCmd, FileNameFillsItsRoomWithZeros) {
  MediaCmd source = Command(ctTransfer, CF_USE_CLIP_ID);
  Put(source, 85, "abc");
  MediaCmd destination = Command(ctTransfer);
  std::memset(destination.FileName, '-', sizeof destination.FileName);
  copyMediaCmd(&destination, &source, 0);
  EXPECT_EQ(BytesAt(destination, 85, 4103), "abc" + std::string(4096, '\0') + "----");
}

TEST(CopyMediaCmd, SourceWithSize85CopiesClipIdAlone) {
  MediaCmd source = Command(ctTransfer, CF_USE_CLIP_ID);
  source.StructSize = 85;
  Put(source, 76, "CLIP");
  Put(source, 85, "file");
  MediaCmd destination = Command(ctTransfer);
  copyMediaCmd(&destination, &source, 0xFFFFFFFFu);
  EXPECT_STREQ(destination.ClipID, "CLIP");
  EXPECT_STREQ(destination.FileName, "");
}

TEST(CopyMediaCmd, LongRecordsGiveNoMoreThanTheLimit) {
  MediaCmd command = Command(ctTransfer, CF_USE_CLIP_ID);
  ExactRecord source(command, 6000);
  std::memset(source.bytes() + 85, 'n', 6000 - 85);
  ExactRecord destination(Command(ctTransfer), 6000);
  std::memset(destination.bytes() + 85, '-', 6000 - 85);
  copyMediaCmd(destination.get(), source.get(), 0);
  const std::string all(destination.bytes() + 85, 6000 - 85);
  EXPECT_EQ(all, std::string(4099, 'n') + std::string(6000 - 85 - 4099, '-'));
}

}  // namespace
}  // namespace qln::test
