// The summary of small files: pictures, place, and what the checks say, as lines and as values.

#include "inspect/summary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engine/patch/small_files.h"

namespace qlnmedia {
namespace {

using testing::HasSubstr;
namespace boxes = qln::test::mp4;

struct Summarized {
  Json json;
  std::map<std::string, std::string> lines;  // of the first stream
};

Summarized SummaryOf(const std::string& name, const Bytes& bytes) {
  test::Files files;
  MediaFile file(files.Put(name, bytes));
  const FirstPictures first = ReadFirstPictures(file, 2);
  Section report;
  AddSummary(report, file, first, {});
  Summarized summary{report.ToJson()["summary"], {}};
  for (const auto& node : report.nodes().at(0)->section.nodes()) {
    if (node->kind != Section::Node::Kind::kListItem) continue;
    for (const auto& line : node->section.nodes()) {
      if (line->kind == Section::Node::Kind::kLine) summary.lines[line->label] = line->text;
    }
    break;
  }
  return summary;
}

TEST(Summaries, PicturesOfAnMp4) {
  const Summarized summary = SummaryOf("a.mp4", test::PictureFile(test::PictureStream()));
  const Json& stream = summary.json["streams"][0];
  EXPECT_EQ(stream["profile"], "Main");
  EXPECT_EQ(stream["level"], "3");
  EXPECT_EQ(stream["width"], 64);
  EXPECT_EQ(stream["frame_rate"], (Json{{"numerator", 25}, {"denominator", 1}}));
  EXPECT_EQ(stream["frame_rate_mode"], "constant");
  EXPECT_EQ(stream["scan"], "interlaced");
  EXPECT_TRUE(stream["colour_primaries"].is_null());
  EXPECT_TRUE(stream["hdr"].is_null());
  EXPECT_EQ(stream["timecode"], Json::array());
  EXPECT_EQ(stream["id"], 1);
  EXPECT_EQ(summary.lines.at("Codec"), "H.264, Main profile, level 3, avc1");
  EXPECT_EQ(summary.lines.at("Picture"), "64x64, display 1:1, sample shape unspecified, 4:2:0, 8 bit");
  EXPECT_EQ(summary.lines.at("Rate"), "25 frames a second, constant");
  EXPECT_EQ(summary.lines.at("Colour"), "not told, range not told");
  EXPECT_THAT(summary.lines.at("Place"), HasSubstr("track 1"));
  EXPECT_EQ(summary.json["check"]["pictures"], 6);
}

// Samples of other lengths of time, and of another shape.
TEST(Summaries, UnevenPicturesAndTheirShape) {
  boxes::TrackSpec track = test::PictureTrack(test::PictureStream(),
                                              boxes::Box("pasp", {boxes::Number(4, 4), boxes::Number(3, 4)}));
  track.durations[2] = 80;
  boxes::MovieSpec movie;
  movie.tracks = {track};
  const Summarized summary = SummaryOf("a.mp4", boxes::BuildMovie(movie));
  EXPECT_EQ(summary.json["streams"][0]["frame_rate_mode"], "variable");
  EXPECT_EQ(summary.json["streams"][0]["sample_aspect_ratio"], (Json{{"width", 4}, {"height", 3}}));
  EXPECT_EQ(summary.json["streams"][0]["display_aspect_ratio"], (Json{{"width", 4}, {"height", 3}}));
  EXPECT_THAT(summary.lines.at("Rate"), HasSubstr("frames a second on average, variable"));
  EXPECT_THAT(summary.lines.at("Picture"), HasSubstr("display 4:3, samples 4:3"));
}

// A raw stream has no times: its sets say the rate, and nothing its length.
TEST(Summaries, RawStreamsByTheirSets) {
  Bytes raw;
  for (const AccessUnit& packet : test::PictureStream(6, 0).packets)
    raw.insert(raw.end(), packet.data.begin(), packet.data.end());
  const Summarized summary = SummaryOf("a.h264", raw);
  EXPECT_TRUE(summary.json["duration"].is_null());
  EXPECT_EQ(summary.json["streams"][0]["frame_rate"], (Json{{"numerator", 25}, {"denominator", 1}}));
  EXPECT_EQ(summary.lines.at("Codec"), "H.264, Main profile, level 3");
}

TEST(FirstPicturesOf, AsManyAsAreAskedForAndSomeMore) {
  test::Files files;
  MediaFile file(files.Put("a.mp4", test::PictureFile(test::PictureStream(9))));
  const FirstPictures first = ReadFirstPictures(file, 2);
  ASSERT_EQ(first.coded.size(), 1u);
  EXPECT_EQ(first.coded[0].packets.size(), 2u);
  EXPECT_EQ(first.coded[0].more.size(), 7u);
  EXPECT_EQ(first.coded[0].packets[1].pts, 40);
  EXPECT_TRUE(first.coded[0].packets[0].key);
  EXPECT_FALSE(first.coded[0].packets[1].key);
}

}  // namespace
}  // namespace qlnmedia
