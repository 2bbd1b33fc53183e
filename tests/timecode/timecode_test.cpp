// The timecode service: counting by SMPTE ST 12-1, text and count as each other's inverse, hostile texts.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/test_support.h"
#include "timecode/kxtimecode.h"

namespace qln {
namespace {

std::string ToText(uint32_t count, uint32_t flags) {
  char text[17];
  std::memset(text, '#', sizeof text);
  EXPECT_EQ(TimeCodeToString(count, flags, text), 0);
  EXPECT_EQ(text[16], '#');
  return text;
}

uint32_t FromText(const std::string& text, uint32_t flags) {
  uint32_t count = 0xDEADBEEF;
  EXPECT_EQ(TimeCodeFromString(text.c_str(), flags, &count), 0) << text;
  return count;
}

void ExpectNoTimecode(const std::string& text, uint32_t flags) {
  test::ExactCopy copy(test::Bytes(text.begin(), text.end()), 1);
  uint32_t count = 0xDEADBEEF;
  EXPECT_EQ(TimeCodeFromString(reinterpret_cast<const char*>(copy.data()), flags, &count), -1) << text;
  EXPECT_EQ(count, 0xDEADBEEFu) << text;
}

struct TypeRule {
  uint32_t type;
  uint32_t rate;
  uint32_t dropped;
};

constexpr TypeRule kTypes[] = {{1, 24, 0},  {2, 30, 0},  {4, 30, 2},   {8, 25, 0},   {16, 50, 0},
                               {32, 60, 4}, {64, 60, 0}, {128, 24, 0}, {132, 24, 0}, {3, 30, 0}};

class TimecodeType : public testing::TestWithParam<TypeRule> {};

INSTANTIATE_TEST_SUITE_P(Types, TimecodeType, testing::ValuesIn(kTypes),
                         [](const auto& rule) { return "Type" + std::to_string(rule.param.type); });

// A clock that counts on frame by frame and leaves out the numbers that drop-frame counting leaves out.
struct Clock {
  const TypeRule& rule;
  uint32_t hours = 0, minutes = 0, seconds = 0, frames = 0;

  void Step() {
    if (++frames < rule.rate) return;
    frames = 0;
    if (++seconds == 60) {
      seconds = 0;
      if (++minutes == 60) {
        minutes = 0;
        ++hours;
      }
      if (minutes % 10 != 0) frames = rule.dropped;
    }
  }
  void Text(char* text) const {
    const auto put = [&](uint32_t value, char behind) {
      *text++ = static_cast<char>('0' + value / 10);
      *text++ = static_cast<char>('0' + value % 10);
      *text++ = behind;
    };
    put(hours, ':');
    put(minutes, ':');
    put(seconds, rule.dropped != 0 ? ';' : ':');
    put(frames, '\0');
  }
};

TEST_P(TimecodeType, TextAndCountAreInverseOverAWholeDay) {
  const TypeRule& rule = GetParam();
  Clock clock{rule};
  uint32_t count = 0;
  for (; clock.hours < 24; ++count, clock.Step()) {
    char expected[16];
    clock.Text(expected);
    char text[16];
    uint32_t back = 0;
    if (TimeCodeToString(count, rule.type | 0x32100, text) != 0 || std::strcmp(text, expected) != 0 ||
        TimeCodeFromString(text, rule.type | 0x100, &back) != 0 || back != count) {
      FAIL() << "count " << count << ", " << text << " in place of " << expected << ", back " << back;
    }
  }
  const uint32_t dropsADay = rule.dropped * 24 * 54;
  EXPECT_EQ(count, 24 * 3600 * rule.rate - dropsADay);
  EXPECT_EQ(ToText(count, rule.type), rule.dropped != 0 ? "24:00:00;00" : "24:00:00:00");
}

TEST_P(TimecodeType, TheWholeRangeOfCountsComesBackInFifteenCharacters) {
  const TypeRule& rule = GetParam();
  test::Random random(rule.type);
  for (int i = 0; i < 20000; ++i) {
    const uint32_t count = i == 0 ? 0xFFFFFFFFu : static_cast<uint32_t>(random.next());
    const std::string text = ToText(count, rule.type);
    ASSERT_LE(text.size(), 15u);
    ASSERT_EQ(FromText(text, rule.type), count);
  }
}

TEST_P(TimecodeType, BinaryIsTheTextInBytesWithHoursOfTheDay) {
  const TypeRule& rule = GetParam();
  test::Random random(rule.type + 1);
  for (int i = 0; i < 20000; ++i) {
    const uint32_t count = i == 0 ? 0xFFFFFFFFu : static_cast<uint32_t>(random.next());
    char bytes[5] = {1, 2, 3, 4, '#'};
    ASSERT_EQ(TimeCodeToString(count, rule.type | KX_TIMECODE_BINARY, bytes), 0);
    unsigned hours = 0, minutes = 0, seconds = 0, frames = 0;
    char mark = 0;
    const std::string text = ToText(count, rule.type);
    ASSERT_EQ(std::sscanf(text.c_str(), "%u:%u:%u%c%u", &hours, &minutes, &seconds, &mark, &frames), 5);
    ASSERT_EQ(bytes[0], static_cast<char>(hours % 24));
    ASSERT_EQ(bytes[1], static_cast<char>(minutes));
    ASSERT_EQ(bytes[2], static_cast<char>(seconds));
    ASSERT_EQ(bytes[3], static_cast<char>(frames));
    ASSERT_EQ(bytes[4], '#');
  }
}

TEST_P(TimecodeType, FramesAtOrAboveTheRateCarryOn) {
  const TypeRule& rule = GetParam();
  EXPECT_EQ(FromText("00:00:00:" + std::to_string(rule.rate), rule.type), rule.rate);
  EXPECT_EQ(FromText("00:00:01:99", rule.type), rule.rate + 99);
  EXPECT_EQ(FromText("00:00:00:4000000000", rule.type), 4000000000u);
}

TEST(Timecode, DropFrameNumbersOfTheStandard) {
  // The two first numbers of each minute are dropped, but for minutes 0, 10, 20, 30, 40 and 50.
  EXPECT_EQ(ToText(1799, 4), "00:00:59;29");
  EXPECT_EQ(ToText(1800, 4), "00:01:00;02");
  EXPECT_EQ(ToText(17981, 4), "00:09:59;29");
  EXPECT_EQ(ToText(17982, 4), "00:10:00;00");
  EXPECT_EQ(ToText(107892, 4), "01:00:00;00");
  EXPECT_EQ(ToText(2589407, 4), "23:59:59;29");
  EXPECT_EQ(ToText(3599, 32), "00:00:59;59");
  EXPECT_EQ(ToText(3600, 32), "00:01:00;04");
  EXPECT_EQ(ToText(35964, 32), "00:10:00;00");
  EXPECT_EQ(ToText(215784, 32), "01:00:00;00");
}

TEST(Timecode, DroppedNumbersAreTheNextThatExists) {
  EXPECT_EQ(FromText("00:01:00;00", 4), 1800u);
  EXPECT_EQ(FromText("00:01:00;01", 4), 1800u);
  EXPECT_EQ(FromText("00:01:00;02", 4), 1800u);
  EXPECT_EQ(FromText("00:01:00;03", 4), 1801u);
  EXPECT_EQ(FromText("00:10:00;00", 4), 17982u);
  EXPECT_EQ(FromText("00:10:00;01", 4), 17983u);
  for (const char* text : {"00:01:00;00", "00:01:00;01", "00:01:00;02", "00:01:00;03", "00:01:00;04"}) {
    EXPECT_EQ(FromText(text, 32), 3600u) << text;
  }
  EXPECT_EQ(FromText("00:01:00;05", 32), 3601u);
}

TEST(Timecode, HoursGoOnCounting) {
  EXPECT_EQ(ToText(30 * 3600 * 25, 2), "25:00:00:00");
  EXPECT_EQ(ToText(0xFFFFFFFFu, 1), "49710:16:10:15");  // 4294967295 / 24 = 178956970 s and 15 frames
  EXPECT_EQ(FromText("100:00:00:00", 8), 100u * 3600 * 25);
  char bytes[4];
  TimeCodeToString(30 * 3600 * 25, 2 | KX_TIMECODE_BINARY, bytes);
  EXPECT_EQ(bytes[0], 1);
}

TEST(Timecode, TypeZeroIsThePlainCount) {
  EXPECT_EQ(ToText(0, 0x32100), "0");
  EXPECT_EQ(ToText(0xFFFFFFFFu, 0x32100), "4294967295");
  EXPECT_EQ(FromText("4294967295", 0x100), 0xFFFFFFFFu);
  char bytes[4];
  TimeCodeToString(3 * 108000 + 4 * 1800 + 5 * 30 + 6, KX_TIMECODE_BINARY, bytes);  // at 30
  EXPECT_EQ(std::string(bytes, 4), "\x03\x04\x05\x06");
}

TEST(Timecode, UnknownTypesCountAtThirtyAndOnlyTwoTypesHaveASemicolon) {
  for (uint32_t type = 1; type < 256; ++type) {
    const std::string text = ToText(59, type | 0x32100);
    EXPECT_EQ(text[8], type == 4 || type == 32 ? ';' : ':') << type;
    const bool known =
        type == 1 || type == 8 || type == 16 || type == 32 || type == 64 || type == 128 || type == 132;
    if (!known) {
      EXPECT_EQ(text.substr(6, 2) + text.substr(9), "0129") << type;
    }
  }
}

TEST(Timecode, FlagsAboveTheTypeChangeNoText) {
  for (const uint32_t flags : {0u, 0x32100u, 0x10100u, 0xB2100u, 0xFFFFFB00u}) {
    EXPECT_EQ(ToText(1800, flags | 4), "00:01:00;02");
    EXPECT_EQ(FromText("00:01:00;02", flags | 4), 1800u);
  }
}

TEST(Timecode, SeparatorsAndMissingGroups) {
  for (const char* text :
       {"01:02:03:04", "01;02;03;04", "01.02.03.04", "1:2:3.4", "1:2;3:4", " 01:02:03:04 "}) {
    EXPECT_EQ(FromText(text, 8), ((1u * 60 + 2) * 60 + 3) * 25 + 4) << text;
  }
  EXPECT_EQ(FromText("2:3:4", 8), (2u * 60 + 3) * 25 + 4);
  EXPECT_EQ(FromText("3:4", 8), 3u * 25 + 4);
  EXPECT_EQ(FromText("1800", 4), 1800u);
  EXPECT_EQ(FromText("0", 4), 0u);
  EXPECT_EQ(FromText("1:00;00", 4), 1800u);
}

TEST(Timecode, SecondsAndMinutesCarryOnToo) {
  EXPECT_EQ(FromText("00:00:75:00", 8), 75u * 25);
  EXPECT_EQ(FromText("00:90:00:00", 8), 90u * 60 * 25);
}

TEST(Timecode, TextsThatAreNoTimecodeLeaveTheCountAlone) {
  for (const uint32_t type : {0u, 2u, 4u, 8u}) {
    for (const char* text : {"",
                             " ",
                             ":",
                             "::",
                             "a",
                             "-1",
                             "+1",
                             "1:",
                             ":1",
                             "1::2",
                             "1:2:3:4:",
                             "1:2:3:4:5",
                             "01:02:03:04x",
                             "1 2",
                             "0x10",
                             "01-02-03-04",
                             "4294967296",
                             "99999999999999999999999",
                             "18446744073709551617",
                             "00:00:00:18446744073709551617",
                             "1:99999999999",
                             "4294967295:00:00:00",
                             "01:02:03:\xFF",
                             "1,2",
                             "\t1"}) {
      ExpectNoTimecode(text, type);
    }
  }
  ExpectNoTimecode(std::string(100000, '9'), 2);
  EXPECT_EQ(FromText(std::string(100000, '0') + "7", 2), 7u);
  ExpectNoTimecode("00:00:01:4294967295", 2);
}

TEST(Timecode, NullPointersAreRefused) {
  uint32_t count = 5;
  EXPECT_EQ(TimeCodeToString(1, 2, nullptr), -1);
  EXPECT_EQ(TimeCodeFromString(nullptr, 2, &count), -1);
  EXPECT_EQ(TimeCodeFromString("1", 2, nullptr), -1);
  EXPECT_EQ(count, 5u);
}

TEST(Timecode, RandomTextsAreTakenOrLeft) {
  test::Random random(11);
  constexpr char kAlphabet[] = "0123456789:;. 09:;x";
  for (int i = 0; i < 100000; ++i) {
    std::string text;
    for (uint64_t n = random.below(20); n > 0; --n)
      text.push_back(kAlphabet[random.below(sizeof kAlphabet - 1)]);
    const uint32_t type = static_cast<uint32_t>(random.next()) & 0xFF;
    uint32_t count = 0xDEADBEEF;
    if (TimeCodeFromString(text.c_str(), type, &count) == 0) {
      // Written again, it is the same count.
      ASSERT_EQ(FromText(ToText(count, type), type), count) << text;
    } else {
      ASSERT_EQ(count, 0xDEADBEEFu);
    }
  }
}

}  // namespace
}  // namespace qln
