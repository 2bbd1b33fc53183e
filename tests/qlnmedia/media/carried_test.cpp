// patch on MP4 and MOV of every kind: what was not asked for is the input's bytes, seen by the tests' own
// reader of boxes and samples, and by ffprobe.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "mp4/list_file.h"
#include "mp4/muxed_kinds.h"
#include "qlnmedia/media/box_surgery.h"
#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/media/remake.h"
#include "qlnmedia/program.h"

namespace qln::test {
namespace {

namespace fs = std::filesystem;
using mp4::ListFile;
using mp4::Listing;
using testing::HasSubstr;

std::string OutOf(const std::string& in, const std::string& name = "carried") {
  return MediaPath(name + "_" + fs::path(in).filename().string());
}

void Patch(const std::string& in, const std::string& out, const std::string& options) {
  fs::remove(out);
  const CommandResult patch = Qlnmedia("patch '" + in + "' '" + out + "' " + options);
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
}

// Of the first video track, by an independent reader.
uint32_t VideoTrack(const std::string& file) {
  const std::string id = Text("ffprobe -v error -select_streams v:0 -show_entries stream=id -of csv=p=0 '" +
                              file + "' | head -1 | cut -d, -f1");
  return static_cast<uint32_t>(std::stoul(id, nullptr, 0));
}

std::vector<Bytes> SamplesOf(const Bytes& file, uint32_t track = 1) {
  const Listing listing = ListFile(file);
  std::vector<Bytes> samples;
  for (const mp4::ListedSample& sample : listing.samples.at(track)) samples.push_back(sample.data);
  return samples;
}

// What is not as it was but for the samples of a track; empty where all is well.
std::string Changed(const std::string& in, const std::string& out, uint32_t track) {
  const Bytes after = ReadFile(out);
  return mp4::Compare(ReadFile(in), after, track, SamplesOf(after, track));
}

// Delimiters go into the pictures, and all else is as it was, byte for byte. An empty codec where there are
// pictures of several.
void ExpectOnlyPicturesChange(const std::string& in, const std::string& codec) {
  const std::string out = OutOf(in);
  const uint32_t track = VideoTrack(in);
  Patch(in, out, "--verify --delimiters --light-level 1000,400 --hdr p3 --dry-run");
  EXPECT_FALSE(fs::exists(out));
  Patch(in, out, "--verify --delimiters");
  EXPECT_EQ(Changed(in, out, track), "");
  if (!codec.empty()) {
    EXPECT_EQ(Slices(out, codec), Slices(in, codec));
  }
  EXPECT_EQ(mp4::Shown(out), mp4::Shown(in));
  // Nothing more to do is the same bytes.
  const std::string again = OutOf(in, "again");
  Patch(out, again, "--verify --delimiters");
  EXPECT_TRUE(ReadFile(again) == ReadFile(out));
  fs::remove(out);
  fs::remove(again);
}

class CarriedKinds : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(Codecs, CarriedKinds, testing::Bool(),
                         [](const auto& codec) { return codec.param ? "Hevc" : "H264"; });

TEST_P(CarriedKinds, OfEveryOptionOfTheMuxer) {
  const bool hevc = GetParam();
  for (const mp4::Variant& variant : mp4::kVariants) {
    const std::string name = variant.name;
    if (hevc && (name == "3gp" || name == "psp" || name == "smooth")) continue;
    SCOPED_TRACE(name);
    ExpectOnlyPicturesChange(mp4::Made(variant, hevc), hevc ? "hevc" : "h264");
  }
}

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

// A clip whose index stands behind the media data, so that boxes can be put into it.
Bytes ClipBytes() {
  return ReadFile(
      MediaFile("carried_clip.mp4",
                "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.6 -f lavfi -i sine=d=0.6 "
                "-c:a aac -c:v libx264 -threads 1 -pix_fmt yuv420p -g 8 {out}"));
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
    ExpectOnlyPicturesChange(in, "h264");
    // What is asked of the container goes in beside.
    const std::string out = OutOf(in);
    Patch(in, out, "--verify --colour bt2020-pq --light-level 1000,400");
    const Bytes after = ReadFile(out);
    EXPECT_NE(std::search(after.begin(), after.end(), test.box.begin(), test.box.end()), after.end());
    EXPECT_EQ(Stream(out, "color_transfer"), "color_transfer=smpte2084\n");
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
      ExpectOnlyPicturesChange(in, "h264");
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
    ExpectOnlyPicturesChange(
        MediaFile("carried_" + std::string(name),
                  "ffmpeg -v error -y -i '" + clip + "' " + options + " {out}"),
        std::string(options).find("-map 0:v -map 0:v") == std::string::npos ? "h264" : "");
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
  ExpectOnlyPicturesChange(in, "h264");
}

// Two recordings with sets of their own in one track, joined by hand: bytes of samples, and record of each.
struct Recording {
  std::vector<Bytes> samples;
  Bytes record;  // the box
};

Recording Taken(const std::string& file) {
  const Bytes bytes = ReadFile(file);
  const size_t at = FindBox(bytes, {"moov", "trak", "mdia", "minf", "stbl", "stsd", "avc1", "avcC"});
  Recording out;
  out.record.assign(
      bytes.begin() + static_cast<std::ptrdiff_t>(at),
      bytes.begin() + static_cast<std::ptrdiff_t>(at + (size_t{bytes[at + 2]} << 8 | bytes[at + 3])));
  out.samples = SamplesOf(bytes);
  return out;
}

std::string Encoded(const std::string& name, const std::string& options) {
  return MediaFile(
      "carried_" + name + ".mp4",
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.4 -c:v libx264 -threads 1 -pix_fmt "
      "yuv420p -bf 0 " +
          options + " {out}");
}

std::string JoinedTrack(const std::string& name, const Recording& one, const Recording& two) {
  mp4::TrackSpec track;
  track.samples = one.samples;
  track.samples.insert(track.samples.end(), two.samples.begin(), two.samples.end());
  // The second comes in two parts, with one of the first between them.
  track.samples.insert(track.samples.end(), one.samples.begin(), one.samples.end());
  track.chunks = {one.samples.size(), two.samples.size(), one.samples.size()};
  track.descriptionOfChunk = {1, 2, 1};
  track.descriptions = 2;
  track.entryBoxesOf = {one.record, two.record};
  track.durations.assign(track.samples.size(), 40);
  track.sync = {1, static_cast<uint32_t>(one.samples.size() + 1),
                static_cast<uint32_t>(one.samples.size() + two.samples.size() + 1)};
  const std::string path = MediaPath("carried_joined_" + name + ".mp4");
  WriteFile(path, mp4::BuildMovie({.tracks = {track}}));
  return path;
}

TEST(Carried, EverySampleDescriptionIsPatchedAndPicturesGoOnCounting) {
  const std::string first = Encoded("first", "-x264-params keyint=5:ref=1");
  const std::string second = Encoded("second", "-x264-params keyint=5:cabac=0:ref=3:8x8dct=0");
  const std::string narrow = MediaPath("carried_narrow.mp4");
  Remake narrower;
  narrower.lengthBytes = 2;
  RemakeFile(second, narrow, narrower);
  const Recording one = Taken(first);
  const std::string patchedFirst = OutOf(first);
  Patch(first, patchedFirst, "--colour bt2020-pq");
  for (const std::string& other : {second, narrow}) {
    SCOPED_TRACE(other);
    const Recording two = Taken(other);
    ASSERT_NE(one.record, two.record);
    const std::string in = JoinedTrack(fs::path(other).stem(), one, two);
    const std::string out = OutOf(in);
    // Each record becomes what it becomes alone, and no sample changes.
    Patch(in, out, "--verify --colour bt2020-pq");
    const std::string patchedOther = OutOf(other);
    Patch(other, patchedOther, "--colour bt2020-pq");
    const Bytes bytes = ReadFile(out);
    for (const std::string& alone : {patchedFirst, patchedOther}) {
      const Bytes record = Taken(alone).record;
      EXPECT_NE(std::search(bytes.begin(), bytes.end(), record.begin(), record.end()), bytes.end()) << alone;
    }
    std::vector<Bytes> before = one.samples;
    before.insert(before.end(), two.samples.begin(), two.samples.end());
    before.insert(before.end(), one.samples.begin(), one.samples.end());
    EXPECT_EQ(SamplesOf(bytes), before);
    // Timecodes go through.
    Patch(in, out, "--verify --timecode 01:00:00:00 --delimiters");
    EXPECT_EQ(Decoded(out), Decoded(in));
    const std::string timecodes = Timecodes(out);
    // Readers that know one description only complain in between.
    size_t count = 0;
    for (size_t at = 0; (at = timecodes.find("01:00:0", at)) != std::string::npos; ++at) ++count;
    EXPECT_EQ(count, before.size());
    EXPECT_THAT(timecodes, HasSubstr("01:00:00:00\n"));
    EXPECT_THAT(timecodes, HasSubstr("01:00:00:24\n01:00:01:00\n01:00:01:01\n"));
    // No borrowed set stays in a sample: the first one behind the change begins with delimiter and SEI.
    const Bytes changed = SamplesOf(ReadFile(out)).at(one.samples.size());
    const size_t length = other == narrow ? 2 : 4;
    EXPECT_EQ(changed.at(length) & 31, 9);
    const size_t next = length + (size_t{changed.at(length - 2)} << 8 | changed.at(length - 1));
    EXPECT_EQ(changed.at(next + length) & 31, 6);
  }
}

TEST(Carried, EncryptedTracksTakeWhatIsClear) {
  const std::string in = MediaFile(
      "carried_encrypted.mp4",
      "ffmpeg -v error -y -i " + mp4::Coded(false) +
          " -map 0 -c copy -fflags +bitexact -encryption_scheme cenc-aes-ctr -encryption_key "
          "00112233445566778899aabbccddeeff -encryption_kid 00112233445566778899aabbccddeeff {out}");
  const std::string out = OutOf(in);
  Patch(in, out, "--verify --colour bt2020-pq --full-range");
  const Listing before = ListFile(ReadFile(in));
  const Listing after = ListFile(ReadFile(out));
  for (const auto& [track, samples] : before.samples) {
    for (size_t i = 0; i < samples.size(); ++i)
      EXPECT_EQ(samples[i].data, after.samples.at(track).at(i).data);
  }
  EXPECT_THAT(Qlnmedia("inspect --json '" + out + "'").output, HasSubstr("\"transfer\": 16"));
  fs::remove(out);
  for (const char* options : {"--timecode 01:00:00:00", "--delimiters", "--hdr p3", "--recovery-points"}) {
    const CommandResult patch = Qlnmedia("patch '" + in + "' '" + out + "' " + options);
    EXPECT_EQ(patch.exitCode, 1);
    EXPECT_THAT(patch.output,
                HasSubstr("stream 0: is encrypted, and what is asked for changes its pictures"));
    EXPECT_FALSE(fs::exists(out));
  }
}

TEST(Carried, PlacesThatLieAreRefusedWithThePlaceWhereTheyMatter) {
  Bytes file = ClipBytes();
  const size_t video = FindBox(file, {"moov", "trak", "mdia", "minf", "stbl", "stco"});
  const std::string in = MediaPath("carried_lying.mp4");
  const std::string out = OutOf(in);
  fs::remove(out);
  // The last chunk's place.
  const size_t chunks = size_t{file[video + 14]} << 8 | file[video + 15];
  Bytes lying = file;
  lying[video + 16 + 4 * (chunks - 1)] = 0x7F;
  WriteFile(in, lying);
  const CommandResult patch = Qlnmedia("patch '" + in + "' '" + out + "' --delimiters");
  EXPECT_EQ(patch.exitCode, 1);
  EXPECT_THAT(patch.output, HasSubstr("is outside the file"));
  EXPECT_THAT(patch.output, HasSubstr("of track 1"));
  EXPECT_FALSE(fs::exists(out));
}

TEST(Carried, InitializationSegmentsAndSegmentsJoined) {
  for (const bool hevc : {false, true}) {
    for (const std::string kind : {"hls", "dash"}) {
      SCOPED_TRACE(kind);
      const std::string folder = MediaPath("carried_" + kind + (hevc ? "_265" : "_264"));
      fs::remove_all(folder);
      fs::create_directories(folder);
      test::Run("ffmpeg -v error -y -i " + mp4::Coded(hevc) + " -map 0:v -c copy " +
                (kind == "hls"
                     ? "-f hls -hls_segment_type fmp4 -hls_time 0.4 -hls_fmp4_init_filename init.mp4 "
                       "-hls_segment_filename " +
                           folder + "/part%02d.m4s " + folder + "/list.m3u8"
                     : "-f dash -seg_duration 0.4 -init_seg_name init.mp4 -media_seg_name "
                       "'part$Number%02d$.m4s' " +
                           folder + "/list.mpd"));
      std::vector<Bytes> parts;
      for (int i = 0; i < 5; ++i) {
        const std::string part = folder + "/part0" + std::to_string(i) + ".m4s";
        if (fs::exists(part)) parts.push_back(ReadFile(part));
      }
      ASSERT_GE(parts.size(), 2u);
      const Bytes segments = mp4::Joined(parts);
      const Bytes init = ReadFile(folder + "/init.mp4");
      // Joined.
      const std::string in = MediaPath("carried_joined_" + kind + (hevc ? "_265.mp4" : "_264.mp4"));
      WriteFile(in, Join({init, segments}));
      ExpectOnlyPicturesChange(in, hevc ? "hevc" : "h264");
      // The initialization segment alone: times, edits, defaults and shape stay.
      const std::string first = folder + "/init.mp4";
      const std::string out = folder + "/init_out.mp4";
      Patch(first, out, "--verify --colour bt2020-pq");
      const std::string joined = MediaPath("carried_rejoined.mp4");
      WriteFile(joined, Join({ReadFile(out), segments}));
      EXPECT_EQ(Times(joined), Times(in));
      EXPECT_EQ(Decoded(joined), Decoded(in));
      EXPECT_EQ(Stream(joined, "color_transfer"), "color_transfer=smpte2084\n");
      const Listing before = ListFile(init);
      const Listing after = ListFile(ReadFile(out));
      std::string types;
      for (const mp4::Node& box : after.boxes) {
        if (box.type != "colr") types += box.path + "\n";
      }
      std::string were;
      for (const mp4::Node& box : before.boxes) {
        if (box.type != "colr") were += box.path + "\n";
      }
      EXPECT_EQ(types, were);
      fs::remove_all(folder);
    }
  }
}

}  // namespace
}  // namespace qln::test
