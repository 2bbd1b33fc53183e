// patch on media segments: one with its initialization segment, and a folder or playlist as one stream.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "base/error.h"
#include "mp4/list_file.h"
#include "mp4/muxed_kinds.h"
#include "patch/dash_manifest.h"
#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/patch.h"
#include "qlnmedia/program.h"

namespace qln::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

std::string Folder(const std::string& name) {
  const std::string folder = MediaPath("segments_" + name);
  fs::remove_all(folder);
  return folder;
}

// Segments of a second and a half, in a folder with their playlist.
std::string Made(const std::string& kind, bool hevc) {
  const std::string folder = Folder(kind + (hevc ? "_265" : "_264"));
  fs::create_directories(folder);
  const CommandResult result = test::Run(
      "ffmpeg -v error -y -i " + mp4::Coded(hevc) + " -map 0:v -c copy " +
      (kind == "hls"
           ? "-f hls -hls_playlist_type vod -hls_segment_type fmp4 -hls_time 0.4 -hls_fmp4_init_filename "
             "init.mp4 "
             "-hls_segment_filename " +
                 folder + "/part%02d.m4s " + folder + "/list.m3u8"
           : "-f dash -seg_duration 0.4 -init_seg_name init.mp4 -media_seg_name 'part$Number%02d$.m4s' " +
                 folder + "/list.mpd"));
  EXPECT_EQ(result.exitCode, 0) << result.output;
  return folder;
}

std::vector<std::string> PartsOf(const std::string& folder) {
  std::vector<std::string> parts;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() == ".m4s") parts.push_back(entry.path().filename());
  }
  std::sort(parts.begin(), parts.end());
  return parts;
}

// All of a folder as one file.
std::string Joined(const std::string& folder, const std::string& name) {
  std::vector<Bytes> bytes = {ReadFile(folder + "/init.mp4")};
  for (const std::string& part : PartsOf(folder)) bytes.push_back(ReadFile(folder + "/" + part));
  const std::string path = MediaPath("segments_joined_" + name);
  WriteFile(path, mp4::Joined(bytes));
  return path;
}

const std::string kOptions = "--colour bt2020-pq --light-level 1000,400 --timecode 10:00:00:00 --delimiters";

TEST(Segments, AFolderIsPatchedAsTheJoinedFileIs) {
  for (const bool hevc : {false, true}) {
    for (const std::string kind : {"hls", "dash"}) {
      SCOPED_TRACE(kind);
      const std::string in = Made(kind, hevc);
      ASSERT_GE(PartsOf(in).size(), 3u);
      const std::string out = Folder("out");
      const CommandResult patch =
          Qlnmedia("patch --segments --verify '" + in + "' '" + out + "' --rate 25 " + kOptions);
      ASSERT_EQ(patch.exitCode, 0) << patch.output;
      EXPECT_THAT(patch.output, HasSubstr("pictures got their timecode"));
      EXPECT_THAT(patch.output, HasSubstr("verified: 38 samples of 1 tracks"));
      EXPECT_EQ(PartsOf(out), PartsOf(in));
      const std::string list = kind == "hls" ? "/list.m3u8" : "/list.mpd";
      EXPECT_EQ(ReadFile(out + list), ReadFile(in + list));
      // The same bytes as those of one file.
      const std::string before = Joined(in, "in.mp4");
      const std::string after = Joined(out, "out.mp4");
      const std::string whole = MediaPath("segments_whole.mp4");
      ASSERT_EQ(Qlnmedia("patch --verify '" + before + "' '" + whole + "' " + kOptions).exitCode, 0);
      EXPECT_TRUE(ReadFile(after) == ReadFile(whole));
      EXPECT_EQ(Decoded(after), Decoded(before));
      EXPECT_EQ(Times(after), Times(before));
      EXPECT_THAT(Timecodes(after), HasSubstr("10:00:00:00\n10:00:00:01\n"));
      EXPECT_THAT(Timecodes(after), HasSubstr("10:00:01:11\n"));
      // By its playlist, which comes with the segments.
      if (kind == "hls") {
        const std::string listed = Folder("listed");
        const CommandResult byList =
            Qlnmedia("patch --segments '" + in + list + "' '" + listed + "' --rate 25 " + kOptions);
        ASSERT_EQ(byList.exitCode, 0) << byList.output;
        for (const std::string& part : PartsOf(in))
          EXPECT_EQ(ReadFile(listed + "/" + part), ReadFile(out + "/" + part));
        EXPECT_EQ(ReadFile(listed + list), ReadFile(in + list));
        EXPECT_EQ(ReadFile(listed + "/init.mp4"), ReadFile(out + "/init.mp4"));
      }
    }
  }
}

// Pictures and sound in segments of their own, side by side in one folder; the manifest tells them apart.
TEST(Segments, AManifestNamesThePicturesAmongOtherStreams) {
  for (const std::string naming : {"", "-use_timeline 0 ", "-use_timeline 0 -use_template 0 "}) {
    SCOPED_TRACE(naming);
    const std::string in = Folder("streams");
    fs::create_directories(in);
    const CommandResult made =
        test::Run("ffmpeg -v error -y -i " + mp4::Coded(false) +
                  " -map 0 -c copy -f dash -seg_duration 0.4 " + naming + in + "/list.mpd");
    ASSERT_EQ(made.exitCode, 0) << made.output;
    EXPECT_THAT(Qlnmedia("patch --segments '" + in + "' '" + Folder("none") + "' --delimiters").output,
                HasSubstr("has 2 initialization segments"));
    const std::string out = Folder("streams_out");
    const CommandResult patch =
        Qlnmedia("patch --segments --verify '" + in + "/list.mpd' '" + out + "' --rate 25 " + kOptions);
    ASSERT_EQ(patch.exitCode, 0) << patch.output;
    EXPECT_THAT(patch.output, HasSubstr("verified: 38 samples of 1 tracks"));
    std::vector<Bytes> before;
    std::vector<Bytes> after;
    size_t files = 0;
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(in)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    // "chunk-stream0-..." and "init-stream0.m4s" are the pictures.
    for (const std::string& name : names) {
      ++files;
      const Bytes is = ReadFile(out + "/" + name);
      const Bytes was = ReadFile(in + "/" + name);
      EXPECT_EQ(is == was, name.find("stream0") == std::string::npos) << name;
      if (name.rfind("chunk-stream0", 0) == 0) {
        before.push_back(was);
        after.push_back(is);
      }
    }
    EXPECT_GT(files, 8u);
    before.insert(before.begin(), ReadFile(in + "/init-stream0.m4s"));
    WriteFile(MediaPath("segments_joined_in.mp4"), mp4::Joined(before));
    after.insert(after.begin(), ReadFile(out + "/init-stream0.m4s"));
    WriteFile(MediaPath("segments_joined_out.mp4"), mp4::Joined(after));
    EXPECT_EQ(Decoded(MediaPath("segments_joined_out.mp4")), Decoded(MediaPath("segments_joined_in.mp4")));
  }
}

TEST(Segments, ManifestsByTheirText) {
  const auto read = [](const std::string& inner) {
    return qlnmedia::ReadDashManifest(
        "list.mpd", "<?xml version=\"1.0\"?><!-- <MPD> -->\n<MPD><Period>" + inner + "</Period></MPD>");
  };
  const auto refusal = [&](const std::string& inner) {
    try {
      read(inner);
    } catch (const qlnmedia::Error& error) {
      return std::string(error.what());
    }
    return std::string();
  };
  // What stands around holds within, and each says what it has of its own.
  const auto streams = read(
      "<BaseURL>a&amp;b/</BaseURL><AdaptationSet mimeType='video/mp4'><x:SegmentTemplate startNumber=\"3\" "
      "initialization=\"$RepresentationID$/i.mp4\" "
      "media=\"$RepresentationID$-$Bandwidth$-$Number%04d$-$Time$$$.m4s\">"
      "<SegmentTimeline><S t=\"5\" d=\"10\" r=\"1\"/><S d=\"2\"/></SegmentTimeline></x:SegmentTemplate>"
      "<Representation id=\"v\" bandwidth=\"77\"/></AdaptationSet>"
      "<AdaptationSet contentType=\"audio\"><Representation id='s'><SegmentList><Initialization "
      "sourceURL=\"i\"/>"
      "<SegmentURL media=\"one\"/><SegmentURL media=\"two\"/></SegmentList></Representation></AdaptationSet>"
      "<AdaptationSet contentType=\"text\"><Representation id='t'><SegmentTemplate "
      "media='t$Number%02d$.m4s'/>"
      "</Representation></AdaptationSet>");
  ASSERT_EQ(streams.size(), 3u);
  EXPECT_TRUE(streams[0].video);
  EXPECT_EQ(streams[0].initialization, "a&b/v/i.mp4");
  EXPECT_THAT(streams[0].segments,
              testing::ElementsAre("a&b/v-77-0003-5$.m4s", "a&b/v-77-0004-15$.m4s", "a&b/v-77-0005-25$.m4s"));
  EXPECT_FALSE(streams[1].video);
  EXPECT_THAT(streams[1].segments, testing::ElementsAre("a&b/one", "a&b/two"));
  ASSERT_EQ(streams[2].numbered.size(), 1u);
  EXPECT_EQ(streams[2].numbered[0].front, "a&b/t");
  EXPECT_EQ(streams[2].numbered[0].behind, ".m4s");
  EXPECT_EQ(streams[2].numbered[0].first, 1u);
  EXPECT_EQ(streams[2].numbered[0].width, 2u);

  const std::string video = "<AdaptationSet contentType='video'><Representation id='v'>";
  const std::string end = "</Representation></AdaptationSet>";
  EXPECT_THAT(refusal(video + "<SegmentBase/>" + end), HasSubstr("names parts of files"));
  EXPECT_THAT(refusal(video + "<SegmentList><SegmentURL mediaRange='1-2'/></SegmentList>" + end),
              HasSubstr("names parts of files"));
  EXPECT_THAT(refusal("</Period><Period>"), HasSubstr("several periods"));
  const auto timeline = [&](const std::string& runs) {
    return refusal(video + "<SegmentTemplate media='$Time$'><SegmentTimeline>" + runs +
                   "</SegmentTimeline></SegmentTemplate>" + end);
  };
  EXPECT_EQ(timeline("<S r='999999'/>"), "");
  EXPECT_THAT(timeline("<S r='999999'/><S/>"), HasSubstr("more than a million"));
  EXPECT_THAT(timeline("<S r='99999999999'/>"), HasSubstr("more than a million"));
  EXPECT_THAT(timeline("<S r='-1'/>"), HasSubstr("without saying how many"));
  EXPECT_THAT(timeline("<S r='x'/>"), HasSubstr("is none"));
  EXPECT_THAT(refusal(video + "<SegmentTemplate media='$Else$'/>" + end), HasSubstr("nothing fills"));
  EXPECT_THAT(refusal("</Period></MPD></Period>"), HasSubstr("is cut off"));
  EXPECT_THAT(refusal("<AdaptationSet"), HasSubstr("is cut off"));
  EXPECT_THAT(refusal("<S d='1"), HasSubstr("is cut off"));
}

TEST(Segments, OneAloneWithItsInitializationSegment) {
  for (const bool hevc : {false, true}) {
    const std::string in = Made("hls", hevc);
    const std::string out = Folder("alone");
    fs::create_directories(out);
    const Bytes init = ReadFile(in + "/init.mp4");
    for (const std::string& part : PartsOf(in)) {
      SCOPED_TRACE(part);
      std::string arguments = "patch --verify --init '" + in + "/init.mp4' '" + in;
      arguments += "/" + part + "' '" + out + "/" + part + "' --delimiters";
      const CommandResult patch = Qlnmedia(arguments);
      ASSERT_EQ(patch.exitCode, 0) << patch.output;
      EXPECT_THAT(patch.output, HasSubstr("delimiters put in"));
      const Bytes before = ReadFile(in + "/" + part);
      const Bytes after = ReadFile(out + "/" + part);
      std::vector<Bytes> fresh;
      const mp4::Listing listing = mp4::ListFile(after, init);
      for (const mp4::ListedSample& sample : listing.samples.at(1)) fresh.push_back(sample.data);
      EXPECT_EQ(mp4::Compare(before, after, 1, fresh, init), "");
    }
    EXPECT_EQ(ReadFile(in + "/init.mp4"), init);
    fs::copy_file(in + "/init.mp4", out + "/init.mp4");
    EXPECT_EQ(Decoded(Joined(out, "out.mp4")), Decoded(Joined(in, "in.mp4")));
  }
}

TEST(Segments, WhoAsksHearsOfAllThatIsNotFinished) {
  const std::string in = Made("hls", false);
  qlnmedia::PatchOptions options;
  options.in = in;
  options.out = Folder("told");
  options.segments = true;
  options.delimiters = true;
  std::vector<std::string> there;
  std::vector<std::string> all;
  options.unfinished = [&](const std::string& path, bool comes) {
    if (comes) {
      EXPECT_FALSE(fs::exists(path)) << path;
      there.push_back(path);
      all.push_back(path);
    } else {
      EXPECT_FALSE(fs::exists(path)) << path;
      there.erase(std::find(there.begin(), there.end(), path));
    }
  };
  qlnmedia::PatchFile(options);
  EXPECT_TRUE(there.empty());
  // One folder, which stands for what is in it.
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(fs::path(all[0]).parent_path(), fs::path(options.out).parent_path());
  EXPECT_EQ(PartsOf(options.out), PartsOf(in));
}

TEST(Segments, WhatCannotBeReadAsOneStreamIsRefused) {
  const std::string in = Made("hls", false);
  const std::string out = Folder("none");
  const auto refused = [&](const std::string& from, const std::string& text) {
    const CommandResult patch = Qlnmedia("patch --segments '" + from + "' '" + out + "' --delimiters");
    EXPECT_EQ(patch.exitCode, 1) << patch.output;
    EXPECT_THAT(patch.output, HasSubstr(text));
    EXPECT_FALSE(fs::exists(out));
  };
  const auto playlist = [&](const std::string& text) {
    const std::string path = in + "/other.m3u8";
    WriteFile(path, Bytes(text.begin(), text.end()));
    return path;
  };
  const std::string map = "#EXTM3U\n#EXT-X-MAP:URI=\"init.mp4\"\n";
  refused(playlist("part00.m4s\n"), "is no playlist");
  refused(playlist("#EXTM3U\npart00.m4s\n"), "names no initialization segment");
  refused(playlist(map), "has no media segments");
  refused(playlist(map + "#EXT-X-BYTERANGE:10@0\npart00.m4s\n"), "names parts of files");
  refused(playlist(map + "../part00.m4s\n"), "stands outside of its folder");
  refused(playlist(map + "https://example.com/part00.m4s\n"), "stands outside of its folder");
  refused(playlist(map + "part00.m4s\npart00.m4s\n"), "twice");
  refused(playlist(map + "gone.m4s\n"), "gone.m4s: No such file or directory");
  refused(playlist("#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1\nlist.m3u8\n"), "names other playlists");
  fs::copy_file(in + "/init.mp4", in + "/init2.mp4");
  refused(in, "has 2 initialization segments");
  refused(in + "/nothing", "No such file or directory");
  fs::remove(in + "/init2.mp4");
  // A folder that holds something stays as it is.
  const CommandResult full = Qlnmedia("patch --segments '" + in + "' '" + in + "' --delimiters");
  EXPECT_EQ(full.exitCode, 1);
  EXPECT_THAT(full.output, HasSubstr("is there already"));
  // Nothing is written by a dry run, and nothing stays of a run that fails.
  EXPECT_EQ(Qlnmedia("patch --segments --dry-run '" + in + "' '" + out + "' --delimiters").exitCode, 0);
  EXPECT_EQ(test::Run("ulimit -f 2; '" QLNMEDIA_PROGRAM "' patch --segments '" + in + "' '" + out +
                      "' --delimiters")
                .exitCode,
            1);
  EXPECT_FALSE(fs::exists(out));
  for (const auto& entry : fs::directory_iterator(MediaPath("")))
    EXPECT_EQ(entry.path().filename().string().find("segments_none"), std::string::npos) << entry.path();
  // Segments without the one they belong to.
  EXPECT_EQ(Qlnmedia("patch '" + in + "/part00.m4s' '" + MediaPath("none.m4s") + "' --delimiters").exitCode,
            1);
  EXPECT_THAT(Qlnmedia("patch --init '" + in + "/init.mp4' '" + in + "/part00.m4s' '" + in +
                       "/init.mp4' --delimiters")
                  .output,
              HasSubstr("is the input itself"));
}

}  // namespace
}  // namespace qln::test
