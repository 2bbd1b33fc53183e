// A command from JSON text: timecodes, names, binary data and addresses, which stay in the record.

#include <gtest/gtest.h>

#include "kxutil/kxutil.h"
#include "mediacmd/json_reader_support.h"
#include "mediacmd/xml_support.h"
#include "qlnutil/mediacmd/command_json.h"

namespace qln::test {
namespace {

using namespace std::string_literals;

MediaCmd Filled() {
  MediaCmd command = Command(ctStop);
  std::memset(command.ClipID, 'z', 4112);
  return command;
}

TEST(JsonReader, TimecodeTextCountsOnlyBehindItsType) {
  // The writer's form: the word is a string and skipped, the text stands too far behind.
  EXPECT_EQ(Read(R"("Position": {"TcType":"pal","TcString":"01:00:00:00"})").Position, -1);
  // In place of the type's value. The working type is 0: the service counts at 30.
  EXPECT_EQ(Read(R"("Position": {"TcType":"TcString","01:00:00:00":1})").Position, 108000);
  EXPECT_EQ(Read(R"("Position": {"TcType","TcString","01:00:00:00"})").Position, 108000);
  EXPECT_EQ(Read(R"("Position": {"TcType":"TcString","x":1})").Position, -1);
  EXPECT_EQ(Read(R"("Position": {"TcType":"TcString",5:1})").Position, -1);
  // A number sets the type, for what follows too.
  EXPECT_EQ(
      Read(R"("Position": {"TcType":8},"x","Position": {"TcType":"TcString","01:00:00:00":1})").Position,
      90000);
  EXPECT_EQ(Read("\"Position\": {\"TcType\":\"TcString\",\"" + std::string(5000, '1') + "\":1}").Position,
            -1);
}

TEST(JsonReader, BinaryData) {
  MediaCmd command = Read(R"("arbID": {"length":4,"Value":"01AB00ff","a":1})");
  EXPECT_EQ(BytesAt(command, 76, 5), "\x01\xAB\x00\xFF\x00"s);
  EXPECT_EQ(command.StructSize, 80u);
  EXPECT_EQ(command.Flags, 0x2000u);
  // The length counts only ahead of the data.
  command = ReadInto(Filled(), R"("arbID": {"Value":"01AB","length":2})");
  EXPECT_EQ(command.StructSize, 76u);
  EXPECT_EQ(command.Flags, 0x2000u);
  EXPECT_EQ(BytesAt(command, 76, 2), "zz");
  // What the writer makes of data is not read: one form's text has another key, the other's lies too far
  // behind.
  for (const char* text : {R"("arbID": {"Type":"hex","length":4,"String":"01AB00FF",})",
                           R"("arbID": {"Type":"base64","length":4,"Value":"AasA/w==",})"}) {
    EXPECT_TRUE(SameRecord(ReadInto(Filled(), text), Filled())) << text;
  }
}

TEST(JsonReader, BinaryDataStaysInTheRecord) {
  const auto read = [](const std::string& length, const std::string& value) {
    return ReadInto(Filled(), "\"arbID\": {\"length\":" + length + ",\"Value\":" + value + ",\"a\":1}");
  };
  for (const char* length : {"-1", "4113", "2147483647", "-2147483648"}) {
    EXPECT_TRUE(SameRecord(read(length, "\"ABCD\""), Filled())) << length;
  }
  EXPECT_TRUE(SameRecord(read("2", "5"), Filled()));
  MediaCmd expected = Filled();
  expected.ClipID[0] = '\xAB';
  expected.StructSize = 4188;
  expected.Flags = 0x2000;
  EXPECT_TRUE(SameRecord(read("4112", "\"ABC\""), expected));
  expected.ClipID[0] = 'z';
  EXPECT_TRUE(SameRecord(read("4112", "\"\""), expected));
}

TEST(JsonReader, ClipIdAndFileNameShareAPlace) {
  MediaCmd command = Read(R"("ClipID":"CLIPCLIPCLIP")");
  EXPECT_EQ(BytesAt(command, 76, 13), "CLIPCLIPCLIP\0"s);
  EXPECT_EQ(command.Flags, 0x2000u);
  command = ReadInto(Filled(), R"("ClipID":"CLIP","FileName":"a")");
  EXPECT_EQ(BytesAt(command, 76, 6), "a\0IP\0z"s);
  EXPECT_EQ(BytesAt(Read(R"("FileName":"a\"b\\u0041")"), 76, 12),
            "a\\\"b\\\\u0041\0"s);  // escapes as they stand
  for (const char* key : {"ClipID", "FileName", "sourceipaddress", "destinationipaddress", "clockipaddress",
                          "interfaceipaddress"}) {
    MediaCmd expected = Filled();
    expected.Flags = 0x2000;
    EXPECT_TRUE(SameRecord(ReadInto(Filled(), "\"" + std::string(key) + "\":5"), expected)) << key;
  }
}

TEST(JsonReader, Addresses) {
  for (const char* key : {"sourceipaddress", "destinationipaddress", "clockipaddress"}) {
    EXPECT_EQ(BytesAt(Read("\"ClipID\":\"AB\",\"" + std::string(key) + "\":\"1.2\""), 76, 8),
              "AB\0\0"
              "1.2\0"s)
        << key;
  }
  EXPECT_EQ(BytesAt(Read(R"("sourceipaddress":"abc","interfaceipaddress":"if")"), 76, 8),
            "\0\0"
            "abcif\0"s);
}

TEST(JsonReader, TextsAreCutToTheRecord) {
  const std::string text(9000, 'a');
  MediaCmd command = Read("\"ClipID\":\"" + text + "\"");
  EXPECT_EQ(BytesAt(command, 76, 4112), std::string(4111, 'a') + '\0');
  command = Read("\"sourceipaddress\":\"" + text + "\"");
  EXPECT_EQ(BytesAt(command, 76, 4112), "\0\0"s + std::string(4109, 'a') + '\0');
  command = ReadInto(Filled(), "\"sourceipaddress\":\"" + text + "\"");
  EXPECT_EQ(BytesAt(command, 76, 4112), std::string(4112, 'z'));
  // A size in the text moves no bound.
  command = Read("\"StructSize\":100000,\"ClipID\":\"" + text + "\"");
  EXPECT_EQ(BytesAt(command, 76, 4112), std::string(4111, 'a') + '\0');
  EXPECT_EQ(command.StructSize, 100000u);
  // A longer record takes more.
  ExactRecord record(Command(ctStop), 6000);
  EXPECT_EQ(MediaCmdFromJSON(record.get(), nullptr, ("{\"MediaCmd\":{\"ClipID\":\"" + text + "\"}}").c_str()),
            0);
  EXPECT_EQ(std::string(record.bytes() + 76, 5924), std::string(5923, 'a') + '\0');
}

}  // namespace
}  // namespace qln::test
