// The forms in which a page holds numbers, units and texts, unpacked by hand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include "html/packer.h"
#include "html/safe_json.h"
#include "html/unit_blocks.h"

namespace qlnmedia::html {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

// RFC 4648 clause 10.
TEST(Base64, IsThatOfTheStandard) {
  const auto of = [](std::string_view text) { return Base64(Bytes(text.begin(), text.end())); };
  EXPECT_EQ(of(""), "");
  EXPECT_EQ(of("f"), "Zg==");
  EXPECT_EQ(of("fo"), "Zm8=");
  EXPECT_EQ(of("foo"), "Zm9v");
  EXPECT_EQ(of("foobar"), "Zm9vYmFy");
  // Longer than the line of the encoder below.
  EXPECT_EQ(of(std::string(60, 'A')).size(), 80u);
  EXPECT_EQ(of(std::string(60, 'A')).find('\n'), std::string::npos);
}

TEST(Base64, PiecesStandBehindEachOther) {
  constexpr size_t kBytes = (size_t{3} << 20) + 1;
  const std::string text = Base64(Bytes(kBytes, 0));
  EXPECT_EQ(text.size(), (kBytes + 2) / 3 * 4);
  EXPECT_EQ(text.substr(text.size() - 4), "AA==");
  EXPECT_EQ(text.find('='), text.size() - 2);
}

TEST(Column, HoldsDifferencesInGroupsOfSevenBits) {
  Column column;
  // 1 folded is 2; -1 behind 1 is -2, folded 3; 127 behind -1 is 128, folded 256 = 0x80 0x02.
  for (const int number : {1, -1, 127}) column.Add(number);
  EXPECT_EQ(column.Text(), Base64(Bytes{2, 3, 0x80, 2}));
  EXPECT_EQ(column.bytes(), 4u);
}

TEST(Column, StaysWithinWhatScriptsCount) {
  Column column;
  column.Add(INT64_MAX);
  column.Add(INT64_MIN);
  Column same;
  same.Add(int64_t{1} << 51);
  same.Add(-(int64_t{1} << 51));
  EXPECT_EQ(column.Text(), same.Text());
}

TEST(Folded, TellsSignsByTheLowestBit) {
  EXPECT_EQ(Folded(0), 0u);
  EXPECT_EQ(Folded(-1), 1u);
  EXPECT_EQ(Folded(1), 2u);
  EXPECT_EQ(Folded(-2), 3u);
}

Bytes BytesOfBase64(const std::string& text) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  Bytes bytes;
  uint32_t bits = 0;
  int count = 0;
  for (const char c : text) {
    if (c == '=') break;
    bits = bits << 6 | static_cast<uint32_t>(alphabet.find(c));
    count += 6;
    if (count < 8) continue;
    count -= 8;
    bytes.push_back(static_cast<uint8_t>(bits >> count));
  }
  return bytes;
}

Bytes Inflated(const Bytes& packed) {
  Bytes bytes(10000);
  uLongf size = bytes.size();
  EXPECT_EQ(uncompress(bytes.data(), &size, packed.data(), packed.size()), Z_OK);
  bytes.resize(size);
  return bytes;
}

TEST(UnitBlocks, HoldsTextsOnceAndUnitsOnePictureBehindTheOther) {
  const Bytes first = {0x67, 0x42};
  UnitBlocks blocks;
  blocks.Add({{7, 0, 10, first, ""}, {6, 14, 5, {}, "hi"}});
  blocks.Add({{6, 0, 5, {}, "hi"}});
  const std::vector<std::string> packed = blocks.Finish();
  ASSERT_EQ(packed.size(), 1u);
  EXPECT_THAT(Inflated(BytesOfBase64(packed[0])),
              ElementsAre(1, 2, 'h', 'i',              // one text
                          2,                           // units
                          8, 0, 10, 2, 0x67, 0x42, 0,  // type 7 at 0
                          7, 8, 5, 0, 1,               // type 6, four bytes behind the end of the last
                          1, 7, 0, 5, 0, 1));
}

TEST(UnitBlocks, ABlockEndsWithItsLastPicture) {
  UnitBlocks blocks;
  for (size_t i = 0; i <= UnitBlocks::kPictures; ++i) blocks.Add({});
  const std::vector<std::string> packed = blocks.Finish();
  ASSERT_EQ(packed.size(), 2u);
  EXPECT_EQ(Inflated(BytesOfBase64(packed[0])).size(), UnitBlocks::kPictures + 1);
  EXPECT_THAT(Inflated(BytesOfBase64(packed[1])), ElementsAreArray({0, 0}));
}

TEST(SafeJson, NothingInItEndsAScriptOrBeginsMarkup) {
  EXPECT_EQ(SafeJson(Json("</script><!-- & \"x\"")), R"("\u003c/script\u003e\u003c!-- \u0026 \"x\"")");
  EXPECT_EQ(SafeJson(Json("a\xE2\x80\xA8"
                          "b\xE2\x80\xA9")),
            R"("a\u2028b\u2029")");
  EXPECT_EQ(SafeJson(Json("\xE2\x82\xAC")), "\"\xE2\x82\xAC\"");
  EXPECT_EQ(SafeJson(Json{{"<k>", 1}}), R"({"\u003ck\u003e":1})");
}

TEST(SafeJson, BytesThatAreNoTextAreReplaced) {
  EXPECT_EQ(SafeJson(Json("\xFFx\xE2")), "\"\xEF\xBF\xBDx\xEF\xBF\xBD\"");
}

}  // namespace
}  // namespace qlnmedia::html
