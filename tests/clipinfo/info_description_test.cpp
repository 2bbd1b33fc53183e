// The names of tags, and the timecode type taken from raw text.

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "clipinfo/expected_fields.h"
#include "qlnutil/clipinfo/tc_type_from_text.h"
#include "qlnutil/qlninfo.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

struct Description {
  uint32_t result;
  std::string text;
};

Description Describe(uint32_t tag) {
  ExactCopy buffer(Bytes(28, '#'));  // the longest name and its terminator
  char* const text = reinterpret_cast<char*>(buffer.data());
  const uint32_t result = qlnInfoGetDescription(tag, text);
  return {result, text};
}

std::map<uint32_t, std::string> ExpectedNames() {
  std::map<uint32_t, std::string> names;
  for (const ExpectedSlot& slot : kExpectedSlots) {
    if (slot.tag >= 0) names[static_cast<uint32_t>(slot.tag)] = slot.name;
  }
  for (const ExpectedNumber& number : kExpectedNumbers) {
    if (number.tag >= 0) names[static_cast<uint32_t>(number.tag)] = number.name;
  }
  const char* const formats[] = {"Width",
                                 "Height",
                                 "Planes",
                                 "BitCount",
                                 "Compression",
                                 "SizeImage",
                                 "XPelsPerMeter",
                                 "YPelsPerMeter",
                                 "ClrUsed",
                                 "ClrImportant",
                                 "Reserved",
                                 "FccType",
                                 "FccHandler",
                                 "Flags",
                                 "Caps",
                                 "Priority",
                                 "Language",
                                 "Scale",
                                 "Rate",
                                 "Start",
                                 "Length",
                                 "InitialFrames",
                                 "SuggestedBufferSize",
                                 "Quality",
                                 "SampleSize",
                                 "EditCount",
                                 "FormatChangeCount",
                                 "Pitch",
                                 "DrFlags",
                                 "FileType",
                                 "ResMorvane",
                                 "AudioType",
                                 "AudioChannels",
                                 "AudioFrequency",
                                 "TimeCode"};
  uint32_t tag = 65536;
  for (const char* const name : formats) names[tag++] = name;
  EXPECT_EQ(tag, 65571u);
  return names;
}

TEST(InfoDescription, AllTagsHaveTheirNamesAndNoOtherNumberHasOne) {
  const std::map<uint32_t, std::string> names = ExpectedNames();
  EXPECT_EQ(names.size(), 147u);
  for (uint32_t tag = 0; tag < 70000; ++tag) {
    const auto found = names.find(tag);
    const Description description = Describe(tag);
    if (found != names.end()) {
      ASSERT_EQ(description.result, 0u);
      ASSERT_EQ(description.text, found->second);
    } else {
      ASSERT_EQ(description.result, 0xFFFFFFFFu);
      ASSERT_EQ(description.text, "Unk(" + std::to_string(tag) + ") ");
    }
  }
}

TEST(InfoDescription, Examples) {
  EXPECT_EQ(Describe(14).text, "Owner");
  EXPECT_EQ(Describe(13).text, "Comments");
  EXPECT_EQ(Describe(47).text, "URL");
  EXPECT_EQ(Describe(44).text, "SpecialPlaybackRequirements");
  EXPECT_EQ(Describe(78).text, "ProxyFile");
  EXPECT_EQ(Describe(4097).text, "TimeCode");
  EXPECT_EQ(Describe(65570).text, "TimeCode");
  EXPECT_EQ(Describe(79).text, "Unk(79) ");
  EXPECT_EQ(Describe(4096).text, "Unk(4096) ");
  EXPECT_EQ(Describe(4130).text, "Unk(4130) ");
  EXPECT_EQ(Describe(65571).text, "Unk(65571) ");
  EXPECT_EQ(Describe(0xFFFFFFFF).text, "Unk(-1) ");
  EXPECT_EQ(Describe(0x80000000).text, "Unk(-2147483648) ");
  EXPECT_EQ(Describe(0x80000000).result, 0xFFFFFFFFu);
}

uint32_t TypeOf(const std::string& text) {
  ExactCopy copy(Bytes(text.begin(), text.end()), 1);
  return QLNInfoTcTypeFromText(reinterpret_cast<const char*>(copy.data()));
}

TEST(TcTypeFromText, Words) {
  EXPECT_EQ(TypeOf("TcType=\"frames\""), 0u);
  EXPECT_EQ(TypeOf("TcType=\"23.98\""), 132u);
  EXPECT_EQ(TypeOf("TcType=\"film-drop\""), 128u);
  EXPECT_EQ(TypeOf("TcType=\"film\""), 1u);
  EXPECT_EQ(TypeOf("TcType=\"pal\""), 8u);
  EXPECT_EQ(TypeOf("TcType=\"drop-frame\""), 4u);
  EXPECT_EQ(TypeOf("TcType=\"non-drop-frame\""), 4u);
  EXPECT_EQ(TypeOf("TcType=\"50\""), 16u);
  EXPECT_EQ(TypeOf("TcType=\"59.94\""), 32u);
  EXPECT_EQ(TypeOf("TcType=\"60\""), 64u);
}

TEST(TcTypeFromText, CaseAndWhatFollowsTheWordDoNotMatter) {
  EXPECT_EQ(TypeOf("TcType=\"PAL plus"), 8u);
  EXPECT_EQ(TypeOf("TcType='Film-Drop'"), 128u);
  EXPECT_EQ(TypeOf("TcType=\"FILM-x\""), 1u);
  EXPECT_EQ(TypeOf("TcType=\"60000\""), 64u);
  EXPECT_EQ(TypeOf("TcType=?pal"), 8u);  // whatever stands for the quote
}

TEST(TcTypeFromText, SpellingsOfTheAttribute) {
  EXPECT_EQ(TypeOf("<Position tctype=\"pal\">"), 8u);
  EXPECT_EQ(TypeOf("<Position TCTYPE=\"60\">"), 64u);
  EXPECT_EQ(TypeOf("TCTYPE=\"60\" tctype=\"pal\" TcType=\"film\""), 1u);
  EXPECT_EQ(TypeOf("TCTYPE=\"60\" tctype=\"pal\""), 8u);
  EXPECT_EQ(TypeOf("TcType=\"50\" TcType=\"60\""), 16u);
  EXPECT_EQ(TypeOf("tcType=\"60\""), 0u);
}

TEST(TcTypeFromText, NothingToFind) {
  EXPECT_EQ(QLNInfoTcTypeFromText(nullptr), 0u);
  for (const char* text : {"", "T", "TcType", "TcType=", "TcType=\"", "TcType=\"p", "TcType=\"drop-fram",
                           "<Position>", "TcType=\"unknown\"", "TcType=\"\""}) {
    EXPECT_EQ(TypeOf(text), 0u) << text;
  }
  EXPECT_EQ(TypeOf("TcType= pal"), 8u);  // the blank is taken for the quote
  EXPECT_EQ(TypeOf("TcType=pal"), 0u);   // without a quote the word has lost its first letter
}

}  // namespace
}  // namespace qln::test
