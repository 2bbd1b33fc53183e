// The short way for JSON of commands: what takes it, and that it gives the tokenizer's tokens.

#include "qlnutil/mediacmd/json_shape.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "mediacmd/json_reader_support.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

constexpr int kRoom = 100;

// A text with nothing behind it.
struct ExactText {
  explicit ExactText(const std::string& text) : copy(Bytes(text.begin(), text.end())) {}
  std::string_view view() { return {reinterpret_cast<const char*>(copy.data()), copy.size()}; }
  ExactCopy copy;
};

// Whether the short way takes the text; its tokens are then held against the tokenizer's.
bool IsShort(const std::string& text, int room = kRoom) {
  ExactText exact(text);
  std::vector<jsmntok_t> tokens(static_cast<size_t>(room));
  const int count = TokensOfWrittenShape(exact.view(), tokens.data(), room);
  if (count == kOtherShape) return false;
  std::vector<jsmntok_t> expected(static_cast<size_t>(room));
  jsmn_parser parser;
  jsmn_init(&parser);
  EXPECT_EQ(jsmn_parse(&parser, text.data(), text.size(), expected.data(), static_cast<unsigned>(room)),
            count)
      << text;
  for (int i = 0; i < count; ++i) {
    const jsmntok_t& token = tokens[static_cast<size_t>(i)];
    const jsmntok_t& other = expected[static_cast<size_t>(i)];
    EXPECT_EQ(token.type, other.type) << i << text;
    EXPECT_EQ(token.start, other.start) << i << text;
    EXPECT_EQ(token.end, other.end) << i << text;
    EXPECT_EQ(token.size, other.size) << i << text;
  }
  return true;
}

std::string TextOf(MediaCmd command, uint32_t type) {
  char* text = nullptr;
  MediaCmdToJSON(&text, &command, type);
  std::string copy = text == nullptr ? "" : text;
  MediaCmdFreeXMLString(&text);
  return copy;
}

std::string Clip(uint32_t cmd, uint32_t flags) {
  MediaCmd command = Command(cmd, flags);
  Put(command, 76, std::string("CLIP 1\0\0", 8));
  Put(command, 85, std::string("a/long/path/of/a/file.mov\0", 26));
  return TextOf(command, 4);
}

TEST(JsonShape, TakesWhatOurWriterGives) {
  for (const uint32_t cmd : {ctStop, ctPlay, ctSetValue}) {
    for (uint32_t bit = 0; bit < 32; ++bit) {
      EXPECT_TRUE(IsShort(Clip(cmd, uint32_t{1} << bit | CF_USE_CLIP_ID))) << bit;
    }
  }
}

TEST(JsonShape, TakesObjectsOfStringsAndNumbers) {
  for (const char* text :
       {"{}", "{\"a\":1}", "{\"a\":-1,}", "{\"a\" : \"\",}", "{\"a\":{},}", "{\"a\":{}\"b\":{}}",
        "{\"a\":{\"b\":{\"c\":1,\"d\":\"0123456789abcdef0123456789abcdef\"}\"e\":2}}"}) {
    EXPECT_TRUE(IsShort(text)) << text;
  }
}

TEST(JsonShape, LeavesAllElseToTheTokenizer) {
  for (const char* text : {"",
                           " {}",
                           "{} ",
                           "{},",
                           "[]",
                           "{",
                           "{\"a",
                           "{\"a\"",
                           "{\"a\":",
                           "{\"a\":1",
                           "{\"a\":}",
                           "{\"a\"1}",
                           "{\"a\":1 }",
                           "{\"a\":1.5}",
                           "{\"a\":-}",
                           "{\"a\":true}",
                           "{\"a\":[]}",
                           "{\"a\\\"\":1}",
                           "{\"a\":\"\\n\"}",
                           "{\"a\":\"b\"\"c\":1}",
                           "{\"a\":1\"c\":1}",
                           "{a:1}",
                           "{\"a\":1}}",
                           "{,}",
                           "{\"a\":{},,}",
                           "{\"a\":\"0123456789abcdef\\\"0123456789\"}"}) {
    EXPECT_FALSE(IsShort(text)) << text;
  }
}

TEST(JsonShape, LeavesMoreTokensThanThereIsRoom) {
  const std::string text = "{\"a\":{\"b\":1,},}";
  EXPECT_TRUE(IsShort(text, 5));
  for (int room = 0; room < 5; ++room) EXPECT_FALSE(IsShort(text, room)) << room;
}

TEST(JsonShape, GivesTheTokensOfTextsThatWereTamperedWith) {
  const std::string whole = Clip(ctSetValue, CF_USE_CLIP_ID | CF_USE_CMD_ALT | CF_USE_START | CF_USE_SPEED);
  const std::string bytes("{}\"\\:, -0a\0\x80", 12);
  Random random(5);
  int taken = 0;
  for (int round = 0; round < 5000; ++round) {
    std::string text = whole;
    const size_t at = random.below(text.size());
    if (round % 3 == 0) text.erase(at, 1 + random.below(3));
    if (round % 3 == 1) text.insert(at, 1, bytes[random.below(bytes.size())]);
    if (round % 3 == 2) text[at] = bytes[random.below(bytes.size())];
    // A text ends at its first zero byte.
    taken += IsShort(text.c_str());
  }
  EXPECT_GT(taken, 500);
  EXPECT_LT(taken, 4500);
}

TEST(JsonShape, ReadsTheSameRecordByBothWays) {
  for (const uint32_t cmd : {ctPlay, ctSetValue}) {
    for (uint32_t bit = 0; bit < 32; ++bit) {
      const std::string text = Clip(cmd, uint32_t{1} << bit | CF_USE_CLIP_ID);
      MediaCmd one = Command(ctStop);
      MediaCmd other = Command(ctStop);
      EXPECT_EQ(MediaCmdFromJSON(&one, nullptr, text.c_str()), 0);
      EXPECT_EQ(MediaCmdFromJSON(&other, nullptr, (" " + text).c_str()), 0);
      EXPECT_TRUE(SameRecord(one, other)) << text;
    }
  }
}

}  // namespace
}  // namespace qln::test
