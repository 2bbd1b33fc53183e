// patch on MP4 and MOV of every kind: what was not asked for is the input's bytes, seen by the tests' own
// reader of boxes and samples, and by ffprobe.

#include <gtest/gtest.h>

#include <filesystem>

#include "qlnmedia/media/box_surgery.h"
#include "qlnmedia/media/carried.h"

namespace qln::test {
namespace {

namespace fs = std::filesystem;

class CarriedKinds : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(Codecs, CarriedKinds, testing::Bool(),
                         [](const auto& codec) { return codec.param ? "Hevc" : "H264"; });

// Everything at once, five times: what once gave.
TEST_P(CarriedKinds, FiveTimesGiveWhatOnceGave) {
  const bool hevc = GetParam();
  const std::string options =
      "--colour bt2020-pq --full-range --hdr p3 --light-level 1000,400 --timecode 10:00:00:00 --delimiters "
      "--recovery-points";
  for (const mp4::Variant& variant : mp4::kVariants) {
    const std::string name = variant.name;
    if (name != "plain" && name != "mov" && name != "keys" && name != "dash-global" && name != "cut" &&
        name != "time-part")
      continue;
    SCOPED_TRACE(name);
    const std::string in = mp4::Made(variant, hevc);
    EXPECT_EQ(mp4::JudgePatch(ReadFile(in), {}, mp4::Wishes::kEverything), "");
    if (name == "cut" || name == "dash-global" || name == "time-part")
      ExpectOthersSeeTheSame(in, hevc ? "hevc" : "h264");
    if (name != "keys" && name != "cut") continue;
    std::string last = OutOf(in, "time1");
    Patch(in, last, "--verify " + options);
    const Bytes once = ReadFile(last);
    EXPECT_EQ(Times(last), Times(in));
    EXPECT_EQ(Slices(last, hevc ? "hevc" : "h264"), Slices(in, hevc ? "hevc" : "h264"));
    EXPECT_EQ(OtherStreams(last), OtherStreams(in));
    EXPECT_EQ(Stream(last, "color_range,color_space,color_transfer,color_primaries"),
              "color_range=pc\ncolor_space=bt2020nc\ncolor_transfer=smpte2084\ncolor_primaries=bt2020\n");
    for (int time = 2; time <= 5; ++time) {
      const std::string next = OutOf(in, "time" + std::to_string(time));
      Patch(last, next, options);
      last = next;
    }
    EXPECT_TRUE(ReadFile(last) == once);
  }
}

// With colours there, no size changes: the bytes that differ stand in the record and in the colour box.
TEST(Carried, ColourChangesTheRecordAndTheColourBoxAlone) {
  for (const char* ending : {"mp4", "mov"}) {
    SCOPED_TRACE(ending);
    const std::string in = MediaFile(
        std::string("carried_colour.") + ending,
        "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.6 -f lavfi -i sine=d=0.6 -c:a aac -c:v "
        "libx264 "
        "-threads 1 -pix_fmt yuv420p -color_primaries 1 -color_trc 1 -colorspace 1 -color_range tv -movflags "
        "+write_colr {out}");
    const std::string out = OutOf(in);
    Patch(in, out, "--verify --colour bt2020-pq");
    const Bytes before = ReadFile(in);
    const Bytes after = ReadFile(out);
    ASSERT_EQ(after.size(), before.size());
    const BoxPath entry = {"moov", "trak", "mdia", "minf", "stbl", "stsd", "avc1"};
    const auto under = [&](const char* type) {
      BoxPath path = entry;
      path.emplace_back(type);
      const size_t at = FindBox(before, path);
      return std::pair{at, at + (size_t{before[at + 2]} << 8 | before[at + 3])};
    };
    const auto record = under("avcC");
    const auto colour = under("colr");
    size_t inRecord = 0;
    size_t inColour = 0;
    for (size_t i = 0; i < before.size(); ++i) {
      if (before[i] == after[i]) continue;
      const bool ofRecord = i >= record.first && i < record.second;
      const bool ofColour = i >= colour.first && i < colour.second;
      EXPECT_TRUE(ofRecord || ofColour) << i;
      inRecord += ofRecord ? 1 : 0;
      inColour += ofColour ? 1 : 0;
    }
    EXPECT_GT(inRecord, 0u);
    EXPECT_EQ(inColour, 3u);
  }
}

TEST(Carried, WhatNoMuxerWritesStays) {
  const BoxPath movie = {"moov"};
  const BoxPath track = {"moov", "trak"};
  const BoxPath media = {"moov", "trak", "mdia"};
  const BoxPath table = {"moov", "trak", "mdia", "minf", "stbl"};
  const BoxPath entry = {"moov", "trak", "mdia", "minf", "stbl", "stsd", "avc1"};
  struct Case {
    const char* name;
    BoxPath into;
    Bytes box;
  };
  const Bytes shape = Join({Hex("00000010"), Bytes{'p', 'a', 's', 'p'}, Hex("0000000B 0000000A")});
  const std::vector<Case> cases = {
      {"unknown_in_movie", movie, Box("abcd", mp4::Noise(33, 1))},
      {"uuid_in_movie", movie, Box("uuid", mp4::Noise(40, 2))},
      {"free_in_track", track, Box("free", mp4::Noise(21, 3))},
      {"wide_in_table", table, Box("wide", {})},
      {"extended_language", media, Box("elng", Join({Hex("00000000"), Bytes{'u', 'n', 'd', 0}}))},
      {"extended_language_de", media,
       Box("elng", Join({Hex("00000000"), Bytes{'d', 'e', '-', 'C', 'H', 0}}))},
      {"one_chapter", movie,
       Box("udta", Box("chpl", Hex("01000000 00000000 01 0000000000000000 03 6F6E65")))},
      {"groups_0", table,
       Join({Box("sgpd", Hex("00000000 726F6C6C 00000001 FFFF")),
             Box("sbgp", Hex("00000000 726F6C6C 00000001 0000000F 00000001"))})},
      {"groups_1", table,
       Join({Box("sgpd", Hex("01000000 726F6C6C 00000002 00000001 FFFF")),
             Box("sbgp", Hex("01000000 726F6C6C 00000000 00000001 0000000F 00000001"))})},
      {"groups_2", table, Box("sgpd", Hex("02000000 726F6C6C 00000001 00000001 FFFF"))},
      {"dependencies", table, Box("sdtp", Join({Hex("00000000"), mp4::Noise(15, 9)}))},
      {"another_shape", entry, shape},
      {"aperture", entry,
       Box("clap", Hex("00000080 00000001 00000060 00000001 00000000 00000001 00000000 00000001"))},
      {"profile", entry, Box("colr", Join({Bytes{'p', 'r', 'o', 'f'}, mp4::Noise(128, 4)}))},
      {"ambient", entry, Box("amve", Hex("00000000 3D13 4042"))},
      {"unknown_in_entry", entry, Box("qrst", mp4::Noise(7, 5))},
      {"reference", track, Box("tref", Box("cdsc", Hex("00000002")))},
      {"references", track, Box("tref", Join({Box("vdep", Hex("00000002")), Box("abcd", Hex("00000002"))}))},
      {"vendor_tags", movie,
       Box("meta", Join({Box("hdlr", Join({Hex("00000000 00000000"), Bytes{'m', 'd', 't', 'a'}, Bytes(13)})),
                         Box("keys", Join({Hex("00000000 00000001 00000010"), Bytes{'m', 'd', 't', 'a'},
                                           Bytes{'c', 'o', 'm', '.', 'a', '.', 'f', 'p'}})),
                         Box("ilst", Join({Hex("00000019 00000001 00000011"), Bytes{'d', 'a', 't', 'a'},
                                           Hex("00000017 00000000 F0")}))}))},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    Bytes file = ClipBytes();
    AppendToBox(file, test.into, test.box);
    const std::string in = MediaPath("carried_with_" + std::string(test.name) + ".mp4");
    WriteFile(in, file);
    ExpectOnlyPicturesChange(in);
    // What is asked of the container goes in beside.
    Bytes after;
    EXPECT_EQ(mp4::JudgePatch(file, {}, mp4::Wishes::kEverything, &after), "");
    EXPECT_NE(std::search(after.begin(), after.end(), test.box.begin(), test.box.end()), after.end());
  }
}

TEST(Carried, BoxesBetweenAndBehindTheOthersStay) {
  const Bytes clip = ClipBytes();
  const size_t data = FindBox(clip, {"mdat"});
  // Behind the media data, so that no place in the file is another.
  const size_t end = FindBox(clip, {"moov"});
  ASSERT_LT(data, end);
  for (const Bytes& extra : {Box("free", Bytes(50, 7)), Box("uuid", mp4::Noise(60, 6)), Box("skip", {}),
                             Box("abcd", mp4::Noise(9, 1))}) {
    for (const bool behindAll : {false, true}) {
      Bytes file = clip;
      file.insert(behindAll ? file.end() : file.begin() + static_cast<std::ptrdiff_t>(end), extra.begin(),
                  extra.end());
      const std::string in = MediaPath("carried_extra.mp4");
      WriteFile(in, file);
      ExpectOnlyPicturesChange(in);
    }
  }
}

// Sound that the muxer of old did not know, tracks of text and of data, a timecode that changes.
TEST(Carried, OtherTracksOfEveryKindStay) {
  const std::string clip = MediaPath("carried_clip_of_tracks.mp4");
  WriteFile(clip, ClipBytes());
  const std::pair<const char*, const char*> kinds[] = {
      {"pcm.mov", "-c:v copy -c:a pcm_s24le"},
      {"floats.mov", "-c:v copy -c:a pcm_f32be"},
      {"alac.mp4", "-c:v copy -c:a alac"},
      {"ac3.mp4", "-c:v copy -c:a ac3"},
      {"two.mp4", "-map 0 -map 0:a -c copy"},
      {"pictures.mov", "-map 0:v -map 0:v -c:v:0 copy -c:v:1 mjpeg"},
      {"prores.mov", "-map 0:v -map 0:v -c:v:0 copy -c:v:1 prores_ks"},
  };
  for (const auto& [name, options] : kinds) {
    SCOPED_TRACE(name);
    ExpectOnlyPicturesChange(MediaFile("carried_" + std::string(name),
                                       "ffmpeg -v error -y -i '" + clip + "' " + options + " {out}"));
  }
  // A data track of a type that nobody knows: the sound track under another name.
  Bytes data = ClipBytes();
  const std::string sound = "mp4a";
  const auto format = std::search(data.begin(), data.end(), sound.begin(), sound.end());
  ASSERT_NE(format, data.end());
  const std::string unknown = "mebx";
  std::copy(unknown.begin(), unknown.end(), format);
  const std::string kind = "soun";
  const auto handler = std::search(data.begin(), data.end(), kind.begin(), kind.end());
  ASSERT_NE(handler, data.end());
  const std::string meta = "meta";
  std::copy(meta.begin(), meta.end(), handler);
  const std::string in = MediaPath("carried_mebx.mp4");
  WriteFile(in, data);
  ExpectOnlyPicturesChange(in);
  ExpectOthersSeeTheSame(in, "h264");
}

}  // namespace
}  // namespace qln::test
