// Files as ffmpeg's muxer writes them, with samples that grow and shrink: all that ffprobe shows is as it
// was, but for sizes and places.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "container/mp4/output_file.h"
#include "mp4/carry.h"
#include "mp4/list_file.h"
#include "mp4/muxed_kinds.h"
#include "mp4/patch_by_engine.h"
#include "support/media.h"
#include "support/test_support.h"

namespace qln::test::mp4 {
namespace {

using namespace qlnmedia::mp4;

// A unit of filler behind every sample but a few: pictures stay what they are.
FunctionEditor::Function AddFiller(bool hevc) {
  return [hevc](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
    if (sample.number % 5 == 3) return std::nullopt;
    const size_t count = 1 + sample.number * 7919 % 90;
    Bytes unit = hevc ? Bytes{0x4C, 0x01} : Bytes{0x0C};
    unit.insert(unit.end(), count, 0xFF);
    unit.push_back(0x80);
    return Joined({bytes, Number(unit.size(), 4), unit});
  };
}

FunctionEditor::Function TakeFiller(bool hevc) {
  return [hevc](const Sample&, const Bytes& bytes) -> std::optional<Bytes> {
    size_t at = 0;
    size_t last = 0;
    for (; at + 5 <= bytes.size(); at += 4 + (size_t{bytes[at]} << 24 | size_t{bytes[at + 1]} << 16 |
                                              size_t{bytes[at + 2]} << 8 | bytes[at + 3]))
      last = at;
    const uint8_t head = bytes.at(last + 4);
    const bool filler = hevc ? head == 0x4C : head == 0x0C;
    if (!filler) return std::nullopt;
    return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(last));
  };
}

uint32_t VideoTrack(const Layout& layout) {
  for (const Movie& movie : layout.movies) {
    for (const Track& track : movie.tracks) {
      if (track.video() && track.timescale != 0) return track.id;
    }
  }
  return 1;
}

struct Outcome {
  std::vector<Bytes> samples;
  uint32_t track = 1;
};

Outcome CarryFile(const std::string& in, const std::string& out, const FunctionEditor::Function& function) {
  const FileSource source(in);
  Carrier carrier(source);
  Outcome outcome;
  outcome.track = VideoTrack(carrier.layout());
  FunctionEditor editor(function, 3);
  Change change;
  change.tracks.push_back({.trackId = outcome.track, .samples = &editor});
  carrier.Prepare(change);
  CarryToFile(carrier, out);
  outcome.samples = editor.result;
  return outcome;
}

// `others`: whether ffprobe is asked as well, which takes most of the time.
void ExpectCarried(const std::string& path, bool hevc, bool others = true) {
  const std::string grown = MediaPath("mp4-grown-" + std::filesystem::path(path).filename().string());
  const std::string back = MediaPath("mp4-back-" + std::filesystem::path(path).filename().string());
  const Bytes input = ReadFile(path);
  const Outcome outcome = CarryFile(path, grown, AddFiller(hevc));
  const Bytes output = ReadFile(grown);
  EXPECT_GT(output.size(), input.size());
  EXPECT_EQ(Compare(input, output, outcome.track, outcome.samples), "");
  if (others) {
    EXPECT_EQ(Shown(path), Shown(grown));
  }
  // Shrunk again it is the input. Rates that were raised are still true and stay.
  std::vector<Bytes> original;
  const Listing listing = ListFile(input);
  for (const ListedSample& sample : listing.samples.at(outcome.track)) original.push_back(sample.data);
  CarryFile(grown, back, TakeFiller(hevc));
  const Bytes again = ReadFile(back);
  EXPECT_EQ(Compare(input, again, outcome.track, original), "");
  // A run of a fragment that had one size for all may have got a size for each.
  const auto counts = listing.count();
  EXPECT_GE(again.size(), input.size());
  if (counts.count("moof") == 0) {
    EXPECT_EQ(again.size(), input.size());
  }
  if (counts.count("btrt") == 0 && again.size() == input.size()) {
    EXPECT_TRUE(again == input);
  }
  std::filesystem::remove(grown);
  std::filesystem::remove(back);
}

class MuxedFiles : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(Codecs, MuxedFiles, testing::Bool(),
                         [](const auto& codec) { return codec.param ? "Hevc" : "H264"; });

TEST_P(MuxedFiles, EveryOptionOfTheMuxer) {
  const bool hevc = GetParam();
  int files = 0;
  for (const Variant& variant : kVariants) {
    const std::string name = variant.name;
    if (hevc && (name == "3gp" || name == "psp" || name == "smooth")) continue;
    SCOPED_TRACE(name);
    const std::string path = Made(variant, hevc);
    ExpectCarried(path, hevc, files % 4 == 0);
    // scripts/matrix_mp4.sh has these judged by others as well.
    EXPECT_EQ(JudgePatch(ReadFile(path), {}, files % 2 == 0 ? Wishes::kDelimiters : Wishes::kEverything), "");
    EXPECT_EQ(JudgeBoxStreams(ReadFile(path)), "");
    if (files % 3 == 0) {
      EXPECT_EQ(JudgeInPlace(ReadFile(path)), "");
    }
    ++files;
  }
  EXPECT_GE(files, 35);
}

TEST_P(MuxedFiles, CoversChaptersAndSubtitles) {
  const bool hevc = GetParam();
  const std::string kind = hevc ? "265" : "264";
  const std::string texts = MediaPath("mp4-texts-" + kind + ".srt");
  std::ofstream(texts) << "1\n00:00:00,200 --> 00:00:00,600\none\n\n2\n00:00:00,800 --> 00:00:01,200\ntwo\n";
  const std::string chapters = MediaPath("mp4-chapters-" + kind + ".txt");
  std::ofstream(chapters)
      << ";FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=700\ntitle=a\n[CHAPTER]\nTIMEBASE=1/"
         "1000\nSTART=700\nEND=1500\ntitle=b\n";
  for (const std::string suffix : {"mp4", "mov"}) {
    for (const std::string options : {"", "-movflags +faststart", "-movflags +frag_keyframe"}) {
      SCOPED_TRACE(suffix + options);
      const std::string cover = suffix == "mp4" && options.find("frag") == std::string::npos
                                    ? " -f lavfi -i color=s=32x32:d=0.04 -map 3:v -c:v:1 mjpeg -pix_fmt:v:1 "
                                      "yuvj420p -disposition:v:1 attached_pic"
                                    : "";
      const size_t map = cover.find(" -map");
      const std::string input = cover.substr(0, map == std::string::npos ? 0 : map);
      const std::string path =
          MediaFile("mp4-rich-" + kind + std::to_string(options.size()) + "." + suffix,
                    "ffmpeg -v error -y -i " + Coded(hevc) + " -i " + texts + " -i " + chapters + input +
                        " -map 0 -map 1 -map_chapters 2 -c copy -c:s mov_text " +
                        (map == std::string::npos ? "" : cover.substr(map)) +
                        " -fflags +bitexact -timecode 10:00:00:00 " + options + " {out}");
      ExpectCarried(path, hevc);
    }
  }
}

// Segments alone, each with its initialization segment; joined they show what the input's show joined.
TEST_P(MuxedFiles, SegmentsWithTheirInitialization) {
  const bool hevc = GetParam();
  for (const std::string kind : {"hls", "dash"}) {
    SCOPED_TRACE(kind);
    const std::string folder = MediaPath("mp4-segments-" + kind + (hevc ? "-265" : "-264"));
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    const std::string command = kind == "hls"
                                    ? "ffmpeg -v error -y -i " + Coded(hevc) +
                                          " -map 0:v -c copy -f hls -hls_segment_type fmp4 -hls_time 0.4 "
                                          "-hls_fmp4_init_filename init.mp4 -hls_segment_filename " +
                                          folder + "/part%02d.m4s " + folder + "/list.m3u8"
                                    : "ffmpeg -v error -y -i " + Coded(hevc) +
                                          " -map 0:v -c copy -f dash -seg_duration 0.4 -init_seg_name "
                                          "init.mp4 -media_seg_name 'part$Number%02d$.m4s' " +
                                          folder + "/list.mpd";
    ASSERT_EQ(test::Run(command).exitCode, 0);
    const Bytes init = ReadFile(folder + "/init.mp4");
    Bytes joinedIn = init;
    Bytes joinedOut = init;
    std::vector<std::string> parts;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (entry.path().extension() == ".m4s") parts.push_back(entry.path().string());
    }
    std::sort(parts.begin(), parts.end());
    ASSERT_GE(parts.size(), 2u);
    for (const std::string& part : parts) {
      const Bytes segment = ReadFile(part);
      FunctionEditor editor(AddFiller(hevc), 2);
      const Bytes output = CarrySamples(segment, 1, editor, init).output;
      EXPECT_FALSE(editor.seen.empty());
      EXPECT_EQ(Compare(segment, output, 1, editor.result, init), "");
      FunctionEditor shrink(TakeFiller(hevc));
      EXPECT_EQ(CarrySamples(output, 1, shrink, init).output, segment);
      joinedIn = Joined({joinedIn, segment});
      joinedOut = Joined({joinedOut, output});
    }
    WriteFile(folder + "/in.mp4", joinedIn);
    WriteFile(folder + "/out.mp4", joinedOut);
    EXPECT_EQ(Shown(folder + "/in.mp4"), Shown(folder + "/out.mp4"));
    ExpectCarried(folder + "/in.mp4", hevc);
    std::filesystem::remove_all(folder);
  }
}

TEST_P(MuxedFiles, EncryptedSamplesAreRefused) {
  const bool hevc = GetParam();
  const std::string path = MediaFile(
      std::string("mp4-encrypted") + (hevc ? "-265.mp4" : "-264.mp4"),
      "ffmpeg -v error -y -i " + Coded(hevc) +
          " -map 0 -c copy -fflags +bitexact -encryption_scheme cenc-aes-ctr -encryption_key "
          "00112233445566778899aabbccddeeff -encryption_kid 00112233445566778899aabbccddeeff {out}");
  const std::string out = MediaPath("mp4-encrypted-out.mp4");
  EXPECT_THAT(Refusal([&] { CarryFile(path, out, AddFiller(hevc)); }), testing::HasSubstr("encrypted"));
  EXPECT_FALSE(std::filesystem::exists(out));
  CarryFile(path, out, [](const Sample&, const Bytes&) { return std::nullopt; });
  EXPECT_EQ(ReadFile(out), ReadFile(path));
  // Its container facts are clear.
  const FileSource source(path);
  Carrier carrier(source);
  Change change;
  change.tracks.push_back({.trackId = 1});
  change.tracks[0].facts.pixelShape = {4, 3};
  carrier.Prepare(change);
  CarryToFile(carrier, out);
  EXPECT_EQ(Shown(path),
            Replaced(Replaced(Shown(out), "sample_aspect_ratio=\"4:3\"", "sample_aspect_ratio=\"1:1\""),
                     "display_aspect_ratio=\"4:3\"", "display_aspect_ratio=\"1:1\""));
  std::filesystem::remove(out);
}

// Tracks that tell a server how to send the samples name parts of them.
TEST(HintTracks, ChangesOfWhatTheySendAreRefused) {
  const std::string path = MediaFile(
      "mp4-hinted.mp4", "ffmpeg -v error -y -i " + Coded(false) + " -map 0 -c copy -movflags +rtphint {out}");
  const std::string out = MediaPath("mp4-hinted-out.mp4");
  EXPECT_THAT(Refusal([&] { CarryFile(path, out, AddFiller(false)); }), testing::HasSubstr("hint"));
  // What stands outside of samples changes beside them.
  EXPECT_EQ(JudgeInPlace(ReadFile(path)), "");
}

}  // namespace
}  // namespace qln::test::mp4
