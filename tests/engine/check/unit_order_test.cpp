// The order of units, in words.

#include "check/unit_order.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;
using testing::ElementsAre;
using testing::IsEmpty;

// "AUD SPS IDR more" to units: IDR and P begin a picture, "more" goes on with it.
Bytes UnitOf(Codec codec, const std::string& word) {
  struct Word {
    const char* word;
    const char* h264;
    const char* hevc;
  };
  static constexpr Word kWords[] = {
      {"AUD", "09F0", "460150"},
      {"VPS", "", "400180"},
      {"SPS", "6780", "420180"},
      {"PPS", "6880", "440180"},
      {"SEI", "06050080", "4E01050080"},
      {"SUF", "", "5001050080"},
      {"IDR", "6588", "2601AF"},
      {"P", "4188", "0201D0"},
      {"more", "4140", "020140"},
      {"EOS", "0A", "4801"},
      {"FIL", "0CFF80", "4C01FF80"},
      {"PRE", "6E4000", ""},
      {"AUX", "1388", ""},
      {"EL", "74 8800", "020980"},
      {"SPS1", "", "420980"},
      {"RPU", "", "7C0119"},
  };
  for (const Word& known : kWords) {
    if (word == known.word) return Hex(codec == Codec::kH264 ? known.h264 : known.hevc);
  }
  ADD_FAILURE() << word;
  return {};
}

std::vector<std::string> Findings(Codec codec, const std::string& words, OrderRules rules = {}) {
  std::vector<Unit> units;
  for (size_t at = 0; at < words.size();) {
    const size_t end = std::min(words.find(' ', at), words.size());
    units.emplace_back();
    units.back().bytes = UnitOf(codec, words.substr(at, end - at));
    at = end + 1;
  }
  return OrderFindings(codec, units, rules);
}

constexpr OrderRules kFields{true, false};

TEST(OrderCheck, OrdersThatAreLegal) {
  for (const char* words : {"AUD SPS PPS SEI IDR more more", "P", "SEI SPS PPS SEI IDR",
                            "AUD SEI P more FIL EOS", "AUD PRE P EL", "P AUX"})
    EXPECT_THAT(Findings(Codec::kH264, words), IsEmpty()) << words;
  for (const char* words :
       {"AUD VPS SPS PPS SEI IDR more SUF EOS", "P SUF", "SEI P more FIL", "P EL", "P SPS1 EL SUF"})
    EXPECT_THAT(Findings(Codec::kHevc, words), IsEmpty()) << words;
}

TEST(OrderCheck, TheEndOfASequenceBelongsToTheFrameInFront) {
  for (const char* words : {"EOS AUD SPS PPS IDR", "EOS", "P EOS", "EOS P EOS"}) {
    EXPECT_THAT(Findings(Codec::kH264, words), IsEmpty()) << words;
    EXPECT_THAT(Findings(Codec::kHevc, words), IsEmpty()) << words;
  }
  EXPECT_THAT(Findings(Codec::kHevc, "EOS SEI AUD P"),
              ElementsAre("an access unit delimiter is not the first unit of its frame"));
  EXPECT_THAT(Findings(Codec::kHevc, "EOS RPU AUD P"),
              ElementsAre("a Dolby Vision RPU stands behind the end of its sequence"));
  EXPECT_THAT(Findings(Codec::kHevc, "P EOS RPU"),
              ElementsAre("a Dolby Vision RPU stands behind the end of its sequence"));
}

TEST(OrderCheck, UnspecifiedUnitsOfHevcFollowTheirPicture) {
  EXPECT_THAT(Findings(Codec::kHevc, "AUD P RPU"), IsEmpty());
  EXPECT_THAT(Findings(Codec::kHevc, "AUD RPU P"),
              ElementsAre("a Dolby Vision RPU stands in front of the slices of its frame"));
}

TEST(OrderCheck, SecondFieldsAreAccessUnitsOfTheirOwn) {
  for (const char* words :
       {"AUD SPS PPS SEI IDR AUD SEI P", "SEI IDR SEI P", "IDR P", "IDR more SEI PPS P more"})
    EXPECT_THAT(Findings(Codec::kH264, words, kFields), IsEmpty()) << words;
  EXPECT_THAT(Findings(Codec::kHevc, "AUD SPS SEI IDR SUF SUF AUD SEI P more SUF", kFields), IsEmpty());
  // What stands between the slices of one field, or behind the last, is none of the other field's.
  EXPECT_THAT(Findings(Codec::kH264, "IDR SEI more P", kFields),
              ElementsAre("an SEI stands behind a slice of its frame"));
  EXPECT_THAT(Findings(Codec::kH264, "IDR P SEI", kFields),
              ElementsAre("an SEI stands behind a slice of its frame"));
  EXPECT_THAT(Findings(Codec::kH264, "IDR SEI AUD P", kFields),
              ElementsAre("an access unit delimiter is not the first unit of its frame"));
}

TEST(OrderCheck, OrdersThatAreNot) {
  const Codec avc = Codec::kH264;
  const Codec hevc = Codec::kHevc;
  EXPECT_THAT(Findings(avc, "SEI AUD P"),
              ElementsAre("an access unit delimiter is not the first unit of its frame"));
  EXPECT_THAT(Findings(avc, "AUD AUD P"), ElementsAre("a frame has two access unit delimiters"));
  EXPECT_THAT(Findings(avc, "P SPS"), ElementsAre("an SPS stands behind a slice of its frame"));
  EXPECT_THAT(Findings(avc, "P PPS"), ElementsAre("a PPS stands behind a slice of its frame"));
  EXPECT_THAT(Findings(avc, "P SEI more"), ElementsAre("an SEI stands behind a slice of its frame"));
  EXPECT_THAT(Findings(avc, "AUD SEI"), ElementsAre("a frame has no slice"));
  EXPECT_THAT(Findings(avc, ""), ElementsAre("a frame has no slice"));
  EXPECT_THAT(Findings(avc, "AUD more"),
              ElementsAre("a frame does not begin with its picture's first slice: a unit "
                          "between its slices cut it, or slices are missing"));
  EXPECT_THAT(Findings(avc, "more P", {false, true}), IsEmpty());
  EXPECT_THAT(Findings(hevc, "P VPS"), ElementsAre("a VPS stands behind a slice of its frame"));
  EXPECT_THAT(Findings(hevc, "P SEI"), ElementsAre("a prefix SEI stands behind a slice of its frame"));
  EXPECT_THAT(Findings(hevc, "SUF P"),
              ElementsAre("a suffix SEI stands in front of the slices of its frame"));
  EXPECT_THAT(Findings(hevc, "EL"), IsEmpty());  // the rest of the picture in the packet in front
  EXPECT_THAT(
      Findings(hevc, "SEI AUD AUD P PPS"),
      ElementsAre("an access unit delimiter is not the first unit of its frame",
                  "a frame has two access unit delimiters", "a PPS stands behind a slice of its frame"));
}

}  // namespace
}  // namespace qlnmedia
