// The words of flags, state values and commands.

#include "qlnutil/mediacmd/command_words.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <map>
#include <utility>
#include <vector>

#include "mediacmd/command_support.h"

namespace qln::test {
namespace {

using Rows = std::vector<std::pair<uint32_t, std::string>>;

const Rows& FlagRows() {
  static const Rows kRows = {
      {0x00000001, "deferred"},
      {0x40000000, "overridedeferred"},
      {0x00000002, "timems"},
      {0x00000004, "timetarget"},
      {0x00000008, "timehouseclock"},
      {0x00000010, "usespeed"},
      {0x00000020, "usepresets"},
      {0x00000040, "useposition"},
      {0x00000080, "usepositionoffset"},
      {0x00000100, "usestart"},
      {0x00000200, "usestartoffset"},
      {0x00000400, "useend"},
      {0x00000800, "useendoffset"},
      {0x00001000, "useallids"},
      {0x00002000, "useclipid"},
      {0x00004000, "copy"},
      {0x00004000, "noclipfiles"},
      {0x00008000, "convert"},
      {0x00008000, "notcspaces"},
      {0x00010000, "usecmdalt"},
      {0x00020000, "isshuttle"},
      {0x00040000, "usingcurrent"},
      {0x00080000, "useframecount"},
      {0x00100000, "fields"},
      {0x00200000, "ripple"},
      {0x00400000, "loop"},
      {0x00800000, "trigger"},
      {0x01000000, "preview"},
      {0x02000000, "remotecommand"},
      {0x04000000, "over24hours"},
      {0x08000000, "secondfield"},
      {0x08000000, "usenextfield"},
      {0x10000000, "invert"},
      {0x20000000, "test"},
      {0x40000000, "ignore"},
      {0x80000000, "noreturn"},
  };
  return kRows;
}

// The state values from a list of their own, one "identifier word" a line.
const Rows& StateRows() {
  static const Rows kRows = [] {
    Rows rows;
    std::ifstream file(QLN_TEST_DATA "/state_values.txt");
    uint32_t value;
    std::string word;
    while (file >> value >> word) rows.emplace_back(value, word);
    return rows;
  }();
  return kRows;
}

std::string Upper(std::string word) {
  for (char& c : word) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return word;
}

// Each word gives its value in any case; each value gives the first of its words, byte for byte.
void CheckTable(const Rows& rows, uint32_t (*fromString)(const char*, uint32_t*),
                uint32_t (*toString)(uint32_t, char*), size_t wordSize) {
  std::map<uint32_t, std::string> first;
  size_t longest = 0;
  for (const auto& [value, word] : rows) {
    first.emplace(value, word);
    longest = std::max(longest, word.size());
    for (const std::string& spelling : {word, Upper(word)}) {
      uint32_t found = ~value;
      EXPECT_EQ(fromString(spelling.c_str(), &found), 0u) << spelling;
      EXPECT_EQ(found, value) << spelling;
      EXPECT_EQ(fromString(spelling.c_str(), nullptr), 0u) << spelling;
    }
    uint32_t untouched = 0x12345678;
    EXPECT_EQ(fromString((word + "x").c_str(), &untouched), kMiss) << word;
    EXPECT_EQ(untouched, 0x12345678u);
  }
  EXPECT_EQ(longest + 1, wordSize);
  for (const auto& [value, word] : first) {
    std::string buffer(wordSize, '#');
    EXPECT_EQ(toString(value, buffer.data()), 0u);
    std::string expected(wordSize, '#');
    expected.replace(0, word.size(), word)[word.size()] = '\0';
    EXPECT_EQ(buffer, expected) << value;
    EXPECT_EQ(toString(value, nullptr), 0u);
  }
}

TEST(FlagWords, AllRows) {
  EXPECT_EQ(FlagRows().size(), 36u);
  CheckTable(FlagRows(), cfFromString, cfToString, 18);
}

TEST(FlagWords, FirstWordOfABitWins) {
  const std::pair<uint32_t, const char*> firsts[] = {
      {0x4000, "copy"}, {0x8000, "convert"}, {0x8000000, "secondfield"}, {0x40000000, "overridedeferred"}};
  for (const auto& [value, word] : firsts) {
    char buffer[CF_WORD_SIZE];
    EXPECT_EQ(cfToString(value, buffer), 0u);
    EXPECT_STREQ(buffer, word);
  }
}

TEST(FlagWords, MatchWholeWordsInAnyCase) {
  uint32_t value = 0;
  EXPECT_EQ(cfFromString("DEFERRED", &value), 0u);
  EXPECT_EQ(value, 1u);
  value = 0;
  EXPECT_EQ(cfFromString("Deferred", &value), 0u);
  EXPECT_EQ(value, 1u);
  value = 7;
  EXPECT_EQ(cfFromString("defer", &value), kMiss);
  EXPECT_EQ(cfFromString("", &value), kMiss);
  EXPECT_EQ(cfFromString(nullptr, &value), kMiss);
  // Only letters differ in case: "[" is not "{".
  EXPECT_EQ(cfFromString("over24hour\x53", nullptr), 0u);
  EXPECT_EQ(value, 7u);
}

TEST(FlagWords, MissesLeaveTheBuffer) {
  char buffer[CF_WORD_SIZE] = "before";
  for (const uint32_t value : {0u, 3u, 0xFFFFFFFFu}) {
    EXPECT_EQ(cfToString(value, buffer), kMiss);
    EXPECT_EQ(cfToString(value, nullptr), kMiss);
  }
  EXPECT_STREQ(buffer, "before");
}

TEST(StateWords, AllRows) {
  EXPECT_EQ(StateRows().size(), 460u);
  CheckTable(StateRows(), gsFromString, gsToString, 31);
}

TEST(StateWords, StandInSearchOrder) {
  ASSERT_EQ(StateRows().size(), std::size(kStateValues));
  for (size_t i = 0; i < std::size(kStateValues); ++i) {
    EXPECT_EQ(kStateValues[i].value, StateRows()[i].first) << i;
    EXPECT_EQ(kStateValues[i].word, StateRows()[i].second) << i;
  }
}

TEST(StateWords, FirstWordOfAnIdentifierWins) {
  const std::pair<uint32_t, const char*> firsts[] = {{20003, "sysdroppedframes"},
                                                     {50015, "proxyfilecompressiontype"},
                                                     {50016, "proxyfiledatarate"},
                                                     {2147418115, "installsystem"}};
  for (const auto& [value, word] : firsts) {
    char buffer[GS_WORD_SIZE];
    EXPECT_EQ(gsToString(value, buffer), 0u);
    EXPECT_STREQ(buffer, word);
  }
  uint32_t value = 0;
  EXPECT_EQ(gsFromString("DroppedFrames", &value), 0u);
  EXPECT_EQ(value, 20003u);
}

TEST(StateWords, MissesLeaveTheOutput) {
  char buffer[GS_WORD_SIZE] = "before";
  for (const uint32_t value : {0u, 36u, 1024u, 64014u, 0xFFFFFFFFu})
    EXPECT_EQ(gsToString(value, buffer), kMiss);
  EXPECT_STREQ(buffer, "before");
  uint32_t value = 7;
  EXPECT_EQ(gsFromString("nosuchvalue", &value), kMiss);
  EXPECT_EQ(gsFromString(nullptr, &value), kMiss);
  EXPECT_EQ(value, 7u);
}

TEST(CommandWords, AllRows) {
  const char* const words[] = {
      "Stop",           "Pause",  "Play",      "Record",     "RecStop",  "Eject",    "Transfer", "Insert",
      "Blank",          "Delete", "Trim",      "ChanSelect", "GetState", "SetState", "GetValue", "SetValue",
      "ValueSupported", "Error",  "Terminate", "Abort",      "Edit",     "Switch"};
  ASSERT_EQ(std::size(words), 22u);
  for (uint32_t cmd = 0; cmd < std::size(words); ++cmd) {
    EXPECT_EQ(CommandWord(cmd), words[cmd]);
    uint32_t found = 99;
    EXPECT_EQ(CommandFromText(Upper(words[cmd]) + " it", found), cmd != ctSwitch) << words[cmd];
    EXPECT_EQ(found, cmd == ctSwitch ? 99u : cmd);
  }
  for (const uint32_t cmd : {22u, 99u, 0x80000000u, 0xFFFFFFFFu}) EXPECT_EQ(CommandWord(cmd), "Unknown");
}

TEST(CommandWords, TextMustHoldTheWholeWord) {
  uint32_t found = 99;
  EXPECT_FALSE(CommandFromText("", found));
  EXPECT_FALSE(CommandFromText("rec", found));
  EXPECT_FALSE(CommandFromText(" play", found));
  EXPECT_EQ(found, 99u);
  EXPECT_TRUE(CommandFromText("recordings", found));
  EXPECT_EQ(found, 3u);
}

TEST(SpeedPercent, WrapsAndTruncates) {
  EXPECT_EQ(SpeedPercent(65520), 100);
  EXPECT_EQ(SpeedPercent(-65520), -100);
  EXPECT_EQ(SpeedPercent(32760), 50);
  EXPECT_EQ(SpeedPercent(655), 0);
  EXPECT_EQ(SpeedPercent(-1000), -1);
  EXPECT_EQ(SpeedPercent(0x7FFFFFFF), 0);     // the product wraps to -100
  EXPECT_EQ(SpeedPercent(21474837), -32776);  // 2147483700 wraps to -2147483596
  EXPECT_EQ(SpeedPercent(-0x7FFFFFFF - 1), 0);
}

}  // namespace
}  // namespace qln::test
