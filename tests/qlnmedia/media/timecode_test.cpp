// Timecodes end to end: an independent reader sees what went in, in presentation order, and nothing else has
// changed.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "qlnmedia/media/field_mux.h"
#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/program.h"
#include "support/media.h"

namespace qln::test {
namespace {

using testing::HasSubstr;

struct Kind {
  const char* name;
  const char* codec;  // h264 or hevc
  const char* options;
  int picturesPerFrame = 1;
};

const Kind kKinds[] = {
    {"avc8", "h264", "-c:v libx264 -threads 1 -pix_fmt yuv420p -g 8"},
    {"avc8_slices", "h264",
     "-c:v libx264 -threads 1 -pix_fmt yuv420p -x264-params slices=3:bframes=0:keyint=6"},
    {"avc8_mbaff", "h264",
     "-c:v libx264 -threads 1 -pix_fmt yuv420p -flags +ilme+ildct -x264-params tff=1:keyint=8"},
    {"avc8_open", "h264",
     "-c:v libx264 -threads 1 -pix_fmt yuv420p -x264-params open-gop=1:keyint=6:bframes=3:b-pyramid=normal"},
    {"avc8_hrd", "h264",
     "-c:v libx264 -threads 1 -pix_fmt yuv420p -x264-params nal-hrd=vbr:keyint=8 -b:v 200k -maxrate 200k "
     "-bufsize 400k"},
    {"avc10", "h264", "-c:v libx264 -threads 1 -pix_fmt yuv420p10le -x264-params keyint=8:aud=1"},
    {"avc10_mbaff", "h264",
     "-c:v libx264 -threads 1 -pix_fmt yuv420p10le -flags +ilme+ildct -x264-params bff=1:keyint=8"},
    {"hevc8", "hevc",
     "-c:v libx265 -pix_fmt yuv420p -x265-params keyint=8:pools=1:frame-threads=1:log-level=none"},
    {"hevc8_fields", "hevc",
     "-c:v libx265 -pix_fmt yuv420p -x265-params "
     "interlace=tff:keyint=8:pools=1:frame-threads=1:log-level=none",
     2},
    {"hevc8_layers", "hevc",
     "-c:v libx265 -pix_fmt yuv420p -x265-params "
     "temporal-layers=1:b-adapt=0:bframes=3:keyint=8:pools=1:frame-threads=1:log-level=none"},
    {"hevc10_open", "hevc",
     "-c:v libx265 -pix_fmt yuv420p10le -x265-params "
     "keyint=6:min-keyint=6:open-gop=1:repeat-headers=1:aud=1:hrd=1:vbv-bufsize=400:vbv-maxrate=200:bitrate="
     "150:"
     "pools=1:frame-threads=1:log-level=none"},
    {"hevc10_fields", "hevc",
     "-c:v libx265 -pix_fmt yuv420p10le -x265-params "
     "interlace=bff:keyint=6:min-keyint=6:open-gop=1:pools=1:frame-threads=1:log-level=none",
     2},
};

const char* const kContainers[] = {"mp4", "mov", "mkv", "ts", "raw"};

// 15 frames of 25 a second.
std::string Source(const Kind& kind, const std::string& container) {
  const bool raw = container == "raw";
  const std::string extension = raw ? kind.codec : container;
  return MediaFile(
      std::string("timecode_") + kind.name + "." + extension,
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=" + std::to_string(25 * kind.picturesPerFrame) +
          ":d=0.6 " + (raw ? "" : "-f lavfi -i sine=d=0.6 -c:a aac -b:a 32k ") + kind.options + " {out}");
}

std::string Patched(const std::string& name) { return MediaPath("timecoded_" + name); }

// "HH:MM:SS:FF" of each of `count` frames from 09:59:59:20 on, at 25 frames a second.
std::string FramesFromBeforeTen(int count) {
  std::string lines;
  for (int frame = 20; frame < 20 + count; ++frame) {
    char line[32];
    std::snprintf(line, sizeof line, "%s:%02d:%02d\n", frame < 25 ? "09:59" : "10:00",
                  frame < 25 ? 59 : (frame - 25) / 25, frame % 25);
    lines += line;
  }
  return lines;
}

// What an independent reader of every header has to say against a file, but for where in memory it stood.
std::string TraceComplaints(const std::string& file) {
  return Text(
      "ffmpeg -v warning -i '" + file +
      "' -map 0:v -c copy -bsf:v trace_headers -f null - 2>&1 | grep -iE 'invalid|failed|error' | sed "
      "'s/0x[0-9a-f]*//g' || true");
}

// Patches 09:59:59:20 in, holds the result against its source, and patches it once more.
void ExpectTimecodes(const std::string& in, const std::string& out, const std::string& again, int frames,
                     const std::string& options = {}) {
  const std::string asked = " --timecode 09:59:59:20" + options;
  const CommandResult patch = Qlnmedia("patch --verify '" + in + "' '" + out + "'" + asked);
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  EXPECT_THAT(patch.output, HasSubstr("verified"));
  EXPECT_EQ(Decoded(out), Decoded(in));
  EXPECT_EQ(Timecodes(out), FramesFromBeforeTen(frames));
  EXPECT_EQ(TraceComplaints(out), TraceComplaints(in));
  ASSERT_EQ(Qlnmedia("patch '" + out + "' '" + again + "'" + asked).exitCode, 0);
  EXPECT_EQ(ReadFile(out), ReadFile(again));
}

class TimecodeEverywhere : public testing::TestWithParam<std::tuple<Kind, const char*>> {};

TEST_P(TimecodeEverywhere, EveryPictureGetsItsOwnInPresentationOrder) {
  const auto& [kind, container] = GetParam();
  const std::string in = Source(kind, container);
  const std::string extension = std::string(container) == "raw" ? kind.codec : container;
  const std::string out = Patched(std::string(kind.name) + "." + extension);
  ExpectTimecodes(in, out, Patched(std::string(kind.name) + "_again." + extension), 15);
  EXPECT_EQ(Slices(out, kind.codec), Slices(in, kind.codec));
  if (std::string(container) != "raw") {
    EXPECT_EQ(Times(out), Times(in));
    EXPECT_EQ(OtherStreams(out), OtherStreams(in));
  }
}

std::vector<std::tuple<Kind, const char*>> Cases() {
  std::vector<std::tuple<Kind, const char*>> cases;
  for (const Kind& kind : kKinds) {
    for (const char* container : kContainers) cases.emplace_back(kind, container);
  }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(All, TimecodeEverywhere, testing::ValuesIn(Cases()), [](const auto& test) {
  return std::string(std::get<0>(test.param).name) + "_" + std::get<1>(test.param);
});

// The picture timing messages of a file in coding order: pic_struct, and each clock that is there.
std::vector<std::string> PictureTimings(const std::string& file) {
  std::vector<std::string> timings;
  for (const TracedUnit& unit : TraceHeaders(file)) {
    if (!unit.has("pic_struct")) continue;
    std::string text = std::to_string(unit.value("pic_struct"));
    for (int i = 0; i < 3; ++i) {
      const std::string index = "[" + std::to_string(i) + "]";
      if (unit.value("clock_timestamp_flag" + index, 0) != 1) continue;
      char clock[48];
      std::snprintf(clock, sizeof clock, " %02d:%02d:%02d:%02d", static_cast<int>(unit.value("hours_value")),
                    static_cast<int>(unit.value("minutes_value")),
                    static_cast<int>(unit.value("seconds_value")), static_cast<int>(unit.value("n_frames")));
      text += clock;
    }
    timings.push_back(text);
  }
  return timings;
}

// What each coded picture must say.
std::vector<std::string> ExpectedTimings(const std::vector<CodedFrame>& frames) {
  std::vector<std::string> timings;
  size_t first = 0;
  for (size_t i = 0; i < frames.size(); ++i) {
    const CodedFrame& frame = frames[i];
    if (frame.idr) first = i;
    const int number = 20 + static_cast<int>(first) + frame.place;
    char clock[48];
    std::snprintf(clock, sizeof clock, " %02d:%02d:%02d:%02d", number < 25 ? 9 : 10, number < 25 ? 59 : 0,
                  number < 25 ? 59 : number / 25 - 1, number % 25);
    if (!frame.fields) {
      timings.push_back((frame.bottomFirst ? "4" : "3") + std::string(clock));
      continue;
    }
    timings.push_back((frame.bottomFirst ? "2" : "1") + std::string(clock));
    timings.push_back((frame.bottomFirst ? "1" : "2") + std::string(clock));
  }
  return timings;
}

class TimecodeOfFields : public testing::TestWithParam<std::tuple<const char*, bool>> {};

TEST_P(TimecodeOfFields, BothFieldsGetTheirFrames) {
  const auto& [container, bothInOnePacket] = GetParam();
  const bool raw = std::string(container) == "h264";
  const std::string stem = std::string("fields") + (bothInOnePacket ? "2." : "1.") + container;
  for (const bool bottomFirst : {false, true}) {
    const std::vector<CodedFrame> frames = FieldGroups(3, bottomFirst);
    for (const FieldStreamOptions& options :
         {FieldStreamOptions{},
          FieldStreamOptions{.pocType = 1, .pictureTiming = true, .delimiters = true}}) {
      const std::string in = MediaPath("timecode_" + stem);
      if (raw) {
        WriteFile(in, MakeFieldStream(frames, options));
      } else {
        MuxFields(in, frames, bothInOnePacket, options);
      }
      const std::string out = Patched(stem);
      ExpectTimecodes(in, out, Patched("again_" + stem), static_cast<int>(frames.size()));
      EXPECT_EQ(PictureTimings(out), ExpectedTimings(frames));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, TimecodeOfFields,
                         testing::Values(std::tuple("h264", false), std::tuple("mp4", false),
                                         std::tuple("mp4", true), std::tuple("mov", true),
                                         std::tuple("mkv", false), std::tuple("mkv", true),
                                         std::tuple("ts", false), std::tuple("ts", true)),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param)) +
                                  (std::get<1>(test.param) ? "2" : "1");
                         });

TEST(Timecode, AFieldWithoutItsOtherHalfIsAFrame) {
  const std::vector<CodedFrame> frames = FieldGroups(2);
  const std::vector<Bytes> pictures = MakeFieldPictures(frames);
  Bytes stream;
  // The last field of the first group goes.
  size_t gone = 0;
  for (size_t i = 0; i == 0 || !frames[i].idr; ++i) gone += frames[i].fields ? 2 : 1;
  --gone;
  for (size_t i = 0; i < pictures.size(); ++i) {
    if (i != gone) stream = Join({stream, pictures[i]});
  }
  const std::string in = MediaPath("timecode_unpaired.h264");
  WriteFile(in, stream);
  const std::string out = Patched("unpaired.h264");
  const CommandResult patch = Qlnmedia("patch '" + in + "' '" + out + "' --timecode 09:59:59:20");
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  std::vector<std::string> expected = ExpectedTimings(frames);
  expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(gone));
  EXPECT_EQ(PictureTimings(out), expected);
}

// A tick of an HEVC stream of fields is a field: both fields of a frame have its number, which counts two.
TEST(Timecode, FieldsOfHevcCountFrames) {
  const Kind& kind = kKinds[8];
  const std::string out = Patched("hevc_fields.mp4");
  ASSERT_EQ(Qlnmedia("patch '" + Source(kind, "mp4") + "' '" + out + "' --timecode 00:00:00:00").exitCode, 0);
  std::vector<int64_t> numbers;
  for (const TracedUnit& unit : TraceHeaders(out)) {
    if (!unit.has("num_clock_ts")) continue;
    EXPECT_EQ(unit.value("units_field_based_flag[0]"), 1);
    numbers.push_back(unit.value("n_frames[0]"));
  }
  std::sort(numbers.begin(), numbers.end());
  std::vector<int64_t> expected;
  for (int64_t frame = 0; frame < 15; ++frame) expected.insert(expected.end(), {frame, frame});
  EXPECT_EQ(numbers, expected);
}

TEST(Timecode, MessagesAreOfTheirPicturesTemporalLayer) {
  const auto kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                 [](const Kind& k) { return std::string(k.name) == "hevc8_layers"; });
  const std::string out = Patched("layers.mp4");
  ASSERT_EQ(Qlnmedia("patch '" + Source(*kind, "mp4") + "' '" + out + "' --timecode 00:00:00:00").exitCode,
            0);
  int64_t header = 0;  // of the unit whose messages follow
  int64_t layer = 0;
  int higher = 0;
  for (const TracedUnit& unit : TraceHeaders(out)) {
    header = unit.value("nuh_temporal_id_plus1", header);
    if (unit.has("num_clock_ts")) layer = header;
    if (!unit.has("first_slice_segment_in_pic_flag")) continue;
    EXPECT_EQ(header, layer);
    higher += layer > 1 ? 1 : 0;
  }
  EXPECT_GT(higher, 0);
}

TEST(Timecode, DropFrameSkipsItsNumbers) {
  for (const char* codec :
       {"-c:v libx264 -threads 1 -pix_fmt yuv420p",
        "-c:v libx265 -pix_fmt yuv420p -x265-params pools=1:frame-threads=1:log-level=none"}) {
    const bool avc = std::string(codec).find("x264") != std::string::npos;
    for (const char* extension : {"mp4", avc ? "h264" : "hevc"}) {
      const std::string in =
          MediaFile(std::string(avc ? "timecode_drop." : "timecode_drop_hevc.") + extension,
                    std::string("ffmpeg -v error -y -f lavfi -i testsrc2=s=64x64:r=30000/1001:d=0.3 ") +
                        codec + " {out}");
      const std::string out = Patched(std::string("drop.") + extension);
      ASSERT_EQ(Qlnmedia("patch '" + in + "' '" + out + "' --timecode '00:00:59;28'").exitCode, 0);
      // A reader shows a semicolon at the picture that says that numbers were left out, and of H.264 in what
      // it decodes behind it.
      std::string shown = Timecodes(out).substr(0, 36);
      EXPECT_EQ(shown.substr(24), "00:01:00;02\n") << out;
      std::replace(shown.begin(), shown.end(), ';', ':');
      EXPECT_EQ(shown, "00:00:59:28\n00:00:59:29\n00:01:00:02\n") << out;
      std::vector<std::string> told;
      for (const TracedUnit& unit : TraceHeaders(out)) {
        const char* const index = unit.has("cnt_dropped_flag[0]") ? "[0]" : "";
        if (!unit.has(std::string("cnt_dropped_flag") + index)) continue;
        const auto value = [&](const char* name) { return unit.value(std::string(name) + index); };
        EXPECT_EQ(value("counting_type"), 4);
        if (value("cnt_dropped_flag") == 1)
          told.push_back(std::to_string(value("minutes_value")) + " " + std::to_string(value("n_frames")));
      }
      EXPECT_EQ(told, std::vector<std::string>{"1 2"}) << out;
      const auto report = nlohmann::json::parse(Qlnmedia("inspect --frames 9 --json '" + out + "'").output);
      size_t drops = 0;
      for (const auto& frame : report["streams"][0]["frames"]) {
        EXPECT_EQ(frame.contains("cnt_dropped_flag"), frame["timecode"] == "00:01:00;02")
            << frame["timecode"];
        drops += frame.contains("cnt_dropped_flag") ? 1 : 0;
      }
      EXPECT_EQ(drops, 1u);
    }
  }
}

TEST(Timecode, CountingGoesOnPastMidnight) {
  const std::string out = Patched("midnight.mp4");
  ASSERT_EQ(
      Qlnmedia("patch '" + Source(kKinds[0], "mp4") + "' '" + out + "' --timecode 23:59:59:23").exitCode, 0);
  EXPECT_EQ(Timecodes(out).substr(0, 48), "23:59:59:23\n23:59:59:24\n00:00:00:00\n00:00:00:01\n");
  int discontinuities = 0;
  for (const TracedUnit& unit : TraceHeaders(out)) {
    if (unit.value("discontinuity_flag", 0) != 1) continue;
    ++discontinuities;
    EXPECT_EQ(unit.value("n_frames") + unit.value("hours_value"), 0);
  }
  EXPECT_EQ(discontinuities, 1);
}

TEST(Timecode, ThoseThatCannotBe) {
  const std::string files = "patch '" + Source(kKinds[0], "mp4") + "' '" + Patched("bad.mp4") + "'";
  for (const char* bad :
       {"--timecode 1:2:3", "--timecode 00:00:00:25", "--timecode 00:61:00:00", "--timecode '00:00:00;00'",
        "--timecode 25:00:00:00", "--timecode 99:99:99:99", "--timecode 00:00:00:00 --timecode-type fast",
        "--timecode '00:01:00;00' --timecode-type drop-frame", "--timecode 00:00:00:00 --rate 30",
        "--timecode 00:00:00:00 --rate fast"}) {
    const CommandResult result = Qlnmedia(files + " " + bad);
    EXPECT_EQ(result.exitCode, 1) << bad << result.output;
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
    EXPECT_THAT(result.output, testing::AnyOf(HasSubstr("--timecode"), HasSubstr("--rate")));
  }
  EXPECT_EQ(Qlnmedia(files + " --colour bt709 --timecode-type pal").exitCode, 2);
  EXPECT_EQ(Qlnmedia(files + " --colour bt709 --rate 25").exitCode, 2);
}

TEST(Timecode, RawStreamsWithoutTimingAskForTheirRate) {
  const std::string fields = MediaPath("timecode_untimed.h264");
  WriteFile(fields, MakeFieldStream(FieldGroups(2), {.timeScale = 0}));
  const std::string hevc =
      MediaFile("timecode_untimed.hevc",
                "ffmpeg -v error -y -f lavfi -i testsrc2=s=64x64:r=25:d=1 -c:v libx265 "
                "-x265-params vui-timing-info=0:pools=1:frame-threads=1:log-level=none {out}");
  for (const std::string& in : {fields, hevc}) {
    const std::string extension = in.substr(in.rfind('.') + 1);
    const std::string out = Patched("untimed." + extension);
    const CommandResult without = Qlnmedia("patch '" + in + "' '" + out + "' --timecode 09:59:59:20");
    EXPECT_EQ(without.exitCode, 1);
    EXPECT_THAT(without.output, HasSubstr("--rate 25"));
    ExpectTimecodes(in, out, Patched("untimed_again." + extension), in == fields ? 26 : 25, " --rate 25");
  }
}

TEST(Timecode, InspectShowsThem) {
  const std::string fields = MediaPath("timecode_inspect.h264");
  WriteFile(fields, MakeFieldStream(FieldGroups(1)));
  struct Case {
    std::string in;
    std::string timecode;
    std::vector<std::string> frames;
  };
  const Case cases[] = {
      {Source(kKinds[1], "mp4"), "01:02:03:04", {"01:02:03:04", "01:02:03:05", "01:02:03:06"}},
      {Source(kKinds[7], "raw"), "01:02:03:04", {}},
      {fields, "01:02:03:04", {"01:02:03:04", "01:02:03:04", "01:02:03:07"}},
  };
  for (const Case& test : cases) {
    const std::string out = Patched("inspect" + test.in.substr(test.in.rfind('.')));
    const auto before = nlohmann::json::parse(Qlnmedia("inspect --json '" + test.in + "'").output);
    EXPECT_FALSE(before["streams"][0].contains("timecode"));
    EXPECT_FALSE(before["streams"][0]["frames"][0].contains("timecode"));
    ASSERT_EQ(Qlnmedia("patch '" + test.in + "' '" + out + "' --timecode 01:02:03:04").exitCode, 0);
    const auto report = nlohmann::json::parse(Qlnmedia("inspect --json '" + out + "'").output);
    EXPECT_EQ(report["streams"][0]["timecode"], test.timecode);
    for (size_t i = 0; i < test.frames.size(); ++i)
      EXPECT_EQ(report["streams"][0]["frames"][i]["timecode"], test.frames[i]) << test.in << i;
    EXPECT_THAT(Qlnmedia("inspect '" + out + "'").output, HasSubstr(test.timecode));
  }
}

}  // namespace
}  // namespace qln::test
