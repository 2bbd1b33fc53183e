// WebVTT and TTML out of captions: places, looks, what must be escaped, and the way back.

#include "captions/timed_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pugixml.hpp>

#include "captions/caption_track.h"
#include "captions/decoder.h"
#include "captions/pop_on_schedule.h"

namespace qlnmedia::captions {
namespace {

using testing::HasSubstr;

const Look kPlain;
const Look kYellow{Line21Colour::kYellow, false, false};
const Look kGreenItalic{Line21Colour::kGreen, true, true};

std::vector<StyledCaption> Sample() {
  return {{1,
           2.5,
           CaptionStyle::kPopOn,
           {{1, 4, 5, {{"a<b&c", kPlain}}}, {15, 0, 6, {{"lo ", kYellow}, {"wer", kGreenItalic}}}}},
          {3, 4, CaptionStyle::kRollUp, {{14, 0, 3, {{"one", kPlain}}}, {15, 0, 3, {{"two", kPlain}}}}}};
}

TEST(WebVtt, KeepsPlacesAndLooks) {
  EXPECT_EQ(
      WriteVtt(Sample()),
      "WEBVTT\n\n"
      "00:00:01.000 --> 00:00:02.500 line:10.00% position:20.00% size:70.00% align:start\na&lt;b&amp;c\n\n"
      "00:00:01.000 --> 00:00:02.500 line:84.67% position:10.00% size:80.00% align:start\n"
      "<c.yellow>lo </c><c.lime><i><u>wer</u></i></c>\n\n"
      "00:00:03.000 --> 00:00:04.000 line:79.33% position:10.00% size:80.00% align:start\none\ntwo\n");
  EXPECT_EQ(WriteVtt({PlainCaption(0, 1, "a\nb")}), "WEBVTT\n\n00:00:00.000 --> 00:00:01.000\na\nb\n");
}

TEST(Ttml, KeepsPlacesAndLooks) {
  pugi::xml_document document;
  ASSERT_TRUE(document.load_string(WriteTtml(Sample()).c_str(), pugi::parse_default | pugi::parse_ws_pcdata));
  const pugi::xml_node tt = document.child("tt");
  EXPECT_STREQ(tt.attribute("ttp:profile").value(), "http://www.w3.org/ns/ttml/profile/imsc1/text");
  std::map<std::string, pugi::xml_node> regions;
  for (const pugi::xml_node region : tt.child("head").child("layout").children("region"))
    regions[region.attribute("xml:id").value()] = region;
  std::vector<std::string> told;
  for (const pugi::xml_node p : tt.child("body").child("div").children("p")) {
    const pugi::xml_node region = regions[p.attribute("region").value()];
    told.push_back(std::string(p.attribute("begin").value()) + " " + p.attribute("end").value() + " " +
                   region.attribute("tts:origin").value() + " " + region.attribute("tts:extent").value());
  }
  EXPECT_THAT(told, testing::ElementsAre("00:00:01.000 00:00:02.500 20.00% 10.00% 70.00% 5.33%",
                                         "00:00:01.000 00:00:02.500 10.00% 84.67% 80.00% 5.33%",
                                         "00:00:03.000 00:00:04.000 10.00% 79.33% 80.00% 10.67%"));
  const pugi::xml_node first = tt.child("body").child("div").child("p");
  EXPECT_STREQ(first.text().get(), "a<b&c");
  const pugi::xml_node span = first.next_sibling("p").child("span");
  EXPECT_STREQ(span.attribute("tts:color").value(), "yellow");
  EXPECT_STREQ(span.text().get(), "lo ");
  const pugi::xml_node other = span.next_sibling("span");
  EXPECT_STREQ(other.attribute("tts:color").value(), "lime");
  EXPECT_STREQ(other.attribute("tts:fontStyle").value(), "italic");
  EXPECT_STREQ(other.attribute("tts:textDecoration").value(), "underline");
  // What no XML may hold.
  ASSERT_TRUE(document.load_string(WriteTtml({PlainCaption(0, 1, "x\x01\xED\xA0\x80")}).c_str()));
  EXPECT_THAT(WriteTtml({PlainCaption(0, 1, "a\nb")}), HasSubstr(">a<br/>b</p>"));
}

// Captions at all places go out as WebVTT and come back as the same captions at the same places.
TEST(WebVtt, LeadsBackToTheSameCaptions) {
  std::vector<StyledCaption> captions;
  for (int i = 0; i < 15; ++i) {
    const int row = 1 + i;
    const int column = 2 * i;
    StyledCaption caption{
        2.0 + 3 * i, 4.0 + 3 * i, CaptionStyle::kPopOn, {{row, column, 4, {{"a <b", kPlain}}}}};
    if (row < 14) caption.rows.push_back({row + 2, 31 - column, 1, {{"&", kPlain}}});
    captions.push_back(caption);
  }
  std::vector<CueProblem> problems;
  std::string reason;
  const auto track = MakeCaptionTrack(WriteVtt(captions), Rate::k30, {}, &problems, &reason);
  ASSERT_TRUE(track) << reason;
  EXPECT_TRUE(problems.empty());
  CaptionDecoder decoder;
  CaptionPictures pictures(*track, Rate::k30, 0);
  int64_t number = 0;
  for (; !pictures.over(); ++number) decoder.Add(pictures.Next(number), static_cast<double>(number) / 30);
  decoder.Finish(static_cast<double>(number) / 30);
  const std::vector<StyledService> services = decoder.styled();
  ASSERT_EQ(services.size(), 1u);
  const std::vector<StyledCaption>& back = services[0].captions;
  ASSERT_EQ(back.size(), captions.size());
  for (size_t i = 0; i < back.size(); ++i) {
    EXPECT_EQ(back[i].rows, captions[i].rows) << i;
    EXPECT_NEAR(back[i].begin, captions[i].begin, 1e-6);
    EXPECT_NEAR(back[i].end, captions[i].end, 1e-6);
  }
}

}  // namespace
}  // namespace qlnmedia::captions
