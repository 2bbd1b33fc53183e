// The table of the timecode types: found by number and by word, and one of each.

#include "timecode/timecode_types.h"

#include <gtest/gtest.h>

#include <cstring>

namespace qln {
namespace {

TEST(TimecodeTypes, AreFoundByTheLowByteOfANumber) {
  size_t found = 0;
  for (uint32_t number = 0; number < 256; ++number) {
    const TimecodeType* const type = FindTimecodeType(number);
    found += type != nullptr;
    EXPECT_EQ(FindTimecodeType(0xFFFFFF00u | number), type);
    if (type != nullptr) {
      EXPECT_EQ(type->type, number);
    }
  }
  EXPECT_EQ(found, std::size(kTimecodeTypes));
  EXPECT_EQ(found, 10u);
}

TEST(TimecodeTypes, AreFoundByTheirWords) {
  for (const TimecodeType& type : kTimecodeTypes) {
    EXPECT_EQ(FindTimecodeTypeNamed(type.word), &type);
    EXPECT_EQ(std::strlen(type.word.data()), type.word.size()) << "a terminator stands behind it";
  }
  for (const char* const text : {"", "Film", "film ", "drop", "59", "frames\n"}) {
    EXPECT_EQ(FindTimecodeTypeNamed(text), nullptr) << text;
  }
}

TEST(TimecodeTypes, AFrameLastsTheSecondsPartThatItsRateTells) {
  for (const TimecodeType& type : kTimecodeTypes) {
    // "non-drop-frame" alone keeps the clock of "drop-frame".
    const double rate = type.type == 2 ? 30000.0 / 1001 : type.framesPerSecond;
    EXPECT_NEAR(rate * type.msPerFrame, 1000, 1e-9) << type.word;
    EXPECT_LE(type.numbers - type.framesPerSecond, 0.06 + 1e-4) << type.word;
    EXPECT_GE(type.numbers, type.framesPerSecond) << type.word;
  }
}

TEST(TimecodeTypes, TwoSkipNumbers) {
  for (uint32_t number = 0; number < 256; ++number) {
    EXPECT_EQ(SkipsNumbers(number), number == 4 || number == 32) << number;
    EXPECT_EQ(SkipsNumbers(0x32100u | number), number == 4 || number == 32) << number;
  }
}

}  // namespace
}  // namespace qln
