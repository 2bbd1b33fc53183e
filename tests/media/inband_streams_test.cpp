// What goes into real streams is all that changes in them: header traces, encoders' own captions and delays.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <set>

#include "inband/caption_packets.h"
#include "media/inband_streams.h"
#include "qlnutil/qlnhevc.h"
#include "qlnutil/qlninband.h"

namespace qln::test {
namespace {

// ---- Colour ----

constexpr const char* kColourElements[] = {"video_signal_type_present_flag",
                                           "video_format",
                                           "video_full_range_flag",
                                           "colour_description_present_flag",
                                           "colour_primaries",
                                           "transfer_characteristics",
                                           "matrix_coefficients"};

// All units of a trace as texts, without the colour words of parameter sets and without trailing bits.
std::vector<std::string> AllButColour(const std::vector<TracedUnit>& units) {
  const std::set<std::string> colour(std::begin(kColourElements), std::end(kColourElements));
  std::vector<std::string> texts;
  for (const TracedUnit& unit : units) {
    if (unit.elements.empty()) continue;  // sizes and the like
    std::string text = unit.heading + ":";
    for (const TracedElement& element : unit.elements) {
      if (colour.count(element.name) != 0 || element.name.rfind("rbsp_", 0) == 0) continue;
      text += " " + element.name + "=" + std::to_string(element.value);
    }
    texts.push_back(text);
  }
  return texts;
}

struct ColourStream {
  std::string path;
  bool hevc;
};

std::vector<ColourStream> ColourStreams() {
  const std::string described = ":colorprim=bt709:transfer=bt709:colormatrix=bt709";
  const std::string ranged = ":range=full:videoformat=pal";
  return {
      {AvcStream(), false},
      {AvcStream("colour8.264", "yuv420p", described), false},
      {AvcStream("range8.264", "yuv420p", ":fullrange=on:videoformat=pal"), false},
      {AvcStream("inband10.264", "yuv420p10le"), false},
      {AvcStream("colour10.264", "yuv420p10le", described), false},
      {AvcStream("colour422.264", "yuv422p10le", described), false},
      {HevcStream("inband.265", "yuv420p", "hrd=0"), true},
      {HevcStream("colour.265", "yuv420p", "colorprim=1:transfer=1:colormatrix=1"), true},
      {HevcStream("range.265", "yuv420p", "hrd=0" + ranged), true},
      {HevcStream("inband10.265", "yuv420p10le", "hrd=0"), true},
      {HevcStream("colour10.265", "yuv420p10le", "hrd=0" + described), true},
  };
}

TEST(InbandStreams, ColourRewriteChangesNothingElse) {
  for (const ColourStream& stream : ColourStreams()) {
    const std::string format = stream.hevc ? "-f hevc" : "-f h264";
    const std::vector<TracedUnit> before = TraceHeaders(stream.path, format);
    for (const bool lengths : {false, true}) {
      const std::string path =
          Edit(stream.path, stream.hevc, lengths, "colour-only.out", [&](DFrame* frame, uint32_t) {
            frame->colorFlags = QLN_COLOR_PRIMARIES | QLN_COLOR_TRANSFER | QLN_COLOR_MATRIX;
            frame->colourPrimaries = 12;
            frame->transferCharacteristics = 14;
            frame->matrixCoefficients = 5;
            frame->videoFullRange = 1;
            EXPECT_EQ(qlnutilWriteColorimetryToSPS(frame, stream.hevc ? kHevc : kAvc), 1u);
          });
      const std::vector<TracedUnit> after = TraceHeaders(path, format);
      EXPECT_EQ(AllButColour(after), AllButColour(before)) << stream.path;
      size_t sets = 0;
      for (const TracedUnit& unit : after) {
        if (!unit.has("vui_parameters_present_flag")) continue;
        ++sets;
        EXPECT_EQ(unit.value("video_full_range_flag"), 1);
        EXPECT_EQ(unit.value("colour_primaries"), 12);
        EXPECT_EQ(unit.value("transfer_characteristics"), 14);
        EXPECT_EQ(unit.value("matrix_coefficients"), 5);
      }
      EXPECT_GE(sets, 4u) << stream.path;
      const auto hashes = [&](const std::string& file) {
        return test::Run("ffmpeg -v error " + format + " -i '" + file +
                         "' -f framemd5 - | grep -v '^#' | cut -d, -f6")
            .output;
      };
      EXPECT_EQ(hashes(path), hashes(stream.path)) << stream.path;
      EXPECT_GT(hashes(path).size(), 4u * 32) << stream.path;
    }
  }
}

// ---- Timecode ----

struct Run4 {
  uint8_t type;
  uint32_t first;                              // timecode of the first picture
  int64_t countingType;                        // as HEVC has it
  std::array<std::array<int64_t, 4>, 4> read;  // hours, minutes, seconds, frames of the four pictures
};

// Across minutes, hours and the day, by the types that skip numbers and by those that do not.
constexpr Run4 kRuns[] = {
    {4, 1798, 4, {{{0, 0, 59, 28}, {0, 0, 59, 29}, {0, 1, 0, 2}, {0, 1, 0, 3}}}},
    {4, 17980, 4, {{{0, 9, 59, 28}, {0, 9, 59, 29}, {0, 10, 0, 0}, {0, 10, 0, 1}}}},
    {4, 107890, 4, {{{0, 59, 59, 28}, {0, 59, 59, 29}, {1, 0, 0, 0}, {1, 0, 0, 1}}}},
    {4, 2589406, 4, {{{23, 59, 59, 28}, {23, 59, 59, 29}, {0, 0, 0, 0}, {0, 0, 0, 1}}}},
    {32, 3598, 6, {{{0, 0, 59, 58}, {0, 0, 59, 59}, {0, 1, 0, 4}, {0, 1, 0, 5}}}},
    {2, 1798, 0, {{{0, 0, 59, 28}, {0, 0, 59, 29}, {0, 1, 0, 0}, {0, 1, 0, 1}}}},
    {1, 24 * 3600 - 2, 0, {{{0, 59, 59, 22}, {0, 59, 59, 23}, {1, 0, 0, 0}, {1, 0, 0, 1}}}},
    {16, 50 * 60 - 1, 0, {{{0, 0, 59, 49}, {0, 1, 0, 0}, {0, 1, 0, 1}, {0, 1, 0, 2}}}},
};

TEST(InbandStreams, HevcTimecodeStandsInTheTrace) {
  const std::string source = HevcStream("inband.265", "yuv420p", "hrd=0");
  const std::vector<TracedUnit> before = TraceHeaders(source);
  for (const Run4& run : kRuns) {
    const std::string path =
        Edit(source, true, false, "timecode-run.265", [&](DFrame* frame, uint32_t index) {
          frame->timeCodeA = run.first + index;
          EXPECT_EQ(qlnutilAddHEVCTimeCode(frame, run.type), 0u);
        });
    const std::string what = std::to_string(run.type) + " from " + std::to_string(run.first);
    size_t found = 0;
    for (const TracedUnit& unit : TraceHeaders(path)) {
      if (!unit.has("num_clock_ts") || found == 4) continue;
      const auto& read = run.read[found++];
      EXPECT_EQ(unit.value("num_clock_ts"), 1) << what;
      EXPECT_EQ(unit.value("clock_timestamp_flag[0]"), 1) << what;
      EXPECT_EQ(unit.value("units_field_based_flag[0]"), 0) << what;
      EXPECT_EQ(unit.value("counting_type[0]"), run.countingType) << what;
      EXPECT_EQ(unit.value("full_timestamp_flag[0]"), 1) << what;
      EXPECT_EQ(unit.value("discontinuity_flag[0]"), 0) << what;
      EXPECT_EQ(unit.value("cnt_dropped_flag[0]"), 0) << what;
      EXPECT_EQ(unit.value("hours_value[0]"), read[0]) << what;
      EXPECT_EQ(unit.value("minutes_value[0]"), read[1]) << what;
      EXPECT_EQ(unit.value("seconds_value[0]"), read[2]) << what;
      EXPECT_EQ(unit.value("n_frames[0]"), read[3]) << what;
      EXPECT_EQ(unit.value("time_offset_length[0]"), 0) << what;
    }
    EXPECT_EQ(found, 4u) << what;
    EXPECT_EQ(FrameHashes(path), FrameHashes(source));
  }
}

TEST(InbandStreams, AvcTimecodeStandsInTheTrace) {
  const std::string source = AvcStream();
  for (const Run4& run : kRuns) {
    const std::string path =
        Edit(source, false, false, "timecode-run.264", [&](DFrame* frame, uint32_t index) {
          frame->timeCodeA = run.first + index;
          EXPECT_NE(qlnutilAddAVCTimeCode(frame, run.type), 0u);
        });
    const std::string what = std::to_string(run.type) + " from " + std::to_string(run.first);
    size_t found = 0;
    for (const TracedUnit& unit : TraceHeaders(path)) {
      if (!unit.has("n_frames") || found == 4) continue;
      const auto& read = run.read[found++];
      EXPECT_EQ(unit.value("pic_struct"), 0) << what;
      EXPECT_EQ(unit.value("counting_type"), run.countingType == 0 ? 0 : 4) << what;
      EXPECT_EQ(unit.value("cnt_dropped_flag"), 0) << what;
      EXPECT_EQ(unit.value("hours_value"), read[0]) << what;
      EXPECT_EQ(unit.value("minutes_value"), read[1]) << what;
      EXPECT_EQ(unit.value("seconds_value"), read[2]) << what;
      EXPECT_EQ(unit.value("n_frames"), read[3]) << what;
    }
    EXPECT_EQ(found, 4u) << what;
    EXPECT_EQ(FrameHashes(path), FrameHashes(source));
  }
}

// ---- Captions of other encoders ----

TEST(InbandStreams, EncodersCaptionsAreRead) {
  const Bytes packet = CaptionPacket(Triplets(10));
  const std::string own = Edit(AvcStream(), false, false, "a53-own.264", [&](DFrame* frame, uint32_t) {
    EXPECT_EQ(qlnutilAddAVCCaptions(frame, packet.data(), static_cast<uint32_t>(packet.size()), false), 0);
  });
  // Through the MPEG-2 encoder's user data and then through the H.264 encoder's SEI.
  const std::string mpeg2 = MediaPath("a53.m2v");
  const std::string avc = MediaPath("a53.264");
  ASSERT_EQ(test::Run("ffmpeg -v error -y -nostdin -i '" + own +
                      "' -c:v mpeg2video -g 1 -threads 1 -f mpeg2video '" + mpeg2 + "'")
                .exitCode,
            0);
  ASSERT_EQ(test::Run("ffmpeg -v error -y -nostdin -i '" + mpeg2 +
                      "' -c:v libx264 -threads 1 -x264-params keyint=1:bframes=0 -f h264 '" + avc + "'")
                .exitCode,
            0);
  const auto read = [](const Bytes& unit) {
    DFrame frame = {};
    EXPECT_EQ(qlnUtilReadH264CaptionsSEI(unit.data(), static_cast<uint32_t>(unit.size()), 25, 0,
                                         DFrameCaption(&frame)),
              0);
    EXPECT_EQ(frame.captionFlags, frame.captionSize == 0 ? 0 : QLN_CAPTION_ANC);
    if (frame.captionSize == 0) return Bytes();
    EXPECT_EQ(frame.captionSize, 49u);
    return Bytes(frame.captionData + 16, frame.captionData + 46);
  };
  constexpr size_t kReservedByte =
      3 + 3 + 4 + 1 + 1;  // behind the head, country and provider, GA94, type, count
  size_t found = 0;
  for (Bytes unit : SplitByteStream(ReadFile(avc))) {
    if (unit[0] != 6 || unit[1] != 4) continue;
    ++found;
    // This encoder leaves the reserved byte at 0, where the reader asks for the 255 of the standard.
    if (unit[kReservedByte] != 255) {
      EXPECT_TRUE(read(unit).empty());
    }
    unit[kReservedByte] = 255;
    EXPECT_EQ(read(unit), Triplets(10));
  }
  EXPECT_EQ(found, 4u);
  // The MPEG-2 encoder's user data has it; it stands behind 00 00 01 B2.
  found = 0;
  for (const Bytes& unit : SplitByteStream(ReadFile(mpeg2))) {
    if (unit[0] != 0xB2 || unit.size() < 5 || Bytes(unit.begin() + 1, unit.begin() + 5) != Hex("47 41 39 34"))
      continue;
    ++found;
    const Bytes data(unit.begin() + 1, unit.end());
    EXPECT_EQ(
        read(Join({Hex("06 04"), {static_cast<uint8_t>(data.size() + 3)}, Hex("B5 00 31"), data, Hex("80")})),
        Triplets(10));
  }
  EXPECT_EQ(found, 4u);
}

// ---- Interlace ----

// `count` bits from bit `at` on.
uint32_t BitsAt(const Bytes& bytes, size_t at, int64_t count) {
  uint32_t value = 0;
  for (int64_t i = 0; i < count; ++i, ++at) {
    value = value << 1 | (at / 8 < bytes.size() ? bytes[at / 8] >> (7 - at % 8) & 1u : 0u);
  }
  return value;
}

Bytes WithoutEmulationPrevention(const Bytes& unit) {
  Bytes out;
  int zeros = 0;
  for (const uint8_t byte : unit) {
    if (zeros >= 2 && byte == 3) {
      zeros = 0;
      continue;
    }
    out.push_back(byte);
    zeros = byte == 0 ? zeros + 1 : 0;
  }
  return out;
}

constexpr size_t kTimingBits = 16 + 16 + 7;  // header, type and size, picture structure and scan

TEST(InbandStreams, InterlacedStreamsKeepTheirDelays) {
  const std::string source = HevcStream("interlaced-hrd.265", "yuv420p",
                                        "interlace=tff:hrd=1:bitrate=500:vbv-maxrate=500:vbv-bufsize=500");
  const std::vector<std::vector<Bytes>> pictures = Pictures(source, true);
  const HevcSpsRecord* host = nullptr;
  HevcSpsRecord sps = {};
  for (Bytes unit : pictures[0]) {
    if (unit[0] >> 1 != 33) continue;
    QLNBitState state{unit.data(), static_cast<int32_t>(unit.size()), static_cast<uint32_t>(unit.size()) * 8,
                      0};
    ASSERT_NE(qlnutilRead_HEVC_SPS(&state, &sps, nullptr, 0), 0u);
    host = &sps;
  }
  ASSERT_NE(host, nullptr);
  // The widths and delays as an independent reader has them.
  int64_t auBits = 0, dpbBits = 0;
  std::vector<std::array<int64_t, 2>> traced;
  for (const TracedUnit& unit : TraceHeaders(source, "-f hevc")) {
    if (unit.has("sps_max_sub_layers_minus1")) {
      auBits = unit.value("au_cpb_removal_delay_length_minus1") + 1;
      dpbBits = unit.value("dpb_output_delay_length_minus1") + 1;
    }
    if (unit.has("pic_dpb_output_delay")) {
      traced.push_back({unit.value("au_cpb_removal_delay_minus1"), unit.value("pic_dpb_output_delay")});
    }
  }
  ASSERT_EQ(traced.size(), 4u);
  ASSERT_GT(auBits, 1);
  size_t plain = 0;
  for (size_t i = 0; i + 1 < pictures.size(); i += 2) {
    const Bytes first = InForm(pictures[i], false);
    const Bytes bytes = Join({first, InForm(pictures[i + 1], false)});
    TestFrame frame(bytes, bytes.size());
    frame->fieldFlags = QLN_TWO_FIELDS;
    frame->secondFieldOffset = static_cast<uint32_t>(first.size());
    TestFrame destination({}, bytes.size() + 1000);
    EXPECT_EQ(qlnutilSetFrameInterlaced(frame.get(), destination.get(), host, 0),
              pictures[i].size() + pictures[i + 1].size());
    size_t field = 0;
    for (const Bytes& unit : SplitByteStream(destination.bytes())) {
      if (unit[0] != 0x4E || unit[2] != 1) continue;
      ASSERT_LT(field, 2u);
      const Bytes made = WithoutEmulationPrevention(unit);
      EXPECT_EQ(BitsAt(made, 32, 4), field == 0 ? 11u : 10u);
      for (const Bytes& from : pictures[i + field]) {
        if (from[0] != 0x4E || from[2] != 1) continue;
        // Taken from the source's bits as they stand, emulation prevention included.
        EXPECT_EQ(BitsAt(made, kTimingBits, auBits), BitsAt(from, kTimingBits, auBits));
        EXPECT_EQ(BitsAt(made, kTimingBits + static_cast<size_t>(auBits), dpbBits),
                  BitsAt(from, kTimingBits + static_cast<size_t>(auBits), dpbBits));
        if (WithoutEmulationPrevention(from) != from) continue;
        ++plain;
        EXPECT_EQ(BitsAt(made, kTimingBits, auBits), traced[i + field][0]);
        EXPECT_EQ(BitsAt(made, kTimingBits + static_cast<size_t>(auBits), dpbBits), traced[i + field][1]);
      }
      ++field;
    }
    EXPECT_EQ(field, 2u);
  }
  EXPECT_GT(plain, 0u);
}

TEST(InbandStreams, FieldsOf544LinesShowAs540) {
  const std::string source = MediaFile(
      "fields544.265",
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=1920x544:r=50 -frames:v 2 -pix_fmt yuv420p -c:v libx265 "
      "-preset ultrafast -x265-params 'log-level=none:pools=1:frame-threads=1:repeat-headers=1:aud=1:info=0:"
      "keyint=1' -f hevc {out}");
  Bytes fields[2];
  int field = -1;
  for (const Bytes& unit : SplitByteStream(ReadFile(source))) {
    if (unit[0] == 0x46) ++field;
    ASSERT_TRUE(field == 0 || field == 1);
    fields[field] = Join({fields[field], WithStartCode(unit)});
  }
  const Bytes bytes = Join({fields[0], fields[1]});
  TestFrame frame(bytes, bytes.size());
  frame->fieldFlags = QLN_TWO_FIELDS;
  frame->secondFieldOffset = static_cast<uint32_t>(fields[0].size());
  TestFrame destination({}, bytes.size() + 1000);
  HevcSpsRecord host = {};
  host.frame_field_info_present_flag = 1;
  EXPECT_GT(qlnutilSetFrameInterlaced(frame.get(), destination.get(), &host, 0), 8u);
  const std::string path = MediaPath("fields544.out");
  WriteFile(path, destination.bytes());
  size_t sets = 0;
  for (const TracedUnit& unit : TraceHeaders(path, "-f hevc")) {
    if (!unit.has("sps_max_sub_layers_minus1")) continue;
    ++sets;
    EXPECT_EQ(unit.value("conformance_window_flag"), 1);
    EXPECT_EQ(unit.value("conf_win_left_offset"), 0);
    EXPECT_EQ(unit.value("conf_win_right_offset"), 0);
    EXPECT_EQ(unit.value("conf_win_top_offset"), 0);
    EXPECT_EQ(unit.value("conf_win_bottom_offset"), 2);
    EXPECT_EQ(unit.value("field_seq_flag"), 1);
    EXPECT_EQ(unit.value("colour_primaries"), 1);
  }
  EXPECT_GE(sets, 2u);
  EXPECT_EQ(Count(Probe(path, "-f hevc -show_frames"), "height=540\n"), 2u);
  const CommandResult decoded = test::Run("ffmpeg -v error -f hevc -i '" + path + "' -f null -");
  EXPECT_EQ(decoded.exitCode, 0);
  EXPECT_EQ(decoded.output, "");
}

}  // namespace
}  // namespace qln::test
