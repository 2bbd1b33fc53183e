// Display names of codecs and file types: every row, the classes behind the codec table, the edges.

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "format/recorded_services.h"
#include "format/table_file.h"
#include "qlnutil/qlnformat.h"

namespace qln::test {
namespace {

using Calls = std::vector<std::string>;

uint32_t Fourcc(const std::string& text) {
  uint32_t code = 0;
  for (const char c : text) code = code * 256 + static_cast<uint8_t>(c == '_' ? ' ' : c);
  return code;
}

uint32_t Code(const std::string& text) {
  if (text.size() == 4) return Fourcc(text);
  return static_cast<uint32_t>(std::stoul(text, nullptr, 0));
}

std::map<uint32_t, std::string> CodecTable() {
  std::map<uint32_t, std::string> names;
  for (const TableRow& row : ReadTable("codec_names.tsv", 2)) {
    for (const std::string& code : Words(row[1])) names[Code(code)] = row[0];
  }
  return names;
}

class CodecNames : public testing::Test {
 protected:
  void SetUp() override { ResetServices(); }
  void TearDown() override { ResetServices(); }
};

TEST_F(CodecNames, EveryCodeOfTheTableWithoutAskingAClass) {
  std::set<std::string> names;
  const auto codes = CodecTable();
  for (const auto& [code, name] : codes) {
    EXPECT_EQ(qlnutilCodecTypeString(code), name) << std::hex << code;
    names.insert(name);
  }
  EXPECT_EQ(codes.size(), 240u);
  EXPECT_EQ(names.size(), 186u);
  EXPECT_EQ(Services().calls, Calls{});
}

TEST_F(CodecNames, WorkedCodes) {
  EXPECT_STREQ(qlnutilCodecTypeString(0), "BI RGB");
  EXPECT_STREQ(qlnutilCodecTypeString(3), "BI Bit Fields");
  EXPECT_STREQ(qlnutilCodecTypeString(0x68766331), "HEVC h.265");  // hvc1
  EXPECT_STREQ(qlnutilCodecTypeString(0x47504A4D), "MJPG DIB");    // GPJM
  EXPECT_STREQ(qlnutilCodecTypeString(0x6770EA6D), "SGI JFIF");
  EXPECT_STREQ(qlnutilCodecTypeString(0x6770EAED), "Velocity JFIF");
  EXPECT_STREQ(qlnutilCodecTypeString(0x20727661), "Avid MC Mac");  // a blank in front
}

TEST_F(CodecNames, ClassesAreAskedInOrderAndTheFirstYesDecides) {
  const std::vector<std::pair<std::string, std::string>> order = {{"fccIsAvidJpeg", "Avid JPEG"},
                                                                  {"fccIsAvidJfif", "Avid JFIF"},
                                                                  {"fccIsJpeg", "JPEG"},
                                                                  {"fccIsDv25", "DV25"},
                                                                  {"fccIsDv50", "DV50"},
                                                                  {"fccIsDv100", "DVHD"},
                                                                  {"fccIs8BitD1YUV", "8 Bit YCbCr"},
                                                                  {"fccIsYCbCr8", "8 Bit YCbCr"},
                                                                  {"fccIsYCbCr10", "10 Bit YCbCr"},
                                                                  {"fccIsRawRGB", "RGB"},
                                                                  {"fccIsDPX", "10 Bit RGB"},
                                                                  {"fccIsBayer", "Bayer Pattern"},
                                                                  {"fccIsHDCamSR", "HDCamSR"}};
  Calls asked;
  for (const auto& [fourccClass, name] : order) {
    asked.push_back(fourccClass);
    ResetServices();
    // This class and all behind it say yes.
    const std::set<std::string> no(asked.begin(), asked.end() - 1);
    Services().fourccClass = [&](const std::string& called) { return no.contains(called) ? 0 : 0x100; };
    EXPECT_EQ(qlnutilCodecTypeString(Fourcc("????")), name);
    EXPECT_EQ(Services().calls, asked);
  }
  ResetServices();
  Services().fourccClass = [](const std::string&) { return 0; };
  EXPECT_STREQ(qlnutilCodecTypeString(Fourcc("????")), "");
  EXPECT_EQ(Services().calls, asked);
}

TEST_F(CodecNames, CodesOfTheUtilityLayersClasses) {
  EXPECT_STREQ(qlnutilCodecTypeString(Fourcc("dvcp")), "DV25");
  EXPECT_STREQ(qlnutilCodecTypeString(Fourcc("pcvd")), "DV25");
  EXPECT_STREQ(qlnutilCodecTypeString(Fourcc("dv5n")), "DV50");
  EXPECT_STREQ(qlnutilCodecTypeString(Fourcc("dvhp")), "DVHD");
  EXPECT_STREQ(qlnutilCodecTypeString(Fourcc("v210")), "10 Bit YCbCr");
  EXPECT_STREQ(qlnutilCodecTypeString(Fourcc("2vuy")), "8 Bit YCbCr");
  EXPECT_STREQ(qlnutilCodecTypeString(Fourcc("????")), "");
  EXPECT_STREQ(qlnutilCodecTypeString(4), "");
  EXPECT_STREQ(qlnutilCodecTypeString(0xFFFFFFFF), "");
}

TEST_F(CodecNames, NeighboursOfTheTablesCodesAreNotInIt) {
  Services().fourccClass = [](const std::string&) { return 0; };
  const auto codes = CodecTable();
  for (const auto& [code, name] : codes) {
    for (const uint32_t other : {code - 1, code + 1}) {
      const auto found = codes.find(other);
      EXPECT_EQ(qlnutilCodecTypeString(other), found != codes.end() ? found->second : "")
          << std::hex << other;
    }
  }
}

TEST(FileTypeNames, EveryNumber) {
  std::map<int, std::string> names;
  for (const TableRow& row : ReadTable("file_type_names.tsv", 2)) names[std::stoi(row[0])] = row[1];
  ASSERT_EQ(names.size(), 225u);
  for (int32_t type = -300; type < 600; ++type)
    EXPECT_EQ(qlnutilFileTypeString(type), names.contains(type) ? names[type] : "Unknown file type") << type;
}

TEST(FileTypeNames, Edges) {
  EXPECT_STREQ(qlnutilFileTypeString(0), "Unknown file type");
  EXPECT_STREQ(qlnutilFileTypeString(57), "Unknown file type");
  EXPECT_STREQ(qlnutilFileTypeString(227), "Unknown file type");
  EXPECT_STREQ(qlnutilFileTypeString(-1), "Unknown file type");
  EXPECT_STREQ(qlnutilFileTypeString(INT32_MIN), "Unknown file type");
  EXPECT_STREQ(qlnutilFileTypeString(INT32_MAX), "Unknown file type");
  EXPECT_STREQ(qlnutilFileTypeString(7), "Edit Decsion List");
  EXPECT_STREQ(qlnutilFileTypeString(226), "TCP Stream");
}

}  // namespace
}  // namespace qln::test
