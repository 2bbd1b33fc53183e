// A command as XML: which nodes, in which order, under which condition, with which text.

#include <gtest/gtest.h>

#include "kxutil/kxutil.h"
#include "mediacmd/xml_support.h"

namespace qln::test {
namespace {

TEST(XmlWriter, InitialisedStopIsExactlyThis) {
  MediaCmd command = Command(ctStop);
  TiXmlDocument document;
  EXPECT_EQ(MediaCmdToXML(&document, &command, 0), 0u);

  const TiXmlNode* node = document.FirstChild();
  ASSERT_NE(node, nullptr);
  const TiXmlDeclaration* declaration = node->ToDeclaration();
  ASSERT_NE(declaration, nullptr);
  EXPECT_STREQ(declaration->Version(), "1.0");
  EXPECT_STREQ(declaration->Encoding(), "iso-8859-1");
  EXPECT_STREQ(declaration->Standalone(), "");

  const TiXmlElement* root = node->NextSibling()->ToElement();
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(root->ValueStr(), "MediaCmd");
  EXPECT_EQ(root->FirstAttribute(), nullptr);
  EXPECT_EQ(root->NextSibling(), nullptr);
  ASSERT_NE(root->FirstChild()->ToComment(), nullptr);
  EXPECT_EQ(root->FirstChild()->ValueStr(), " Morvane MEDIACMD xml structure version 1,0 ");
  EXPECT_EQ(ElementsOf(document), (Lines{"CmdID Value=-98237952", "StructSize Value=4188", "Channel Value=-1",
                                         "Cmd Value=0 |Stop", "Position Value=-1 TcType=frames |-1"}));
}

TEST(XmlWriter, StringIsTheCompactDocument) {
  EXPECT_EQ(
      XmlText(Command(ctStop)),
      "<?xml version=\"1.0\" encoding=\"iso-8859-1\" ?><MediaCmd><!-- Morvane MEDIACMD xml structure "
      "version 1,0 --><CmdID Value=\"-98237952\" /><StructSize Value=\"4188\" /><Channel Value=\"-1\" />"
      "<Cmd Value=\"0\">Stop</Cmd><Position Value=\"-1\" TcType=\"frames\">-1</Position></MediaCmd>");
}

// The text of the string form is what the XML library prints of the document, byte for byte.
TEST(XmlWriter, StringIsWhatTheDocumentPrints) {
  MessageCapture capture;
  Random random(11);
  for (int round = 0; round < 3000; ++round) {
    const MediaCmd command = RandomCommand(random, round % 2 == 0);
    const uint32_t type = static_cast<uint32_t>(random.next());
    MediaCmd copy = command;
    TiXmlDocument document;
    MediaCmdToXML(&document, &copy, type);
    std::string printed;
    printed << document;
    ASSERT_EQ(XmlText(command, type), printed) << round;
  }
}

TEST(XmlWriter, EscapesAsTheLibraryDoes) {
  MediaCmd command = Command(ctStop, CF_USE_CLIP_ID);
  Put(command, 76, "<&>'\"");
  Put(command, 85, "a&#x41;\x01\xE4.mov");
  const std::string text = XmlText(command);
  EXPECT_NE(text.find("<ClipID>&lt;&amp;&gt;&apos;&quot;</ClipID>"), std::string::npos) << text;
  EXPECT_NE(text.find("<FileName>a&amp;#x41;&#x01;\xE4.mov</FileName>"), std::string::npos) << text;
}

TEST(XmlWriter, LinksAreTheirLowHalves) {
  MediaCmd command = Command(ctStop);
  command.prev = reinterpret_cast<void*>(uintptr_t{0x1234567880000001u});
  command.next = reinterpret_cast<void*>(uintptr_t{0x00000001000000FFu});
  command.list = reinterpret_cast<void*>(uintptr_t{0x0000000100000000u});
  EXPECT_EQ(Only(Xml(command), {"prev", "next", "list"}),
            (Lines{"prev Value=-2147483647", "next Value=255", "list Value=0"}));
  EXPECT_EQ(Xml(command)[0], "prev Value=-2147483647");
}

TEST(XmlWriter, EveryCommandWord) {
  const char* const words[] = {
      "Stop",           "Pause",  "Play",      "Record",     "RecStop",  "Eject",    "Transfer", "Insert",
      "Blank",          "Delete", "Trim",      "ChanSelect", "GetState", "SetState", "GetValue", "SetValue",
      "ValueSupported", "Error",  "Terminate", "Abort",      "Edit",     "Switch",   "Unknown"};
  for (uint32_t cmd = 0; cmd < std::size(words); ++cmd) {
    EXPECT_EQ(Only(Xml(Command(cmd)), {"Cmd"}),
              Lines{"Cmd Value=" + std::to_string(cmd) + " |" + words[cmd]});
  }
  EXPECT_EQ(Only(Xml(Command(99)), {"Cmd"}), Lines{"Cmd Value=99 |Unknown"});
  EXPECT_EQ(Only(Xml(Command(0xFFFFFFFFu)), {"Cmd"}), Lines{"Cmd Value=-1 |Unknown"});
}

TEST(XmlWriter, EachCommandFlagAlone) {
  const std::pair<uint32_t, const char*> rows[] = {{0x1, "Deferred"},       {0x40000000, "OverrideDeferred"},
                                                   {0x400000, "Loop"},      {0x800000, "Trigger"},
                                                   {0x200000, "Ripple"},    {0x10000000, "Invert"},
                                                   {0x20000000, "Test"},    {0x80000000, "NoReturn"},
                                                   {0x1000, "UseAllIDs"},   {0x2000, "UseClipID"},
                                                   {0x4000, "NoClipFiles"}, {0x8000, "NoTCSpaces"}};
  std::string all = "Cmd Value=6";
  uint32_t flags = 0;
  for (const auto& [flag, name] : rows) {
    EXPECT_EQ(Only(Xml(Command(ctTransfer, flag)), {"Cmd"}),
              Lines{std::string("Cmd Value=6 ") + name + "=1 |Transfer"});
    all += std::string(" ") + name + "=1";
    flags |= flag;
  }
  EXPECT_EQ(Only(Xml(Command(ctTransfer, flags)), {"Cmd"}), Lines{all + " |Transfer"});
}

// Flags without a place in the form leave no trace.
TEST(XmlWriter, FlagsWithoutAPlaceAreLost) {
  const Lines plain = Xml(Command(ctStop));
  for (const uint32_t flag : {0x40u, 0x80000u, 0x1000000u, 0x2000000u, 0x4000000u, 0x8000000u}) {
    if (flag == 0x80000u) continue;  // stands on the points
    EXPECT_EQ(Xml(Command(ctStop, flag)), plain) << flag;
  }
}

TEST(XmlWriter, SpeedRule) {
  const auto speed = [](uint32_t cmd, uint32_t flags, int32_t value) {
    MediaCmd command = Command(cmd, flags);
    command.Speed = value;
    return Only(Xml(command), {"Speed"});
  };
  EXPECT_EQ(speed(ctStop, 0, 65520), Lines{});
  EXPECT_EQ(speed(ctStop, 0x10, 32760), Lines{"Speed Value=32760 |50"});
  EXPECT_EQ(speed(ctStop, 0x10, -65520), Lines{"Speed Value=-65520 |-100"});
  EXPECT_EQ(speed(ctStop, 0x20010, 655), Lines{"Speed Value=655 IsShuttle=1 |0"});
  // Announced at nominal speed, the text from the field.
  EXPECT_EQ(speed(ctPlay, 0, 0x7FFFFFFF), Lines{"Speed Value=65520 |0"});
  EXPECT_EQ(speed(ctRecord, 0, 32760), Lines{"Speed Value=65520 |50"});
  EXPECT_EQ(speed(ctStop, 0x20000, 131040), Lines{"Speed Value=65520 IsShuttle=1 |200"});
  EXPECT_EQ(speed(ctPlay, 0x10, 5), Lines{"Speed Value=5 |0"});
  EXPECT_EQ(speed(ctPause, 0, 5), Lines{});
}

TEST(XmlWriter, ChannelsAndTheirTimecodes) {
  MediaCmd command = Command(ctStop, CF_USE_PRESETS);
  command.VideoChannels = 90000;
  command.AudioChannels = -1;
  command.InfoChannels = 25;
  const Lines names = {"ctltimecode",   "ltctimecode",   "vitctimecode",
                       "VideoChannels", "AudioChannels", "InfoChannels"};
  EXPECT_EQ(Only(Xml(command, 8), names),
            (Lines{"VideoChannels Value=90000", "AudioChannels Value=-1", "InfoChannels Value=25"}));
  command.Flags |= CF_USE_FRAME_COUNT;
  command.AudioChannels = 50;
  EXPECT_EQ(
      Only(Xml(command, 8), names),
      (Lines{"ctltimecode Value=90000 TcType=pal |01:00:00:00",
             "ltctimecode Value=50 TcType=pal |00:00:02:00", "vitctimecode Value=25 TcType=pal |00:00:01:00",
             "VideoChannels Value=90000", "AudioChannels Value=50", "InfoChannels Value=25"}));
  command.Flags = CF_USE_FRAME_COUNT;
  EXPECT_EQ(Only(Xml(command, 8), names), Lines{});
}

TEST(XmlWriter, CmdAltByFlags) {
  MediaCmd command = Command(ctStop);
  command.CmdAlt = 7;
  const auto cmdAlt = [&](uint32_t flags) {
    command.Flags = flags;
    return Only(Xml(command), {"CmdAlt"});
  };
  EXPECT_EQ(cmdAlt(0), Lines{});
  EXPECT_EQ(cmdAlt(0x10000), Lines{"CmdAlt Value=7"});
  EXPECT_EQ(cmdAlt(0x2), Lines{"CmdAlt Value=7 TimeMs=1"});
  EXPECT_EQ(cmdAlt(0x4), Lines{"CmdAlt Value=7 TimeTarget=1"});
  EXPECT_EQ(cmdAlt(0x8), Lines{"CmdAlt Value=7 TimeHouseClock=1"});
  EXPECT_EQ(cmdAlt(0x1000E), Lines{"CmdAlt Value=7 TimeMs=1 TimeTarget=1 TimeHouseClock=1"});
  // A value command without one of the flags loses it.
  command.Cmd = ctGetValue;
  EXPECT_EQ(cmdAlt(0), Lines{});
}

TEST(XmlWriter, PointsByFlags) {
  MediaCmd command = Command(ctStop);
  command.Position = 1;
  command.Start = 2;
  command.End = 3;
  command.CmdAlt = 0;
  const auto points = [&](uint32_t flags) {
    command.Flags = flags;
    return Only(Xml(command), {"Position", "Start", "End"});
  };
  const std::string position = "Position Value=1 TcType=frames";
  const std::string start = "Start Value=2 TcType=frames";
  const std::string end = "End Value=3 TcType=frames";
  EXPECT_EQ(points(0), Lines{position + " |1"});
  EXPECT_EQ(points(0x40), Lines{position + " |1"});
  EXPECT_EQ(points(0x80), Lines{position + " IsOffset=1 |1"});
  EXPECT_EQ(points(0x100), (Lines{position + " |1", start + " |2"}));
  EXPECT_EQ(points(0x200), (Lines{position + " |1", start + " IsOffset=1 |2"}));
  EXPECT_EQ(points(0x400), (Lines{position + " |1", end + " |3"}));
  EXPECT_EQ(points(0x800), (Lines{position + " |1", end + " IsOffset=1 |3"}));
  const std::string common = " UsingCurrent=1 UsingFrameCount=1 IsFieldCount=1";
  EXPECT_EQ(points(0x1C0000), Lines{position + common + " |1"});
  EXPECT_EQ(points(0x40000), Lines{position + " UsingCurrent=1 |1"});
  EXPECT_EQ(points(0x80000), Lines{position + " UsingFrameCount=1 |1"});
  EXPECT_EQ(points(0x100000), Lines{position + " IsFieldCount=1 |1"});
  EXPECT_EQ(points(0x1C0F80),
            (Lines{position + " IsOffset=1" + common + " |1", start + " IsOffset=1" + common + " |2",
                   end + " IsOffset=1" + common + " |3"}));
}

TEST(XmlWriter, EveryTimecodeType) {
  MediaCmd command = Command(ctStop);
  command.Position = 100;
  const auto position = [&](uint32_t type) { return Only(Xml(command, type), {"Position"}).at(0); };
  EXPECT_EQ(position(0), "Position Value=100 TcType=frames |100");
  EXPECT_EQ(position(255), "Position Value=100 TcType=frames |100");
  EXPECT_EQ(position(1), "Position Value=100 TcType=film |00:00:04:04");
  EXPECT_EQ(position(2), "Position Value=100 TcType=non-drop-frame |00:00:03:10");
  EXPECT_EQ(position(4), "Position Value=100 TcType=drop-frame |00:00:03;10");
  EXPECT_EQ(position(8), "Position Value=100 TcType=pal |00:00:04:00");
  EXPECT_EQ(position(16), "Position Value=100 TcType=50 |00:00:02:00");
  EXPECT_EQ(position(32), "Position Value=100 TcType=59.94 |00:00:01;40");
  EXPECT_EQ(position(64), "Position Value=100 TcType=60 |00:00:01:40");
  EXPECT_EQ(position(128), "Position Value=100 TcType=film-drop |00:00:04:04");
  EXPECT_EQ(position(132), "Position Value=100 TcType=23.98 |00:00:04:04");
  EXPECT_EQ(position(3), "Position Value=100 |00:00:03:10");
  EXPECT_EQ(position(0x104), "Position Value=100 TcType=drop-frame |00:00:03;10");  // the low byte counts
  EXPECT_EQ(position(0xFFFFFFFFu), "Position Value=100 TcType=frames |100");
}

TEST(XmlWriter, ChannelTimecodesStayTimecodesForFrames) {
  MediaCmd command = Command(ctStop, CF_USE_PRESETS | CF_USE_FRAME_COUNT);
  command.VideoChannels = 100;
  for (const uint32_t type : {0u, 255u}) {
    EXPECT_EQ(Only(Xml(command, type), {"ctltimecode"}), Lines{"ctltimecode Value=100 TcType=frames |100"});
  }
}

// The type word 0xB2140 names type 64: 60 frames a second.
TEST(XmlWriter, StartTakesTheServiceTypeAboveServices) {
  MediaCmd command = Command(ctStop, CF_USE_START | CF_USE_END);
  command.Start = command.End = command.Position = 120;
  const auto start = [&](int32_t cmdAlt, uint32_t type) {
    command.CmdAlt = cmdAlt;
    return Only(Xml(command, type), {"Start"}).at(0);
  };
  EXPECT_EQ(start(-1, 8), "Start Value=120 TcType=pal |00:00:02:00");
  EXPECT_EQ(start(1100001, 8), "Start Value=120 TcType=pal |00:00:02:00");
  EXPECT_EQ(start(1100000, 8), "Start Value=120 TcType=pal |00:00:04:20");
  EXPECT_EQ(start(0, 8), "Start Value=120 TcType=pal |00:00:04:20");
  EXPECT_EQ(start(-1, 0), "Start Value=120 TcType=frames |120");
  command.CmdAlt = -1;
  EXPECT_EQ(Only(Xml(command, 8), {"Position", "End"}),
            (Lines{"Position Value=120 TcType=pal |00:00:04:20", "End Value=120 TcType=pal |00:00:04:20"}));
}

TEST(XmlWriter, EndTakesTheServiceTypeForQueues) {
  const auto end = [](uint32_t cmd, int32_t cmdAlt, uint32_t type) {
    MediaCmd command = Command(cmd, CF_USE_END);
    command.End = 120;
    command.CmdAlt = cmdAlt;
    return Only(Xml(command, type), {"End"}).at(0);
  };
  for (const int32_t queue : {1100001, 1100002}) {
    for (const uint32_t cmd : {14u, 15u, 16u}) {
      EXPECT_EQ(end(cmd, queue, 8), "End Value=120 TcType=pal |00:00:02:00");
      EXPECT_EQ(end(cmd, queue, 0), "End Value=120 TcType=frames |120");
    }
    EXPECT_EQ(end(13, queue, 8), "End Value=120 TcType=pal |00:00:04:20");
    EXPECT_EQ(end(17, queue, 8), "End Value=120 TcType=pal |00:00:04:20");
  }
  EXPECT_EQ(end(14, 1100000, 8), "End Value=120 TcType=pal |00:00:04:20");
  EXPECT_EQ(end(14, 1100003, 8), "End Value=120 TcType=pal |00:00:04:20");
}

TEST(XmlWriter, TwoCommandsInOneDocumentAreTwoRoots) {
  TiXmlDocument document;
  MediaCmd command = Command(ctStop);
  MediaCmdToXML(&document, &command, 0);
  MediaCmdToXML(&document, &command, 0);
  int roots = 0;
  for (const TiXmlElement* e = document.FirstChildElement("MediaCmd"); e != nullptr;
       e = e->NextSiblingElement("MediaCmd")) {
    ++roots;
  }
  EXPECT_EQ(roots, 2);
}

TEST(XmlWriter, TakesNull) {
  MediaCmd command = Command(ctStop);
  TiXmlDocument document;
  EXPECT_EQ(MediaCmdToXML(nullptr, &command, 0), 0u);
  EXPECT_EQ(MediaCmdToXML(&document, nullptr, 0), 0u);
  EXPECT_EQ(document.FirstChild(), nullptr);
  char* text = &command.ClipID[0];
  EXPECT_EQ(MediaCmdToXMLString(nullptr, &command, 0), 0u);
  EXPECT_EQ(MediaCmdToXMLString(&text, nullptr, 0), 0u);
  EXPECT_EQ(text, &command.ClipID[0]);
  EXPECT_EQ(MediaCmdFreeXMLString(nullptr), 0u);
  text = nullptr;
  EXPECT_EQ(MediaCmdFreeXMLString(&text), 0u);
  EXPECT_EQ(text, nullptr);
}

TEST(XmlWriter, TextIsABlockOfItsLengthAndATerminator) {
  MediaCmd command = Command(ctStop);
  char* text = nullptr;
  MediaCmdToXMLString(&text, &command, 0);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(KXAllocSize(text), std::strlen(text) + 1);
  MediaCmdFreeXMLString(&text);
}

}  // namespace
}  // namespace qln::test
