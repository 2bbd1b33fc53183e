// Base64 with its line feeds and room, and the JSON tokenizer as it is exported.

#include <gtest/gtest.h>
#define JSMN_HEADER
#include <jsmn.h>

#include <cstring>
#include <string>

#include "kxutil/kxutil.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

// The room that callers are told to give.
uint32_t CallersRoom(uint32_t length) {
  const uint32_t n = length * 4 / 3 + 4;
  return n + n / 72 + 17;
}

std::string Encode(const Bytes& source) {
  ExactCopy input(source);
  uint32_t size = CallersRoom(static_cast<uint32_t>(source.size()));
  ExactCopy output(Bytes(size, '#'));
  char* const text = reinterpret_cast<char*>(output.data());
  EXPECT_EQ(base64_encode(input.data(), static_cast<uint32_t>(source.size()), &size, text), 0);
  EXPECT_EQ(std::strlen(text), size);
  return text;
}

std::string Encode(const std::string& text) { return Encode(Bytes(text.begin(), text.end())); }

TEST(Base64, VectorsOfRfc4648) {
  EXPECT_EQ(Encode(""), "");
  EXPECT_EQ(Encode("f"), "Zg==");
  EXPECT_EQ(Encode("fo"), "Zm8=");
  EXPECT_EQ(Encode("foo"), "Zm9v");
  EXPECT_EQ(Encode("foob"), "Zm9vYg==");
  EXPECT_EQ(Encode("fooba"), "Zm9vYmE=");
  EXPECT_EQ(Encode("foobar"), "Zm9vYmFy");
  EXPECT_EQ(Encode(Bytes{0xFB, 0xFF, 0xBF}), "+/+/");
}

TEST(Base64, ALineFeedBehindEach72Characters) {
  EXPECT_EQ(Encode(Bytes(51, 0)), std::string(68, 'A'));
  EXPECT_EQ(Encode(Bytes(53, 0)), std::string(71, 'A') + "=\n");
  EXPECT_EQ(Encode(Bytes(54, 0)), std::string(72, 'A') + "\n");
  EXPECT_EQ(Encode(Bytes(55, 0)), std::string(72, 'A') + "\nAA==");
  EXPECT_EQ(Encode(Bytes(108, 0)), std::string(72, 'A') + "\n" + std::string(72, 'A') + "\n");
}

TEST(Base64, ReadsBackAndFitsTheCallersRoom) {
  constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  Random random(2);
  for (size_t length = 0; length < 700; ++length) {
    const Bytes source = random.bytes(length);
    uint32_t bits = 0;
    int count = 0;
    Bytes back;
    for (const char c : Encode(source)) {
      if (c == '\n' || c == '=') continue;
      const char* const place = std::strchr(kAlphabet, c);
      ASSERT_NE(place, nullptr);
      bits = bits << 6 | static_cast<uint32_t>(place - kAlphabet);
      count += 6;
      if (count >= 8) {
        count -= 8;
        back.push_back(static_cast<uint8_t>(bits >> count));
      }
    }
    ASSERT_EQ(back, source);
  }
}

TEST(Base64, TooLittleRoomWritesNothing) {
  const char source[] = "foobar";
  for (uint32_t room = 0; room < 9; ++room) {
    ExactCopy output(Bytes(9, '#'));
    uint32_t size = room;
    EXPECT_NE(base64_encode(source, 6, &size, reinterpret_cast<char*>(output.data())), 0);
    EXPECT_EQ(size, room);
    EXPECT_EQ(output.bytes(), Bytes(9, '#'));
  }
  ExactCopy output(Bytes(9, '#'));
  uint32_t size = 9;
  EXPECT_EQ(base64_encode(source, 6, &size, reinterpret_cast<char*>(output.data())), 0);
  EXPECT_EQ(size, 8u);
}

TEST(Base64, NullPointersAreRefused) {
  char output[8] = "#";
  uint32_t size = 8;
  EXPECT_NE(base64_encode(nullptr, 1, &size, output), 0);
  EXPECT_NE(base64_encode("a", 1, nullptr, output), 0);
  EXPECT_NE(base64_encode("a", 1, &size, nullptr), 0);
  EXPECT_EQ(size, 8u);
  EXPECT_STREQ(output, "#");
  EXPECT_EQ(base64_encode(nullptr, 0, &size, output), 0);
  EXPECT_STREQ(output, "");
}

TEST(Json, TheTokenizerIsExportedNonStrict) {
  jsmn_parser parser;
  jsmntok_t tokens[8];
  const char text[] = "{\"a\": [1, true], b: \"c\"}";  // a bare word passes where it is not strict
  jsmn_init(&parser);
  ASSERT_EQ(jsmn_parse(&parser, text, sizeof text - 1, tokens, 8), 7);
  EXPECT_EQ(tokens[0].type, JSMN_OBJECT);
  EXPECT_EQ(tokens[0].size, 2);
  EXPECT_EQ(tokens[1].type, JSMN_STRING);
  EXPECT_EQ(tokens[2].type, JSMN_ARRAY);
  EXPECT_EQ(tokens[5].type, JSMN_PRIMITIVE);
  EXPECT_EQ(std::string(text + tokens[6].start, text + tokens[6].end), "c");
  jsmn_init(&parser);
  EXPECT_EQ(jsmn_parse(&parser, text, sizeof text - 1, tokens, 3), JSMN_ERROR_NOMEM);
}

}  // namespace
}  // namespace qln::test
