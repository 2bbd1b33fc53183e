// A command to XML and back: the losses, one by one, and nothing else.

#include <gtest/gtest.h>

#include <cstdlib>

#include "mediacmd/xml_support.h"

namespace qln::test {
namespace {
// ----------------------------------------------------------

MediaCmd ThereAndBack(const MediaCmd& command, uint32_t type = 0) {
  MediaCmd read;
  EXPECT_EQ(MediaCmdFromXMLString(&read, nullptr, XmlText(command, type).c_str()), 0u);
  return read;
}

TEST(XmlRoundTrip, OverrideDeferredIsLost) {
  EXPECT_EQ(ThereAndBack(Command(ctStop, 0x40000001)).Flags, 0x41u);
}

TEST(XmlRoundTrip, PositionFlagIsAlwaysSet) {
  const MediaCmd read = ThereAndBack(Command(ctStop));
  EXPECT_EQ(read.Flags, 0x40u);
  EXPECT_EQ(read.Position, -1);
}

TEST(XmlRoundTrip, TypeWordsAreNotRead) {
  MediaCmd command = Command(ctStop, CF_USE_START);
  command.Position = 100;
  command.Start = 200;
  for (const uint32_t type : {0u, 1u, 2u, 3u, 4u, 8u, 16u, 32u, 64u, 128u, 132u, 255u}) {
    EXPECT_EQ(ThereAndBack(command, type).Position, 100);
    EXPECT_EQ(ThereAndBack(command, type).Start, 200);
  }
}

TEST(XmlRoundTrip, NominalSpeedBecomesReal) {
  const MediaCmd read = ThereAndBack(Command(ctPlay));
  EXPECT_EQ(read.Flags, 0x50u);
  EXPECT_EQ(read.Speed, 65520);
}

TEST(XmlRoundTrip, ChannelTimecodesComeBackAsChannels) {
  MediaCmd command = Command(ctStop, CF_USE_PRESETS | CF_USE_FRAME_COUNT);
  command.VideoChannels = 1;
  command.AudioChannels = 2;
  command.InfoChannels = 3;
  const MediaCmd read = ThereAndBack(command, 8);
  EXPECT_EQ(read.VideoChannels, 1);
  EXPECT_EQ(read.AudioChannels, 2);
  EXPECT_EQ(read.InfoChannels, 3);
  EXPECT_EQ(read.Flags, 0x80060u);
}

TEST(XmlRoundTrip, AliasesNamesAndTagsAreIgnored) {
  using namespace std::string_view_literals;
  for (const int32_t state : {1054, 60002, 162, 166}) {
    MediaCmd command = ValueCommand(state, ctGetValue, CF_USE_CLIP_ID | CF_USE_CMD_ALT);
    Put(command, 76, "ID\0"sv);
    Put(command, 85, "main$x\0one\0two\0"sv);
    MediaCmd expected = Command(ctGetValue, 0x12040);
    expected.CmdAlt = state;
    if (state == 1054 || state == 162) Put(expected, 76, "ID");
    if (state == 1054) Put(expected, 85, "main$x");
    if (state == 162) Put(expected, 85, "main");
    EXPECT_TRUE(SameRecord(ThereAndBack(command), expected)) << state;
  }
}

TEST(XmlRoundTrip, RepeatedFieldsOfTheAddressFormCountOnlyAsFirstOnes) {
  MediaCmd command =
      ValueCommand(801, ctGetValue, CF_USE_CLIP_ID | CF_USE_CMD_ALT | CF_USE_START | CF_USE_START_OFFSET);
  command.Start = 7;
  command.End = 8;
  command.AudioChannels = 9;
  const MediaCmd read = ThereAndBack(command);
  EXPECT_EQ(read.Start, 7);
  EXPECT_EQ(read.End, 8);
  EXPECT_EQ(read.AudioChannels, 9);
  EXPECT_EQ(read.Flags, 0x12760u);  // the end and the presets come in by the repeated fields
}

TEST(XmlRoundTrip, AddressesLandElsewhere) {
  using namespace std::string_view_literals;
  MediaCmd command = ValueCommand(801, ctGetValue, CF_USE_CLIP_ID);
  Put(command, 76,
      "1.1\0"
      "2\0"
      "3\0"sv);
  const MediaCmd read = ThereAndBack(command);
  // The identifier repeats the destination, which stands five bytes on once more; the interface covers its
  // head, and what is left of it is "1".
  EXPECT_EQ(BytesAt(read, 76, 10), std::string("1.1\0\0"
                                               "3\0"
                                               "1\0\0",
                                               10));
}

TEST(XmlRoundTrip, Base64IsMisreadAsHexadecimal) {
  MediaCmd command = ValueCommand(25, ctGetValue, CF_USE_CLIP_ID | CF_NO_TC_SPACES);
  command.StructSize = 82;
  Put(command, 76, "foobar");
  const MediaCmd read = ThereAndBack(command);  // "Zm9vYmFy"
  EXPECT_EQ(BytesAt(read, 76, 7), std::string("\x36\x9F\x26\xF2\0\0\0", 7));
  EXPECT_EQ(read.StructSize, 82u);
}

TEST(XmlRoundTrip, FlagsWithoutAPlaceAreLost) {
  EXPECT_EQ(ThereAndBack(Command(ctStop, 0x0F000000)).Flags, 0x40u);
}

TEST(XmlRoundTrip, OuterAndDoubledBlanksAreLost) {
  MediaCmd command = Command(ctStop, CF_USE_CLIP_ID);
  Put(command, 85, "  a  b ");
  EXPECT_STREQ(ThereAndBack(command).FileName, "a b");
}

// What must come back of any record whose texts are printable: all but the losses above.
MediaCmd Survivor(const MediaCmd& command) {
  const uint32_t f = command.Flags;
  MediaCmd out = Command(command.Cmd);
  out.CmdID = command.CmdID;
  out.StructSize = command.StructSize;
  out.Channel = command.Channel;
  uint32_t flags = f & 0xB0E0F001u;  // what stands on the command, without the override
  if ((f & 0x10) != 0 || command.Cmd == 2 || command.Cmd == 3 || (f & 0x20000) != 0) {
    out.Speed = (f & 0x10) != 0 ? command.Speed : 65520;
    flags |= 0x10 | (f & 0x20000);
  }
  if ((f & 0x20) != 0) {
    out.VideoChannels = command.VideoChannels;
    out.AudioChannels = command.AudioChannels;
    out.InfoChannels = command.InfoChannels;
    flags |= 0x20;
  }
  if ((f & 0x1000E) != 0) {
    out.CmdAlt = command.CmdAlt;
    flags |= 0x10000 | (f & 0xE);
  }
  out.Position = command.Position;
  flags |= 0x40 | (f & 0x1C0080);
  if ((f & 0x300) != 0) {
    out.Start = command.Start;
    flags |= 0x100 | (f & 0x200);
  }
  if ((f & 0xC00) != 0) {
    out.End = command.End;
    flags |= 0x400 | (f & 0x800);
  }
  out.Flags = flags;
  return out;
}

TEST(XmlRoundTrip, RandomRecordsLoseNothingElse) {
  MessageCapture capture;
  Random random(5);
  for (int round = 0; round < 3000; ++round) {
    MediaCmd command = RandomCommand(random, true);
    MediaCmd expected = Survivor(command);
    // The data area, where its form comes back: a clip, or data in hexadecimal.
    const bool isValue = command.Cmd >= 14 && command.Cmd <= 16;
    if (isValue && (command.CmdAlt == 801 || command.CmdAlt == 802)) continue;
    const bool isData = isValue && (command.CmdAlt == 25 || command.CmdAlt == 1000007);
    const bool isName = isValue && command.CmdAlt == 60002;
    if (isData && (command.Flags & 0x8000) != 0) continue;
    if ((command.Flags & 0x2000) != 0) {
      if (isData) {
        if ((command.Flags & 0x40000) == 0) Put(expected, 76, BytesAt(command, 76, 4112));
      } else if (!isName && command.CmdAlt != 166) {
        const bool isLong = command.ClipID[8] != 0;
        std::string name;
        if (!isLong) {
          Put(expected, 76, command.ClipID);
          name = BytesAt(command, 85, 4103).c_str();
          if (name.empty() && command.CmdAlt == 150) name = command.ClipID;
          if (command.CmdAlt == 162) name = name.substr(0, name.find('$'));
        } else if (command.CmdAlt != 162) {
          name = BytesAt(command, 76, 4112).c_str();
        }
        if (name.size() < (isLong ? 4111u : 4102u)) Put(expected, 85, name);
      }
    }
    EXPECT_TRUE(SameRecord(ThereAndBack(command, static_cast<uint32_t>(random.next())), expected)) << round;
  }
}

// What we write is well-formed for another parser, whatever printable characters the texts hold.
TEST(XmlRoundTrip, AnotherParserReadsWhatWeWrite) {
  const std::string folder = ::testing::TempDir() + "command_xml";
  std::string command = "mkdir -p " + folder;
  ASSERT_EQ(std::system(command.c_str()), 0);
  Random random(9);
  MessageCapture capture;
  for (int i = 0; i < 200; ++i) {
    const std::string text = XmlText(RandomCommand(random, true), static_cast<uint32_t>(random.next()));
    WriteFile(folder + "/" + std::to_string(i) + ".xml", Bytes(text.begin(), text.end()));
  }
  command = "xmllint --huge --noout " + folder + "/*.xml 2>&1";
  EXPECT_EQ(std::system(command.c_str()), 0);
  command = "rm -r " + folder;
  EXPECT_EQ(std::system(command.c_str()), 0);
}

}  // namespace
}  // namespace qln::test
