// The exported JSON tokenizer, held token by token against the published one, and the time that it takes.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

// The published tokenizer under other names, beside the exported one.
#define JSMN_STATIC
#define jsmn_init PublishedInit
#define jsmn_parse PublishedParse
#include <jsmn.h>
#undef jsmn_init
#undef jsmn_parse

#include "support/cpu_time.h"
#include "support/test_support.h"

extern "C" {
void jsmn_init(jsmn_parser* parser);
int jsmn_parse(jsmn_parser* parser, const char* js, size_t len, jsmntok_t* tokens, unsigned int num_tokens);
}

namespace qln::test {
namespace {

// A parser with its tokens, which are filled with something before they are used.
struct Tokenizer {
  explicit Tokenizer(size_t room) : tokens(room) {
    if (room != 0) std::memset(tokens.data(), 0x5A, room * sizeof(jsmntok_t));
  }
  bool operator==(const Tokenizer& other) const {
    return parser.pos == other.parser.pos && parser.toknext == other.parser.toknext &&
           parser.toksuper == other.parser.toksuper && tokens.size() == other.tokens.size() &&
           (tokens.empty() ||
            std::memcmp(tokens.data(), other.tokens.data(), tokens.size() * sizeof(jsmntok_t)) == 0);
  }
  jsmn_parser parser;
  std::vector<jsmntok_t> tokens;
};

TEST(Json, GivesThePublishedTokensForAnyTextAlsoInPiecesAndWithoutRoom) {
  const std::vector<std::string> pieces = {
      "{",  "}",     "[",        "]",        ":",    ",",      " ",
      "\n", "\"a\"", "\"",       "1",        "x",    "\"k\":", "{}",
      "[]", "\\",    "\"\\u00e", "\"\\\"\"", "\x80", "-2.5",   std::string(1, '\0')};
  Random random(14);
  int whole = 0;
  for (int round = 0; round < 100000; ++round) {
    std::string text;
    for (uint64_t n = random.below(24); n > 0; --n) text += pieces[random.below(pieces.size())];
    const size_t room = random.below(4) == 0 ? random.below(8) : 64;
    Tokenizer published(room);
    Tokenizer exported(room);
    PublishedInit(&published.parser);
    jsmn_init(&exported.parser);
    // Several calls go on where the one before ended, with more of the text or with more room.
    size_t length = random.below(3) == 0 ? random.below(text.size() + 1) : text.size();
    unsigned int given = static_cast<unsigned int>(random.below(3) == 0 ? random.below(room + 1) : room);
    for (int call = 0; call < 3; ++call) {
      ExactCopy copy(Bytes(text.begin(), text.begin() + static_cast<ptrdiff_t>(length)));
      const char* const js = reinterpret_cast<const char*>(copy.data());
      const int expected = PublishedParse(&published.parser, js, length, published.tokens.data(), given);
      ASSERT_EQ(jsmn_parse(&exported.parser, js, length, exported.tokens.data(), given), expected) << text;
      ASSERT_TRUE(exported == published) << text;
      whole += expected > 0;
      length = text.size();
      given = static_cast<unsigned int>(room);
    }
    PublishedInit(&published.parser);
    jsmn_init(&exported.parser);
    ASSERT_EQ(jsmn_parse(&exported.parser, text.data(), text.size(), nullptr, 0),
              PublishedParse(&published.parser, text.data(), text.size(), nullptr, 0))
        << text;
  }
  EXPECT_GT(whole, 1000);
}

double SecondsFor(const std::string& text) {
  Tokenizer tokenizer(text.size());
  return LeastCpuSeconds(3, [&] {
    jsmn_init(&tokenizer.parser);
    EXPECT_NE(jsmn_parse(&tokenizer.parser, text.data(), text.size(), tokenizer.tokens.data(),
                         static_cast<unsigned int>(tokenizer.tokens.size())),
              JSMN_ERROR_INVAL);
  });
}

TEST(Json, TakesLinearTime) {
  // Four times the text takes about four times as long; where the time were quadratic, sixteen times.
  for (const char* const piece : {"{},", "[", "[1],", "{\"a\":[],\"b\":{}},", "\"a\":1,"}) {
    const auto text = [piece](size_t count) {
      std::string made = "[";
      for (size_t i = 0; i < count; ++i) made += piece;
      return made;
    };
    EXPECT_LT(SecondsFor(text(40000)), 9 * SecondsFor(text(10000)) + 0.001) << piece;
  }
}

}  // namespace
}  // namespace qln::test
