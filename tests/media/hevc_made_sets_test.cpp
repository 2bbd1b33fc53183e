// HEVC parameter sets that no encoder at hand writes, made by hand and spliced into a real stream, against an
// independent reader's trace.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "hevc/unit_builders.h"
#include "media/hevc_traces.h"

namespace qln::test {
namespace {

using testing::IsEmpty;

// The trace of a real stream with units of our own behind its parameter sets.
std::vector<TracedUnit> TraceWith(const std::string& name, const std::vector<Bytes>& made) {
  Bytes stream;
  for (const Bytes& unit : SplitByteStream(ReadFile(HevcStream(kHevcRecipes[0])))) {
    stream = Join({stream, WithStartCode(unit)});
    if ((unit[0] >> 1 & 63u) != 34) continue;
    for (const Bytes& own : made) stream = Join({stream, WithStartCode(own)});
  }
  const std::string path = MediaPath(name);
  WriteFile(path, stream);
  return TraceHeaders(path);
}

// The traced unit of ours: the one with the id 1.
TracedUnit Made(const std::vector<TracedUnit>& trace, const std::string& heading, const char* idName) {
  for (const TracedUnit& unit : trace) {
    if (unit.heading == heading && unit.value(idName) == 1) return unit;
  }
  ADD_FAILURE() << "no " << heading;
  return {};
}

// What the encoder never writes, in sets made by hand that no slice refers to, spliced into a real stream.
TEST(HevcStream, HandMadeSetsAreReadAsTheIndependentReaderReadsThem) {
  VpsParts vpsParts;
  vpsParts.id = 1;
  vpsParts.timing = [](BitBuilder& b) { b.u(1, 1).u(32, 1001).u(32, 60000).u(1, 1).ue(8).ue(0); };
  SpsParts spsParts;
  spsParts.id = 1;
  spsParts.window = [](BitBuilder& b) { b.u(1, 1).ue(1).ue(2).ue(3).ue(4); };
  spsParts.scalingLists = [](BitBuilder& b) {
    b.u(1, 1).u(1, 1);
    for (int sizeId = 0; sizeId < 4; ++sizeId) {
      for (int matrix = 0; matrix < (sizeId == 3 ? 2 : 6); ++matrix) {
        b.u(1, 1);
        if (sizeId > 1) b.se(-3);
        for (int i = 0; i < (sizeId == 0 ? 16 : 64); ++i) b.se(i % 3 - 1);
      }
    }
  };
  spsParts.pcm = [](BitBuilder& b) { b.u(1, 1).u(4, 7).u(4, 6).ue(0).ue(1).u(1, 1); };
  spsParts.shortTerm = [](BitBuilder& b) {
    b.ue(2).ue(2).ue(1).ue(0).u(1, 1).ue(3).u(1, 0).ue(1).u(1, 1).u(1, 0).ue(0).ue(1).ue(6).u(1, 1);
  };
  spsParts.longTerm = [](BitBuilder& b) { b.u(1, 1).ue(2).u(8, 13).u(1, 1).u(8, 200).u(1, 0); };
  spsParts.vui = [](BitBuilder& b) {
    b.u(1, 1).u(1, 1).u(8, 255).u(16, 40).u(16, 33).u(1, 1).u(1, 1);
    b.u(1, 1).u(3, 5).u(1, 1).u(1, 1).u(8, 9).u(8, 16).u(8, 9).u(1, 1).ue(2).ue(3).u(3, 5);
    b.u(1, 1).ue(1).ue(2).ue(3).ue(4).u(1, 1).u(32, 1001).u(32, 60000).u(1, 1).ue(7);
    b.u(1, 1).u(1, 1).u(1, 0).u(1, 0).u(4, 2).u(4, 3).u(15, 0x7ABC);
    b.u(3, 0).ue(0).ue(1000).ue(2000).u(1, 1);
    b.u(1, 1).u(3, 7).ue(4).ue(5).ue(6).ue(15).ue(14);
  };
  spsParts.extension = [](BitBuilder& b) { b.u(1, 1).u(8, 0x80).u(9, 0x155); };
  PpsParts ppsParts;
  ppsParts.id = 1;
  ppsParts.spsId = 1;
  ppsParts.tiles = 1;
  ppsParts.tileSizes = [](BitBuilder& b) { b.ue(1).ue(1).u(1, 0).ue(0).ue(0).u(1, 1); };
  ppsParts.deblocking = [](BitBuilder& b) { b.u(1, 1).u(1, 1).u(1, 0).se(-4).se(5); };
  const Bytes vpsUnit = Escaped(Vps(vpsParts));
  const Bytes spsUnit = Escaped(Sps(spsParts));
  const Bytes ppsUnit = Escaped(Pps(ppsParts));

  const std::vector<TracedUnit> trace = TraceWith("hevc_hand_made.hevc", {vpsUnit, spsUnit, ppsUnit});
  const auto made = [&](const char* heading, const char* idName) { return Made(trace, heading, idName); };

  auto vps = ReadVps(vpsUnit);
  EXPECT_THAT(vps.messages, IsEmpty());
  TracedUnit vpsTrace = made("Video Parameter Set", "vps_video_parameter_set_id");
  for (TracedElement& element : vpsTrace.elements) {
    if (element.name == "vps_num_ticks_poc_diff_one_minus1") {
      element.name = "vps_num_ticks_poc_diff_one";  // kept plus 1
      ++element.value;
    }
  }
  Compare(vpsTrace, Words(vps.record()), 32, "");

  auto sps = ReadSps(spsUnit);
  EXPECT_THAT(sps.messages, IsEmpty());
  TracedUnit spsTrace = made("Sequence Parameter Set", "sps_seq_parameter_set_id");
  // The sets stand in blocks of their own: compared by their order in the trace.
  std::vector<uint32_t> sets;
  std::vector<uint32_t> longTerm;
  std::erase_if(spsTrace.elements, [&](const TracedElement& element) {
    const std::string name = element.name.substr(0, element.name.find('['));
    if (name == "lt_ref_pic_poc_lsb_sps") longTerm.push_back(static_cast<uint32_t>(element.value));
    const bool inSet = name.starts_with("delta_poc_s") || name.starts_with("used_by_curr_pic_s") ||
                       name == "num_negative_pics" || name == "num_positive_pics" ||
                       name == "inter_ref_pic_set_prediction_flag";
    if (inSet && name != "inter_ref_pic_set_prediction_flag")
      sets.push_back(static_cast<uint32_t>(element.value));
    return inSet;
  });
  Compare(spsTrace, Words(sps.record()), 33, "");
  const HevcSpsRecord& r = sps.record();
  EXPECT_THAT(longTerm, testing::ElementsAre(r.long_term_ref_pics[0].lt_ref_pic_poc_lsb_sps,
                                             r.long_term_ref_pics[1].lt_ref_pic_poc_lsb_sps));
  const HevcShortTermRps& a = r.st_ref_pic_set[0];
  const HevcShortTermRps& b = r.st_ref_pic_set[1];
  EXPECT_THAT(sets,
              testing::ElementsAre(a.num_negative_pics, a.num_positive_pics, a.delta_poc_s0_minus1[0],
                                   a.used_by_curr_pic_s0_flag[0], a.delta_poc_s0_minus1[1],
                                   a.used_by_curr_pic_s0_flag[1], a.delta_poc_s1_minus1[0],
                                   a.used_by_curr_pic_s1_flag[0], b.num_negative_pics, b.num_positive_pics,
                                   b.delta_poc_s1_minus1[0], b.used_by_curr_pic_s1_flag[0]));

  auto pps = ReadPps(ppsUnit);
  EXPECT_THAT(pps.messages, IsEmpty());
  Compare(made("Picture Parameter Set", "pps_pic_parameter_set_id"), Words(pps.record()), 34, "");
}

// hrd_parameters() of the fullest kind: both kinds of schedule, sub-picture parameters.
void AddHrd(BitBuilder& b, bool common, uint32_t cpbs) {
  if (common) b.u(1, 1).u(1, 1).u(1, 1).u(8, 3).u(5, 4).u(1, 1).u(5, 6).u(8, 0x12).u(4, 3).u(15, 0x5A5A);
  b.u(1, 0).u(1, 0).u(1, 0).ue(cpbs - 1);
  if (!common) return;
  for (uint32_t i = 0; i < 2 * cpbs; ++i) b.ue(100 + 50 * i).ue(200 + 70 * i).ue(1 + i).ue(7 + i).u(1, i & 1);
}

TEST(HevcStream, HrdParametersOfAVpsArePassedAsTheIndependentReaderReadsThem) {
  VpsParts parts;
  parts.id = 1;
  parts.layerSetsMinus1 = 2;
  parts.layerSets = [](BitBuilder& b) { b.u(2, 3); };
  parts.timing = [](BitBuilder& b) {
    b.u(1, 1).u(32, 1001).u(32, 60000).u(1, 0).ue(3);
    b.ue(0);
    AddHrd(b, true, 2);
    b.ue(1).u(1, 0);
    AddHrd(b, false, 1);
    b.ue(2).u(1, 1);
    AddHrd(b, true, 1);
  };
  const Bytes unit = Escaped(Vps(parts));
  TracedUnit trace =
      Made(TraceWith("hevc_vps_hrd.hevc", {unit}), "Video Parameter Set", "vps_video_parameter_set_id");
  auto vps = ReadVps(unit);
  EXPECT_THAT(vps.messages, IsEmpty());
  EXPECT_EQ(vps.result, Unescaped(unit).size());
  // Of the traced structures the record has the last index and the last common information flag.
  size_t structures = 0;
  size_t passed = 0;
  std::erase_if(trace.elements, [&](TracedElement& element) {
    const std::string name = element.name.substr(0, element.name.find('['));
    if (name == "hrd_layer_set_idx") {
      EXPECT_EQ(element.value, static_cast<int64_t>(structures));
      ++structures;
      element.name = name;
    }
    if (name == "cprms_present_flag") element.name = name;
    const bool kept = PlacesOf(32).contains(name) || kNotKept.contains(name) ||
                      name == "general_profile_compatibility_flag" || name.starts_with("general_");
    passed += kept ? 0 : 1;
    return !kept;
  });
  EXPECT_EQ(structures, 3u);
  EXPECT_GT(passed, 40u) << "the elements that are read past";
  Compare(trace, Words(vps.record()), 32, "");
}

// The standard has one flag pair more in a predicted set than the reader takes, and derives the counts that
// the next set of a chain goes by; here they stay 0. Everything in front is right, everything behind is read
// from other bits, and the end of the unit tells.
TEST(HevcStream, AChainOfPredictedSetsIsReadFromOtherBits) {
  SpsParts parts;
  parts.id = 1;
  parts.shortTerm = [](BitBuilder& b) {
    b.ue(3);
    b.ue(2).ue(0).ue(0).u(1, 1).ue(0).u(1, 1);
    b.u(1, 1).u(1, 1).ue(0).u(1, 1).u(1, 1).u(1, 1);                  // two pictures and one pair more
    b.u(1, 1).u(1, 1).ue(0).u(1, 1).u(1, 1).u(1, 0).u(1, 0).u(1, 1);  // three pictures by now
  };
  const Bytes unit = Escaped(Sps(parts));
  const TracedUnit trace =
      Made(TraceWith("hevc_chain.hevc", {unit}), "Sequence Parameter Set", "sps_seq_parameter_set_id");
  auto sps = ReadSps(unit);
  const HevcSpsRecord& r = sps.record();
  Compare(trace, Words(r), 33, "num_short_term_ref_pic_sets");

  // The reader's own form, a bit at a time from where the independent reader finds the first predicted set.
  PlainBits bits{Unescaped(unit)};
  for (const TracedElement& element : trace.elements) {
    if (element.name.starts_with("delta_poc_s0_minus1")) {
      bits.position = static_cast<size_t>(element.position);  // of the last picture of set 0
    }
  }
  EXPECT_EQ(r.st_ref_pic_set[0].num_negative_pics, 2u);
  EXPECT_EQ(r.st_ref_pic_set[0].delta_poc_s0_minus1[1], bits.ue());
  EXPECT_EQ(r.st_ref_pic_set[0].used_by_curr_pic_s0_flag[1], bits.bit());
  const HevcShortTermRps& middle = r.st_ref_pic_set[1];
  EXPECT_EQ(middle.inter_ref_pic_set_prediction_flag, bits.bit());
  EXPECT_EQ(middle.delta_rps_sign, bits.bit());
  EXPECT_EQ(middle.abs_delta_rps_minus1, bits.ue());
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(middle.used_by_curr_pic_flag[i], bits.bit());
    if (middle.used_by_curr_pic_flag[i] == 0) {
      EXPECT_EQ(middle.use_delta_flag[i], bits.bit());
    }
  }
  const HevcShortTermRps& last = r.st_ref_pic_set[2];
  EXPECT_EQ(last.inter_ref_pic_set_prediction_flag, bits.bit());
  ASSERT_EQ(last.inter_ref_pic_set_prediction_flag, 1u);
  EXPECT_EQ(bits.ue(), 0u) << "delta_idx_minus1: the set in front";
  EXPECT_EQ(last.delta_rps_sign, bits.bit());
  EXPECT_EQ(last.abs_delta_rps_minus1, bits.ue());
  EXPECT_EQ(middle.num_negative_pics + middle.num_positive_pics, 0u) << "so no flags follow";
  EXPECT_EQ(r.long_term_ref_pics_present_flag, bits.bit());
  EXPECT_EQ(sps.bitPos, unit.size() * 8);
  EXPECT_EQ(sps.messages.size(), 1u);
}

TEST(HevcStream, TheWritersScanLeavesARawPatternNearTheEnd) {
  const auto units = SplitByteStream(ReadFile(HevcStream(kHevcRecipes[0])));
  const Bytes unit = FirstUnit(units, 33);
  auto sps = ReadSps(unit);
  const Bytes written = WriteSps(sps.record());
  EXPECT_EQ(ToHex(written), ToHex(WriterEscaped(Unescaped(unit))));
  EXPECT_NE(ToHex(written), ToHex(unit)) << "five escapes in the source, of which the last is not reached";
}

}  // namespace
}  // namespace qln::test
