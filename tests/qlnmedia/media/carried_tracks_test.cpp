// patch on tracks that ask for more than their pictures: several sample descriptions, encryption, places that
// lie, and segments.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "qlnmedia/media/box_surgery.h"
#include "qlnmedia/media/carried.h"
#include "qlnmedia/media/remake.h"

namespace qln::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

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
      ExpectOnlyPicturesChange(in);
      if (kind == "hls") ExpectOthersSeeTheSame(in, hevc ? "hevc" : "h264");
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
