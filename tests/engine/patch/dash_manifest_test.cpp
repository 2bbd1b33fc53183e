// DASH manifests by the rules of ISO/IEC 23009-1: what holds inside of what, and how templates are filled.

#include "patch/dash_manifest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/error.h"

namespace qlnmedia {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<DashStream> Read(const std::string& inner) {
  return ReadDashManifest("list.mpd", "<MPD><Period>" + inner + "</Period></MPD>");
}

// One stream of pictures with this in its Representation.
std::vector<DashStream> ReadVideo(const std::string& inner) {
  return Read("<AdaptationSet contentType=\"video\"><Representation id=\"v\">" + inner +
              "</Representation></AdaptationSet>");
}

std::string Refusal(const std::string& inner) {
  try {
    ReadVideo(inner);
  } catch (const Error& error) {
    return error.what();
  }
  return {};
}

TEST(DashBase, EachLevelStandsInTheOneAroundIt) {
  const std::string list =
      "<SegmentList><Initialization sourceURL='i'/><SegmentURL media='s'/></SegmentList>";
  const auto streams = ReadDashManifest(
      "list.mpd",
      "<MPD><BaseURL>a/</BaseURL><Period><BaseURL> b/\n</BaseURL><AdaptationSet mimeType='video/mp4'>"
      "<BaseURL>c/</BaseURL><Representation id='1'><BaseURL>d/</BaseURL>" +
          list + "</Representation><Representation id='2'>" + list +
          "</Representation></AdaptationSet></Period></MPD>");
  ASSERT_EQ(streams.size(), 2u);
  EXPECT_EQ(streams[0].initialization, "a/b/c/d/i");
  EXPECT_THAT(streams[0].segments, ElementsAre("a/b/c/d/s"));
  EXPECT_EQ(streams[1].initialization, "a/b/c/i");
}

// IETF RFC 3986 clause 5.2: a reference takes the place of what is behind the last slash.
TEST(DashBase, IsResolvedAsReferencesAre) {
  const auto streams =
      ReadVideo("<BaseURL>video/old.mp4</BaseURL><SegmentList><SegmentURL media='s'/></SegmentList>");
  EXPECT_THAT(streams[0].segments, ElementsAre("video/s"));
  EXPECT_THAT(ReadVideo("<BaseURL>v/</BaseURL><SegmentList><SegmentURL media='http://x/s'/></SegmentList>")[0]
                  .segments,
              ElementsAre("http://x/s"));
}

TEST(DashBase, FurtherOnesAreOtherPlacesForTheSame) {
  EXPECT_THAT(ReadVideo("<BaseURL>one/</BaseURL><BaseURL>two/</BaseURL>"
                        "<SegmentList><SegmentURL media='s'/></SegmentList>")[0]
                  .segments,
              ElementsAre("one/s"));
}

TEST(DashStreams, WithoutAnInitializationSegmentNameNone) {
  const auto streams = ReadVideo("<BaseURL>v/</BaseURL><SegmentList><SegmentURL media='s'/></SegmentList>");
  EXPECT_EQ(streams[0].initialization, "");
}

TEST(DashStreams, AListInsideTakesThePlaceOfTheOneAround) {
  const auto streams = Read(
      "<AdaptationSet mimeType='video/mp4'><SegmentList><Initialization sourceURL='i'/><SegmentURL "
      "media='o'/>"
      "</SegmentList><Representation id='a'><SegmentList><SegmentURL media='one'/><SegmentURL media='two'/>"
      "</SegmentList></Representation><Representation id='b'/></AdaptationSet>");
  ASSERT_EQ(streams.size(), 2u);
  EXPECT_EQ(streams[0].initialization, "i");
  EXPECT_THAT(streams[0].segments, ElementsAre("one", "two"));
  EXPECT_THAT(streams[1].segments, ElementsAre("o"));
}

TEST(DashTemplates, NumbersOfATimelineBeginWhereTheInnermostSays) {
  const auto streams = Read(
      "<AdaptationSet mimeType='video/mp4'><SegmentTemplate media='$Number$.m4s' startNumber='1'>"
      "<SegmentTimeline><S d='2' r='1'/></SegmentTimeline></SegmentTemplate>"
      "<Representation id='a'><SegmentTemplate startNumber='7'/></Representation></AdaptationSet>");
  EXPECT_THAT(streams[0].segments, ElementsAre("7.m4s", "8.m4s"));
}

TEST(DashTemplates, TimesGoOnFromOneRunToTheNext) {
  EXPECT_THAT(ReadVideo("<SegmentTemplate media='$Time$'><SegmentTimeline><S t='5' d='10' r='1'/><S d='3'/>"
                        "<S t='100' d='1'/></SegmentTimeline></SegmentTemplate>")[0]
                  .segments,
              ElementsAre("5", "15", "25", "100"));
}

TEST(DashTemplates, OpenNumbersKeepWhatStandsAround) {
  const auto streams = ReadVideo(
      "<BaseURL>x/</BaseURL><SegmentTemplate startNumber='3' initialization='$RepresentationID$.mp4' "
      "media='$RepresentationID$-$Number%05d$.m4s'/>");
  EXPECT_EQ(streams[0].initialization, "x/v.mp4");
  EXPECT_THAT(streams[0].segments, IsEmpty());
  ASSERT_EQ(streams[0].numbered.size(), 1u);
  EXPECT_EQ(streams[0].numbered[0].front, "x/v-");
  EXPECT_EQ(streams[0].numbered[0].behind, ".m4s");
  EXPECT_EQ(streams[0].numbered[0].first, 3u);
  EXPECT_EQ(streams[0].numbered[0].width, 5u);
  EXPECT_THAT(Refusal("<SegmentTemplate media='$Number$/$Number$.m4s'/>"),
              HasSubstr("does not say how many segments there are"));
}

TEST(DashTemplates, DollarSignsAndWhatIsNone) {
  EXPECT_THAT(ReadVideo("<SegmentTemplate media='$$$Number$$$'><SegmentTimeline><S d='1'/></SegmentTimeline>"
                        "</SegmentTemplate>")[0]
                  .segments,
              ElementsAre("$1$"));
  const auto filled = [](const std::string& media) {
    return Refusal("<SegmentTemplate media='" + media +
                   "'><SegmentTimeline><S d='1'/></SegmentTimeline></SegmentTemplate>");
  };
  EXPECT_THAT(filled("$Number"), HasSubstr("has a template that is none"));
  EXPECT_THAT(filled("$Number%0xd$"), HasSubstr("has a number that is none"));
  EXPECT_THAT(filled("$SubNumber$"), HasSubstr("has a template that nothing fills"));
  EXPECT_THAT(Refusal("<SegmentTemplate initialization='$Number$' media='a'/>"),
              HasSubstr("has a template that nothing fills"));
}

TEST(DashManifests, OthersAreRefused) {
  EXPECT_THROW(ReadDashManifest("a", "<List/>"), Error);
  EXPECT_THROW(ReadDashManifest("a", "<MPD><Period>"), Error);
  EXPECT_THROW(ReadDashManifest("a", ""), Error);
  EXPECT_THAT(Refusal("<SegmentList><SegmentURL/></SegmentList>"), HasSubstr("names parts of files"));
  // Of sound that is no concern.
  EXPECT_THAT(Read("<AdaptationSet contentType='audio'><Representation id='s'><SegmentBase/></Representation>"
                   "</AdaptationSet>"),
              IsEmpty());
}

}  // namespace
}  // namespace qlnmedia
