// A command from XML: clip names, file names, binary data and addresses, which share a place in the record.

#include <gtest/gtest.h>

#include "mediacmd/xml_reader_support.h"
#include "mediacmd/xml_support.h"

namespace qln::test {
namespace {

TEST(XmlReader, ClipId) {
  MediaCmd command = ReadChildren("<ClipID>CLIP</ClipID>");
  EXPECT_STREQ(command.ClipID, "CLIP");
  EXPECT_EQ(command.Flags, 0x2000u);
  command = ReadChildren("<ClipID>123456789</ClipID>");
  EXPECT_EQ(BytesAt(command, 76, 10), std::string("12345678\0\0", 10));
  command = ReadChildren("<ClipID/>");
  EXPECT_EQ(command.Flags, 0u);

  // What stood in the record: the rest of the identifier is cleared, the file name cut, the mark stays.
  MediaCmd filled = Command(ctStop);
  std::memset(filled.ClipID, 'z', 4112);
  MediaCmd read = filled;
  EXPECT_EQ(ReadInto(&read, Rooted("<ClipID>AB</ClipID>")), 0u);
  EXPECT_EQ(BytesAt(read, 76, 12), std::string("AB\0\0\0\0\0\0z\0zz", 12));
  read = filled;
  EXPECT_EQ(ReadInto(&read, Rooted("<ClipID></ClipID>")), 0u);
  EXPECT_EQ(BytesAt(read, 76, 12), std::string("\0zzzzzzzz\0zz", 12));
  EXPECT_EQ(read.Flags, 0u);
}

TEST(XmlReader, ClipIdGoesByTheSizeOfTheText) {
  const auto area = [](const std::string& size) {
    MediaCmd command = Command(ctStop);
    std::memset(command.ClipID, 'z', 4112);
    EXPECT_EQ(ReadInto(&command, Rooted("<StructSize Value='" + size + "'/><ClipID>123456789</ClipID>")), 0u);
    EXPECT_EQ(command.Flags, 0x2000u);
    return BytesAt(command, 76, 9);
  };
  EXPECT_EQ(area("86"), "12345678z");  // 10 bytes
  EXPECT_EQ(area("85"), "12345678z");  // 9 bytes: 8 characters all the same
  EXPECT_EQ(area("84"), "1234567zz");
  EXPECT_EQ(area("79"), "12zzzzzzz");
  EXPECT_EQ(area("77"), "zzzzzzzzz");
  EXPECT_EQ(area("0"), "zzzzzzzzz");
  EXPECT_EQ(area("-1"), "zzzzzzzzz");
  EXPECT_EQ(area("-2147483648"), "zzzzzzzzz");
  EXPECT_EQ(area("2147483647"), "12345678z");
}

TEST(XmlReader, FileName) {
  const MediaCmd command = ReadChildren("<ClipID>CLIP</ClipID><FileName>a.mov</FileName>");
  EXPECT_STREQ(command.ClipID, "CLIP");
  EXPECT_STREQ(command.FileName, "a.mov");
  EXPECT_EQ(command.Flags, 0x2000u);
  EXPECT_EQ(ReadChildren("<FileName/>").Flags, 0u);

  MediaCmd filled = Command(ctStop);
  std::memset(filled.ClipID, 'z', 4112);
  EXPECT_EQ(ReadInto(&filled, Rooted("<FileName>a</FileName>")), 0u);
  EXPECT_EQ(BytesAt(filled, 76, 4112), std::string(9, 'z') + "a" + std::string(4102, '\0'));

  const MediaCmd longest = ReadChildren("<FileName>" + std::string(5000, 'n') + "</FileName>");
  EXPECT_EQ(BytesAt(longest, 85, 4103), std::string(4102, 'n') + std::string(1, '\0'));
}

TEST(XmlReader, FileNameGoesByTheSizeOfTheText) {
  const auto area = [](const std::string& size) {
    MediaCmd command = Command(ctStop);
    std::memset(command.ClipID, 'z', 4112);
    EXPECT_EQ(ReadInto(&command, Rooted("<StructSize Value='" + size + "'/><FileName>123</FileName>")), 0u);
    EXPECT_EQ(command.Flags, 0x2000u);
    return BytesAt(command, 84, 8);
  };
  using namespace std::string_literals;
  EXPECT_EQ(area("85"), "zzzzzzzz");
  EXPECT_EQ(area("86"), "z\0zzzzzz"s);
  EXPECT_EQ(area("88"), "z12\0zzzz"s);
  EXPECT_EQ(area("91"), "z123\0\0\0z"s);
  EXPECT_EQ(area("-1"), "zzzzzzzz");
  EXPECT_EQ(area("0"), "zzzzzzzz");
}

// A size from the text beyond the record moves no bound.
TEST(XmlReader, SizeBeyondTheRecordIsStoredButNotUsed) {
  ExactRecord record(Command(ctStop), 4188);
  const std::string text = Rooted("<StructSize Value='2147483647'/><ClipID>C</ClipID><FileName>" +
                                  std::string(9000, 'n') + "</FileName>");
  EXPECT_EQ(ReadInto(record.get(), text), 0u);
  EXPECT_EQ(record.get()->StructSize, 0x7FFFFFFFu);
  EXPECT_EQ(std::string(record.bytes() + 85, 4103), std::string(4102, 'n') + std::string(1, '\0'));
}

TEST(XmlReader, LongRecordsTakeLongTexts) {
  ExactRecord record(Command(ctStop), 6000);
  EXPECT_EQ(ReadInto(record.get(), Rooted("<FileName>" + std::string(9000, 'n') + "</FileName>")), 0u);
  EXPECT_EQ(std::string(record.bytes() + 85, 6000 - 85), std::string(6000 - 86, 'n') + std::string(1, '\0'));
}

TEST(XmlReader, BinaryData) {
  using namespace std::string_literals;
  MediaCmd command = ReadChildren("<arbID Type='hex' length='4'>01AB00FF</arbID>");
  EXPECT_EQ(BytesAt(command, 76, 5), "\x01\xAB\x00\xFF\x00"s);
  EXPECT_EQ(command.StructSize, 80u);
  EXPECT_EQ(command.Flags, 0x2000u);
  command = ReadChildren("<arbID length='3'>abcDEf99</arbID>");
  EXPECT_EQ(BytesAt(command, 76, 4), "\xAB\xCD\xEF\x00"s);
  EXPECT_EQ(command.StructSize, 79u);
  // Whatever the type says.
  EXPECT_EQ(BytesAt(ReadChildren("<arbID Type='base64' length='2'>1234</arbID>"), 76, 3), "\x12\x34\x00"s);
  // A character above "9" counts 7 less; of that, and of any other, the low four bits count.
  EXPECT_EQ(BytesAt(ReadChildren("<arbID length='2'>Zm9v</arbID>"), 76, 2), "\x36\x9F"s);
  EXPECT_EQ(BytesAt(ReadChildren("<arbID length='2'>-./+</arbID>"), 76, 2), "\xDE\xFB"s);
}

TEST(XmlReader, BinaryDataAtTheEdges) {
  MediaCmd filled = Command(ctStop);
  std::memset(filled.ClipID, 'z', 4112);
  const auto read = [&](const std::string& element) {
    MediaCmd command = filled;
    EXPECT_EQ(ReadInto(&command, Rooted(element)), 0u);
    return command;
  };
  // No length, or none that scans: 0.
  for (const char* element : {"<arbID>AA</arbID>", "<arbID length='x'>AA</arbID>",
                              "<arbID length='0'>AA</arbID>", "<arbID length='0'/>", "<arbID/>"}) {
    MediaCmd expected = filled;
    expected.StructSize = 76;
    expected.Flags = 0x2000;
    EXPECT_TRUE(SameRecord(read(element), expected)) << element;
  }
  // A length that is negative, beyond the record, or without a text: passed over.
  for (const char* element : {"<arbID length='-1'>AA</arbID>", "<arbID length='-2147483648'>AA</arbID>",
                              "<arbID length='4113'>AA</arbID>", "<arbID length='2147483647'>AA</arbID>",
                              "<arbID length='1'/>", "<arbID length='1'></arbID>"}) {
    EXPECT_TRUE(SameRecord(read(element), filled)) << element;
  }
  // A shorter text is decoded as far as its pairs go.
  MediaCmd expected = filled;
  expected.ClipID[0] = '\xAB';
  expected.ClipID[1] = '\xCD';
  expected.StructSize = 76 + 4112;
  expected.Flags = 0x2000;
  EXPECT_TRUE(SameRecord(read("<arbID length='4112'>ABCDE</arbID>"), expected));
  // Characters that are no digits are taken the same way: 7 less above "9", and the low four bits.
  expected.ClipID[0] = '\x33';
  expected.ClipID[1] = '\x9A';
  EXPECT_TRUE(SameRecord(read("<arbID length='4112'>::9a</arbID>"), expected));
}

TEST(XmlReader, BinaryDataOfALongRecord) {
  ExactRecord record(Command(ctStop), 10076);
  std::string text;
  for (int i = 0; i < 10000; ++i) text += "5A";
  EXPECT_EQ(ReadInto(record.get(), Rooted("<arbID length='10000'>" + text + "</arbID>")), 0u);
  EXPECT_EQ(std::string(record.bytes() + 76, 10000), std::string(10000, 'Z'));
  EXPECT_EQ(record.get()->StructSize, 10076u);
  // The bound is the size at entry: a size in the text moves it neither way.
  ExactRecord grown(Command(ctStop), 4188);
  EXPECT_EQ(
      ReadInto(grown.get(), Rooted("<StructSize Value='10076'/><arbID length='10000'>" + text + "</arbID>")),
      0u);
  EXPECT_EQ(grown.get()->StructSize, 10076u);
  EXPECT_EQ(grown.get()->Flags, 0u);
}

TEST(XmlReader, Addresses) {
  using namespace std::string_literals;
  for (const char* name : {"sourceipaddress", "destinationipaddress", "clockipaddress"}) {
    const std::string element(name);
    const MediaCmd command = ReadChildren("<" + element + ">10.0.0.1</" + element + ">");
    EXPECT_EQ(BytesAt(command, 76, 12),
              "\0\0"
              "10.0.0.1\0\0"s)
        << name;
    EXPECT_EQ(command.Flags, 0x2000u);
    EXPECT_EQ(ReadChildren("<" + element + "/>").Flags, 0u);
  }
  // The place lies behind the text at 76.
  EXPECT_EQ(BytesAt(ReadChildren("<ClipID>CLIP</ClipID><sourceipaddress>1.2</sourceipaddress>"), 76, 10),
            "CLIP\0\0"
            "1.2\0"s);
  // All of them share it; the later one in reading order stays: source, destination, clock.
  EXPECT_EQ(
      BytesAt(
          ReadChildren("<destinationipaddress>D</destinationipaddress><sourceipaddress>SS</sourceipaddress>"),
          76, 5),
      "\0\0D\0\0"s);
  EXPECT_EQ(BytesAt(ReadChildren(
                        "<clockipaddress>C</clockipaddress><destinationipaddress>DD</destinationipaddress>"),
                    76, 5),
            "\0\0C\0\0"s);
}

TEST(XmlReader, InterfaceAddressGoesByTheOtherAddress) {
  using namespace std::string_literals;
  MediaCmd command = ReadChildren("<interfaceipaddress>if</interfaceipaddress>");
  EXPECT_EQ(BytesAt(command, 76, 6), "\0\0if\0\0"s);
  EXPECT_EQ(command.Flags, 0x2000u);
  // n is the length of the text at 78 (nothing stands at 76): the text goes to 78 + n.
  command = ReadChildren("<sourceipaddress>abc</sourceipaddress><interfaceipaddress>if</interfaceipaddress>");
  EXPECT_EQ(BytesAt(command, 76, 9),
            "\0\0"
            "abcif\0\0"s);
  // With an identifier: the other address stands at 78 + 4, and the text at 78 + 3.
  command = ReadChildren(
      "<ClipID>CLIP</ClipID><sourceipaddress>abc</sourceipaddress><interfaceipaddress>if</"
      "interfaceipaddress>");
  EXPECT_EQ(BytesAt(command, 76, 10), "CLIP\0if\0c\0"s);
  EXPECT_EQ(ReadChildren("<interfaceipaddress/>").Flags, 0u);
}

TEST(XmlReader, AddressesStayInTheRecord) {
  const std::string longText(9000, 'a');
  const auto read = [&](const std::string& name, const MediaCmd& start) {
    ExactRecord record(start, 4188);
    EXPECT_EQ(ReadInto(record.get(), Rooted("<" + name + ">" + longText + "</" + name + ">")), 0u);
    EXPECT_EQ(record.get()->Flags, 0x2000u);
    return std::string(record.bytes() + 76, 4112);
  };
  MediaCmd full = Command(ctStop);
  std::memset(full.ClipID, 'z', 4112);  // no terminator: the place lies outside
  for (const char* name : {"sourceipaddress", "destinationipaddress", "clockipaddress"}) {
    EXPECT_EQ(read(name, Command(ctStop)),
              std::string(2, '\0') + std::string(4109, 'a') + std::string(1, '\0'));
    EXPECT_EQ(read(name, full), std::string(4112, 'z'));
  }
  // Nothing is found outside, so its length is 0.
  EXPECT_EQ(read("interfaceipaddress", full), "zz" + std::string(4109, 'a') + std::string(1, '\0'));
}

}  // namespace
}  // namespace qln::test
