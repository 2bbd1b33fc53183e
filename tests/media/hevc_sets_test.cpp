// HEVC parameter sets of real streams: every element held against an independent reader's trace, the kept
// departures applied; written again; and frames scanned.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "hevc/unit_builders.h"
#include "media/hevc_traces.h"

namespace qln::test {
namespace {

using testing::IsEmpty;

const TracedUnit* Find(const std::vector<TracedUnit>& units, const std::string& heading) {
  for (const TracedUnit& unit : units) {
    if (unit.heading == heading) return &unit;
  }
  return nullptr;
}

class HevcStreams : public testing::TestWithParam<HevcRecipe> {
 protected:
  HevcStreams() : path_(HevcStream(GetParam())), units_(SplitByteStream(ReadFile(path_))) {
    trace_ = TraceHeaders(path_);
  }
  const TracedUnit& traced(const char* heading) {
    const TracedUnit* const found = Find(trace_, heading);
    EXPECT_NE(found, nullptr) << heading;
    static const TracedUnit kNone{};
    return found != nullptr ? *found : kNone;
  }
  std::string path_;
  std::vector<Bytes> units_;
  std::vector<TracedUnit> trace_;
};

TEST_P(HevcStreams, VideoParameterSet) {
  const Bytes unit = FirstUnit(units_, 32);
  auto vps = ReadVps(unit);
  EXPECT_THAT(vps.messages, IsEmpty());
  EXPECT_EQ(vps.bitPos, unit.size() * 8);
  EXPECT_EQ(vps.result, Unescaped(unit).size());
  Compare(traced("Video Parameter Set"), Words(vps.record()), 32, "");
  const bool uniform = vps.record().vps_max_sub_layers_minus1 == 0;
  const Bytes written = WriteVps(vps.record());
  if (uniform) {
    EXPECT_EQ(ToHex(written), ToHex(WriterEscaped(Unescaped(unit))));
  }
}

TEST_P(HevcStreams, SequenceParameterSet) {
  const Bytes unit = FirstUnit(units_, 33);
  const TracedUnit& trace = traced("Sequence Parameter Set");
  auto sps = ReadSps(unit);
  const HevcSpsRecord& r = sps.record();
  EXPECT_EQ(sps.bitPos, unit.size() * 8);
  PlainBits bits{Unescaped(unit)};
  const auto positionOf = [&](const std::string& name) {
    for (const TracedElement& element : trace.elements) {
      if (element.name == name) return static_cast<size_t>(element.position);
    }
    return size_t{0};
  };
  if (trace.value("chroma_format_idc") == 3) {
    // The flag is read as a code from its bit on.
    Compare(trace, Words(r), 33, "separate_colour_plane_flag");
    bits.position = positionOf("separate_colour_plane_flag");
    EXPECT_EQ(r.separate_colour_plane_flag, bits.ue());
    EXPECT_EQ(r.pic_width_in_luma_samples, bits.ue());
    EXPECT_EQ(r.pic_height_in_luma_samples, bits.ue());
    EXPECT_NE(r.pic_width_in_luma_samples, trace.value("pic_width_in_luma_samples"));
    // Even heights come back through the writer.
    EXPECT_EQ(ToHex(WriteSps(sps.record())), ToHex(WriterEscaped(Unescaped(unit))));
    return;
  }
  if (trace.value("vui_hrd_parameters_present_flag", 0) == 1) {
    // The encoder's HRD has fixed rates: the short form loses its place in its loop, but not in front of it.
    Compare(trace, Words(r), 33, "fixed_pic_rate_general_flag");
    bits.position = positionOf("fixed_pic_rate_general_flag[0]");
    EXPECT_EQ(r.fixed_pic_rate_general_flag[0], bits.bit());
    EXPECT_EQ(r.fixed_pic_rate_within_cvs_flag[0], bits.bit());
    EXPECT_EQ(r.low_delay_hrd_flag[0], bits.bit());
    EXPECT_EQ(r.cpb_cnt_minus1[0], bits.ue());
    EXPECT_EQ(r.bit_rate_value_minus1, bits.ue());
    EXPECT_EQ(r.cpb_size_value_minus1, bits.ue());
    EXPECT_EQ(r.au_cpb_removal_delay_length_minus1, trace.value("au_cpb_removal_delay_length_minus1"));
    EXPECT_EQ(r.dpb_output_delay_length_minus1, trace.value("dpb_output_delay_length_minus1"));
    return;
  }
  EXPECT_THAT(sps.messages, IsEmpty());
  EXPECT_EQ(sps.result, Unescaped(unit).size());
  Compare(trace, Words(r), 33, "");
  const Bytes written = WriteSps(sps.record());
  if (r.sps_max_sub_layers_minus1 == 0) {
    EXPECT_EQ(ToHex(written), ToHex(WriterEscaped(Unescaped(unit))));
  }
  // Where the writer's scan reaches every escape, the record comes back as well; a raw 00 00 03 near the end,
  // as a rate of 25 makes it, loses its 3.
  if (written == Escaped(Unescaped(written)) && r.sps_max_sub_layers_minus1 == 0) {
    EXPECT_EQ(Words(ReadSps(written).record()), Words(r));
  }
}

TEST_P(HevcStreams, PictureParameterSet) {
  const Bytes unit = FirstUnit(units_, 34);
  auto pps = ReadPps(unit);
  EXPECT_THAT(pps.messages, IsEmpty());
  EXPECT_EQ(pps.bitPos, unit.size() * 8);
  Compare(traced("Picture Parameter Set"), Words(pps.record()), 34, "");
  HevcPpsRecord& r = pps.record();
  const Bytes written = WritePps(r);
  if (std::max({r.init_qp_minus26, r.pps_cb_qp_offset, r.pps_cr_qp_offset, r.pps_beta_offset_div2,
                r.pps_tc_offset_div2}) <= 0) {
    EXPECT_EQ(ToHex(written), ToHex(WriterEscaped(Unescaped(unit))));
    return;
  }
  // A positive value v goes out with the code of -(v + 1).
  auto again = ReadPps(written);
  for (int32_t* value : {&r.init_qp_minus26, &r.pps_cb_qp_offset, &r.pps_cr_qp_offset,
                         &r.pps_beta_offset_div2, &r.pps_tc_offset_div2}) {
    if (*value > 0) *value = -(*value + 1);
  }
  EXPECT_EQ(Words(again.record()), Words(r));
}

// Parameter sets and the first pictures as one frame.
TEST_P(HevcStreams, FrameScan) {
  for (const int codeBytes : {4, 3}) {
    Bytes bytes;
    uint32_t count = 0;
    for (const Bytes& unit : units_) {
      // A suffix SEI would hide what stands behind it.
      const uint32_t type = unit[0] >> 1 & 63u;
      if (type == 40) continue;
      if (type == 32 && count > 1) break;  // headers are repeated
      bytes = Join({bytes, WithStartCode(unit, codeBytes)});
      if (++count == 6) break;
    }
    ExactCopy copy(bytes);
    DFrame frame{};
    frame.frameData = copy.data();
    frame.frameSize = static_cast<uint32_t>(bytes.size());
    HevcVpsRecord vps{};
    const auto sps = std::make_unique<HevcSpsRecord>();
    HevcPpsRecord pps{};
    Bytes first(1024), second(1024);
    uint32_t firstSize = 0;
    uint32_t secondSize = 0;
    MessageCapture capture;
    EXPECT_EQ(qlnutilFindNalUnitsHevc(&frame, &vps, sps.get(), &pps, 0, 0, first.data(), second.data(), 0,
                                      &firstSize, &secondSize),
              count);
    if (codeBytes == 3) {
      EXPECT_EQ(sps->profile_tier_level.general_level_idc, 0u);
      EXPECT_EQ(pps.cu_qp_delta_enabled_flag, 0u);
      EXPECT_GE(capture.messages().size(), 3u) << "each is refused";
      continue;
    }
    EXPECT_EQ(Words(vps), Words(ReadVps(FirstUnit(units_, 32)).record()));
    EXPECT_EQ(Words(*sps), Words(ReadSps(FirstUnit(units_, 33)).record()));
    EXPECT_EQ(Words(pps), Words(ReadPps(FirstUnit(units_, 34)).record()));
    EXPECT_EQ(Head(first, firstSize), FirstUnit(units_, 33));
    EXPECT_EQ(Head(second, secondSize), FirstUnit(units_, 34));
  }
}

INSTANTIATE_TEST_SUITE_P(All, HevcStreams, testing::ValuesIn(kHevcRecipes),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
}  // namespace qln::test
