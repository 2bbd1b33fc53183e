// The segments of a folder, an HLS playlist and a manifest: their order, and what is no stream of segments.

#include "patch/segment_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "small_files.h"

namespace qlnmedia {
namespace {

using test::RefusalOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace boxes = qln::test::mp4;

Bytes Init() {
  boxes::MovieSpec movie;
  movie.tracks = {{.samples = {}}};
  return boxes::BuildInit(movie, 10);
}

// A segment that begins at a decoding time; no `tfdt` for less than 0.
Bytes Segment(int64_t time) {
  return boxes::BuildFragment({{.runs = {{boxes::Noise(10, 1)}}, .decodeTime = time}}, 0);
}

class SegmentLists : public testing::Test {
 protected:
  SegmentList Playlist(const std::string& text) { return ReadSegmentList(files_.Put("list.m3u8", text)); }
  SegmentList Manifest(const std::string& inner) {
    return ReadSegmentList(files_.Put("list.mpd", "<MPD><Period>" + inner + "</Period></MPD>"));
  }
  template <class Work>
  std::string Refusal(Work work) {
    return RefusalOf(work);
  }
  test::Files files_;
};

TEST_F(SegmentLists, AFolderByTimesAndThenByNames) {
  files_.Put("c.mp4", Init());
  files_.Put("z.m4s", Segment(0));
  files_.Put("a.m4s", Segment(5000));
  files_.Put("b.m4s", Segment(300));
  files_.Put("d.m4s", Segment(300));
  files_.Put("notes.txt", "text");
  files_.Put("empty", "");
  const SegmentList list = ReadSegmentList(files_.path());
  EXPECT_EQ(list.folder, files_.path());
  EXPECT_EQ(list.initialization, "c.mp4");
  EXPECT_THAT(list.segments, ElementsAre("z.m4s", "b.m4s", "d.m4s", "a.m4s"));
  EXPECT_THAT(list.others, ElementsAre("empty", "notes.txt"));
}

TEST_F(SegmentLists, AFolderWithoutOneStream) {
  files_.Put("a.m4s", Segment(0));
  EXPECT_THAT(Refusal([&] { ReadSegmentList(files_.path()); }), HasSubstr("has 0 initialization segments"));
  files_.Put("i.mp4", Init());
  EXPECT_EQ(Refusal([&] { ReadSegmentList(files_.path()); }), "");
  // A whole file is no segment.
  Bytes whole = Init();
  const Bytes segment = Segment(0);
  whole.insert(whole.end(), segment.begin(), segment.end());
  files_.Put("whole.mp4", whole);
  EXPECT_THAT(ReadSegmentList(files_.path()).others, ElementsAre("whole.mp4"));
  files_.Put("j.mp4", Init());
  EXPECT_THAT(Refusal([&] { ReadSegmentList(files_.path()); }), HasSubstr("has 2 initialization segments"));
  EXPECT_THAT(Refusal([&] { ReadSegmentList(files_ / "none"); }), HasSubstr("No such file"));
}

TEST_F(SegmentLists, APlaylistInItsOrder) {
  const SegmentList list = Playlist(
      "#EXTM3U\r\n#EXT-X-MAP:URI=\"i.mp4\"\r\n#EXTINF:4,\r\nb.m4s\r\n#EXTINF:4,\n./a.m4s \n"
      "#EXT-X-MAP:URI=\"i.mp4\"\nsub/c.m4s\n#EXT-X-KEY:METHOD=SAMPLE-AES\n");
  EXPECT_EQ(list.folder, files_.path());
  EXPECT_EQ(list.initialization, "i.mp4");
  EXPECT_THAT(list.segments, ElementsAre("b.m4s", "a.m4s", "sub/c.m4s"));
  EXPECT_THAT(list.others, ElementsAre("list.m3u8"));
}

// IETF RFC 8216 names segments by URIs.
TEST_F(SegmentLists, PercentSignsInNames) {
  const std::string map = "#EXTM3U\n#EXT-X-MAP:URI=\"i.mp4\"\n";
  EXPECT_THAT(Playlist(map + "a%20b%2Fc.m4s\n100%.m4s\n%4\n").segments,
              ElementsAre("a b/c.m4s", "100%.m4s", "%4"));
  files_.Put("a%20b.m4s", Segment(0));  // a writer that puts none in
  EXPECT_THAT(Playlist(map + "a%20b.m4s\n").segments, ElementsAre("a%20b.m4s"));
  EXPECT_THAT(Refusal([&] { Playlist(map + "%2E%2E/a.m4s\n"); }), HasSubstr("outside of its folder"));
}

TEST_F(SegmentLists, PlaylistsOfOtherThings) {
  const auto refusal = [&](const std::string& text) { return Refusal([&] { Playlist(text); }); };
  const std::string map = "#EXTM3U\n#EXT-X-MAP:URI=\"i.mp4\"\n";
  EXPECT_THAT(refusal("a.m4s\n"), HasSubstr("is no playlist"));
  EXPECT_THAT(refusal(map), HasSubstr("has no media segments"));
  EXPECT_THAT(refusal("#EXTM3U\na.m4s\n"), HasSubstr("names no initialization segment"));
  EXPECT_THAT(refusal("#EXTM3U\n#EXT-X-MAP:BYTERANGE=\"1@0\"\na.m4s\n"), HasSubstr("without a URI"));
  EXPECT_THAT(refusal("#EXTM3U\n#EXT-X-MAP:URI=\"i.mp4\",BYTERANGE=\"1@0\"\na\n"),
              HasSubstr("names parts of files"));
  EXPECT_THAT(refusal(map + "#EXT-X-BYTERANGE:1@0\na\n"), HasSubstr("names parts of files"));
  EXPECT_THAT(refusal(map + "#EXT-X-KEY:METHOD=AES-128,URI=\"k\"\na\n"), HasSubstr("encrypted as a whole"));
  EXPECT_THAT(refusal(map + "#EXT-X-MAP:URI=\"j.mp4\"\na\n"), HasSubstr("several initialization segments"));
  EXPECT_THAT(refusal(map + "#EXT-X-STREAM-INF:BANDWIDTH=1\na\n"), HasSubstr("names other playlists"));
  EXPECT_THAT(refusal(map + "a\n./a\n"), HasSubstr("names \"a\" twice"));
  EXPECT_THAT(refusal(map + "/a\n"), HasSubstr("outside of its folder"));
  EXPECT_THAT(refusal(map + "x/../../a\n"), HasSubstr("outside of its folder"));
}

TEST_F(SegmentLists, AManifestWithItsOtherStreams) {
  files_.Put("v3.m4s", Segment(0));
  files_.Put("v4.m4s", Segment(1));
  files_.Put("v6.m4s", Segment(2));  // behind a gap: not of the list
  const SegmentList list = Manifest(
      "<AdaptationSet mimeType='video/mp4'><Representation id='v'><SegmentTemplate startNumber='3' "
      "initialization='i.mp4' media='v$Number$.m4s'/></Representation></AdaptationSet>"
      "<AdaptationSet mimeType='audio/mp4'><Representation id='s'><SegmentList><Initialization "
      "sourceURL='s.mp4'/><SegmentURL media='s1'/></SegmentList></Representation></AdaptationSet>"
      "<AdaptationSet mimeType='text/vtt'><Representation id='t'><BaseURL>t/</BaseURL><SegmentList>"
      "<SegmentURL media='t1'/></SegmentList></Representation></AdaptationSet>");
  EXPECT_EQ(list.initialization, "i.mp4");
  EXPECT_THAT(list.segments, ElementsAre("v3.m4s", "v4.m4s"));
  // Text has no initialization segment.
  EXPECT_THAT(list.others, ElementsAre("list.mpd", "s.mp4", "s1", "t/t1"));
}

TEST_F(SegmentLists, ManifestsThatAreNotOneStream) {
  const std::string video =
      "<AdaptationSet mimeType='video/mp4'><Representation><SegmentList><SegmentURL media='a'/></SegmentList>"
      "</Representation></AdaptationSet>";
  EXPECT_THAT(Refusal([&] { Manifest(video); }), HasSubstr("names no initialization segment"));
  EXPECT_THAT(Refusal([&] { Manifest("<BaseURL>x/</BaseURL>" + video); }),
              HasSubstr("names no initialization segment"));
  EXPECT_THAT(Refusal([&] { Manifest(video + video); }), HasSubstr("names 2 streams of pictures"));
  EXPECT_THAT(Refusal([&] { Manifest(""); }), HasSubstr("names 0 streams of pictures"));
}

}  // namespace
}  // namespace qlnmedia
