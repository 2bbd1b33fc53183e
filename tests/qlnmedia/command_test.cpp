// qlnmedia command: texts made from options, and texts turned into the other form.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qlnmedia/program.h"
#include "qlnutil/mediacmd.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string Output(const std::string& arguments) {
  const CommandResult result = Qlnmedia("command " + arguments);
  EXPECT_EQ(result.exitCode, 0) << result.output;
  return result.output;
}

void ExpectUsageError(const std::string& arguments, const std::string& piece) {
  const CommandResult result = Qlnmedia("command " + arguments);
  EXPECT_EQ(result.exitCode, 2) << result.output;
  EXPECT_THAT(result.output, StartsWith("qlnmedia: "));
  EXPECT_THAT(result.output, HasSubstr(piece));
}

TEST(CommandTexts, StopAsXml) {
  EXPECT_EQ(
      Output("stop --channel 1"),
      "<?xml version=\"1.0\" encoding=\"iso-8859-1\" ?><MediaCmd><!-- Morvane MEDIACMD xml structure version "
      "1,0 --><CmdID Value=\"-98237952\" /><StructSize Value=\"4188\" /><Channel Value=\"1\" />"
      "<Cmd Value=\"0\">Stop</Cmd><Speed Value=\"0\">0</Speed>"
      "<Position Value=\"-1\" TcType=\"frames\">-1</Position></MediaCmd>\n");
}

TEST(CommandTexts, PlayAsJson) {
  EXPECT_EQ(Output("PLAY --channel 1 --position 01:00:00:00 --tctype pal --flag loop --flag Deferred --json"),
            "{\"MediaCmd\" : {\"CmdID\":4196729344,\"StructSize\":4188,\"Channel\":1,\"Cmd\": "
            "{\"Value\":2,\"String\":\"Play\",\"Deferred\":1,\"Loop\":1,},\"Speed\": "
            "{\"Value\":65520,\"String\":\"100\",},\"Position\": "
            "{\"Value\":90000,\"TcType\":\"pal\",\"TcString\":\"01:00:00:00\",},}}\n");
}

TEST(CommandTexts, EveryOptionFindsItsField) {
  const std::string text = Output(
      "getvalue --channel -2 --speed -50 --video 1 --audio 2 --info 3 --position 10 --start 20 --end 30 "
      "--state ChannelName --clip CLIP --file 'a b.mov'");
  MediaCmd command;
  ASSERT_EQ(MediaCmdFromXMLString(&command, nullptr, text.c_str()), 0u);
  EXPECT_EQ(command.Cmd, uint32_t{ctGetValue});
  EXPECT_EQ(command.Channel, -2);
  EXPECT_EQ(command.Speed, -32760);
  EXPECT_EQ(command.VideoChannels, 1);
  EXPECT_EQ(command.AudioChannels, 2);
  EXPECT_EQ(command.InfoChannels, 3);
  EXPECT_EQ(command.Position, 10);
  EXPECT_EQ(command.Start, 20);
  EXPECT_EQ(command.End, 30);
  EXPECT_EQ(command.CmdAlt, 1054);
  EXPECT_STREQ(command.ClipID, "CLIP");
  EXPECT_STREQ(command.FileName, "a b.mov");
  EXPECT_EQ(command.Flags, 0x12570u);
}

TEST(CommandTexts, ConvertTurnsOneFormIntoTheOther) {
  const std::string xml = Output("play --channel 3 --speed 25 --position 100 --tctype pal");
  const std::string json = Output("play --channel 3 --speed 25 --position 100 --tctype pal --json");
  const std::string path = MediaPath("command.txt");
  WriteFile(path, Bytes(xml.begin(), xml.end()));
  EXPECT_EQ(Output("convert '" + path + "' --tctype pal"), json);
  EXPECT_EQ(Output("convert '" + path + "' --tctype pal --xml"), xml);
  WriteFile(path, Bytes(json.begin(), json.end()));
  EXPECT_EQ(Output("convert '" + path + "' --tctype pal"), xml);
}

TEST(CommandTexts, ConvertKeepsTheTimecodeType) {
  const std::string path = MediaPath("typed.txt");
  for (const char* type : {"pal", "drop-frame", "59.94", "frames"}) {
    const std::string asked = std::string("play --position 00:01:00:02 --tctype ") + type;
    const std::string xml = Output(asked);
    const std::string json = Output(asked + " --json");
    WriteFile(path, Bytes(xml.begin(), xml.end()));
    EXPECT_EQ(Output("convert '" + path + "'"), json);
    WriteFile(path, Bytes(json.begin(), json.end()));
    EXPECT_EQ(Output("convert '" + path + "'"), xml);
  }
}

// An independent parser takes it, and finds the members of the library's own form.
TEST(CommandTexts, StrictJsonIsForEveryParser) {
  const std::string asked =
      "play --channel 1 --position 01:00:00:00 --tctype pal --flag loop --file 'a \"b\"\\c\td.mov'";
  const CommandResult made =
      test::Run("'" QLNMEDIA_PROGRAM "' command " + asked + " --strict-json | jq -c .MediaCmd");
  EXPECT_EQ(made.exitCode, 0);
  EXPECT_EQ(
      made.output,
      "{\"CmdID\":4196729344,\"StructSize\":4188,\"Channel\":1,\"Cmd\":{\"Value\":2,\"String\":"
      "\"Play\",\"Loop\":1,"
      "\"UseClipID\":1},\"Speed\":{\"Value\":65520,\"String\":\"100\"},\"Position\":{\"Value\":90000,"
      "\"TcType\":"
      "\"pal\",\"TcString\":\"01:00:00:00\"},\"ClipID\":\"\",\"FileName\":\"a \\\"b\\\"\\\\c\\td.mov\"}\n");
  // What it writes it reads.
  const std::string plain = "play --channel 2 --position 01:00:00:00 --tctype pal";
  const std::string strict = Output(plain + " --strict-json");
  const std::string path = MediaPath("strict.json");
  WriteFile(path, Bytes(strict.begin(), strict.end()));
  EXPECT_EQ(Output("convert '" + path + "'"), Output(plain));
}

// What `convert` says that it leaves behind, and its exit status.
std::pair<int, std::string> LostOf(const std::string& json, const std::string& options = "") {
  const std::string path = MediaPath("lost.json");
  WriteFile(path, Bytes(json.begin(), json.end()));
  const CommandResult result = Qlnmedia("command convert '" + path + "' " + options);
  const std::string mark = "not carried over: ";
  const size_t at = result.output.find(mark);
  if (at == std::string::npos) return {result.exitCode, ""};
  return {result.exitCode,
          result.output.substr(at + mark.size(), result.output.find('\n', at) - at - mark.size())};
}

using Lost = std::pair<int, std::string>;

// The reader of the JSON form looks at as many tokens of an object as it has members.
TEST(CommandTexts, ConvertNamesWhatIsLost) {
  EXPECT_EQ(LostOf(Output("getvalue --state channelname --json")), Lost(0, "CmdAlt.Value"));
  EXPECT_EQ(LostOf(Output("play --flag loop --flag ripple --flag notcspaces --json")),
            Lost(0, "Cmd.Ripple, Cmd.NoTCSpaces"));
  EXPECT_EQ(LostOf(R"({"MediaCmd" : {"Cmd": {"Value":2,"String":"Abort"},"Channel":-1,"Colour":"red"}})"),
            Lost(0, "Colour"));
  EXPECT_EQ(LostOf(R"({"MediaCmd" : {"Cmd": {"Value":2},"MetaTag":"Title","Channel":"four"}})"),
            Lost(0, "MetaTag, Channel"));
  EXPECT_EQ(LostOf(R"({"MediaCmd" : {"Cmd": {"Value":2},"Foo":{"a":1},"Bar":[1,[2]],"Baz":{"b":[3]}}})"),
            Lost(0, "Foo.a, Bar, Baz.b"));
  EXPECT_EQ(LostOf(R"({"ClipInfo" : {"Cmd": {"Value":0},"Channel":4294967295}})"), Lost(0, ""));
  // How the timecode counts is the text's, where no option says otherwise.
  const std::string pal = Output("play --position 01:00:00:00 --tctype pal --json");
  EXPECT_EQ(LostOf(pal), Lost(0, ""));
  EXPECT_EQ(LostOf(pal, "--tctype drop-frame"), Lost(0, "Position.TcType"));
  EXPECT_EQ(LostOf(pal, "--tctype pal"), Lost(0, ""));
  EXPECT_EQ(LostOf(pal, "--tctype pal --json"), Lost(0, ""));
  const std::string both = Output("play --speed 50 --channel 1 --video 3 --audio 1 --clip CLIP --json");
  EXPECT_EQ(LostOf(both), Lost(0, ""));
}

// A size from a stranger's text is not believed.
TEST(CommandTexts, ConvertBoundsTheSize) {
  const std::string path = MediaPath("huge.xml");
  const std::string text =
      "<MediaCmd><StructSize Value='2147483647'/><Cmd Value='14' UseClipID='1'/><CmdAlt "
      "Value='25'/></MediaCmd>";
  WriteFile(path, Bytes(text.begin(), text.end()));
  EXPECT_THAT(Output("convert '" + path + "'"), HasSubstr("\"length\":4112,"));
}

TEST(CommandTexts, WrongUsage) {
  ExpectUsageError("", "WORD");
  ExpectUsageError("dance", "dance is no command");
  ExpectUsageError("play --tctype ntsc", "ntsc is no timecode type");
  ExpectUsageError("play --position now", "now is no timecode");
  ExpectUsageError("play --flag fast", "fast is no flag; there are deferred, overridedeferred,");
  ExpectUsageError("play --flag lop", "lop is no flag; loop? there are");
  ExpectUsageError("plya", "plya is no command; play? there are convert, stop,");
  ExpectUsageError("play --strict-json --json", "json");
  ExpectUsageError("getvalue --state nothing", "nothing is no state value");
  ExpectUsageError("play --clip 123456789", "8 characters");
  ExpectUsageError("play --speed 1e12", "out of range");
  ExpectUsageError("play --xml --json", "xml");
  ExpectUsageError("play some.file", "convert");
  ExpectUsageError("convert", "FILE");
}

TEST(CommandTexts, FilesThatHoldNoCommand) {
  const CommandResult missing = Qlnmedia("command convert /no/such/file");
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_THAT(missing.output, HasSubstr("/no/such/file: cannot be opened"));
  const std::string path = MediaPath("none.txt");
  for (const std::string text : {"", "words", "<Other/>", "{\"MediaCmd\" : {", "{\"Other\":1}"}) {
    WriteFile(path, Bytes(text.begin(), text.end()));
    const CommandResult result = Qlnmedia("command convert '" + path + "'");
    EXPECT_EQ(result.exitCode, 1) << text;
    EXPECT_THAT(result.output, HasSubstr("holds no command")) << text;
  }
  EXPECT_EQ(Qlnmedia("command convert /").exitCode, 1);
}

}  // namespace
}  // namespace qln::test
