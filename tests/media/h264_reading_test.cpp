// H.264 streams read: every element of sets and slice headers against what ffmpeg's trace_headers reads.

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <span>

#include "media/h264_streams.h"
#include "qlnutil/h264/record_fields.h"

namespace qln::test {
namespace {

// A record's word by the trace's name. Elements whose index the record does not have hold their last value.
template <class Record>
const int64_t* WordOf(const Record& record, std::span<const RecordField> fields, std::string name) {
  static int64_t value;
  static const std::map<std::string, std::string> kNames = {
      {"gaps_in_frame_num_allowed_flag", "gaps_in_frame_num_value_allowed_flag"},
      {"ref_pic_list_modification_flag_l0", "ref_pic_list_reordering_flag_l0"},
      {"ref_pic_list_modification_flag_l1", "ref_pic_list_reordering_flag_l1"},
      {"modification_of_pic_nums_idc", "reordering_of_pic_nums_idc"},
  };
  std::vector<uint32_t> indices;
  std::string base = name.substr(0, name.find('['));
  for (size_t at = name.find('['); at != std::string::npos; at = name.find('[', at + 1)) {
    indices.push_back(static_cast<uint32_t>(std::stoul(name.substr(at + 1))));
  }
  if (kNames.count(base) != 0) base = kNames.at(base);
  for (const RecordField& field : fields) {
    // The schedules of an HRD are fields of their own: "nal_hrd.schedule[1].cbr_flag".
    if (name != field.name && base != field.name) continue;
    uint32_t index = 0;
    if (field.count == 128 && indices.size() == 2) {
      index = indices[0] * 2 + indices[1];
    } else if (field.count > 1 && indices.size() == 1) {
      index = indices[0];
    }
    if (index >= field.count) return nullptr;
    uint32_t word;
    std::memcpy(&word, reinterpret_cast<const uint8_t*>(&record) + 4 * (field.word + index), 4);
    value = field.isSigned ? int64_t{static_cast<int32_t>(word)} : int64_t{word};
    return &value;
  }
  return nullptr;
}

// The names under which the records hold a traced set's elements; scaling list entries are left to the
// caller.
std::vector<TracedElement> SetElements(const TracedUnit& unit) {
  static const char* const kHrd[] = {"cpb_cnt_minus1",
                                     "bit_rate_scale",
                                     "cpb_size_scale",
                                     "initial_cpb_removal_delay_length_minus1",
                                     "cpb_removal_delay_length_minus1",
                                     "dpb_output_delay_length_minus1",
                                     "time_offset_length"};
  static const char* const kSchedule[] = {"bit_rate_value_minus1[", "cpb_size_value_minus1[", "cbr_flag["};
  std::string hrd;
  std::vector<TracedElement> elements;
  for (TracedElement element : unit.elements) {
    // A PPS has 8 lists at most here; behind them the 12 of chroma format 3 are out of step.
    if (element.name == "pic_scaling_list_present_flag[8]") break;
    if (element.name == "nal_hrd_parameters_present_flag") hrd = "nal_hrd.";
    if (element.name == "vcl_hrd_parameters_present_flag") hrd = "vcl_hrd.";
    for (const char* name : kHrd) {
      if (element.name == name) element.name = hrd + name;
    }
    for (const char* name : kSchedule) {
      if (!StartsWith(element.name, name)) continue;
      const std::string index = element.name.substr(std::strlen(name));
      element.name = hrd + "schedule[" + index + "." + std::string(name, std::strlen(name) - 1);
    }
    if (!StartsWith(element.name, "delta_scale") && element.name != "rbsp_alignment_zero_bit") {
      elements.push_back(element);
    }
  }
  return elements;
}

template <class Record>
void CompareSet(const Record& record, std::span<const RecordField> fields, const TracedUnit& traced) {
  size_t compared = 0;
  for (const TracedElement& element : SetElements(traced)) {
    const int64_t* const word = WordOf(record, fields, element.name);
    ASSERT_NE(word, nullptr) << element.name;
    EXPECT_EQ(*word, element.value) << element.name;
    ++compared;
  }
  EXPECT_GT(compared, 15u);
}

// The lists as clause 7.3.2.1.1.1 decodes them from the traced deltas, without default matrices.
template <class Record>
void CompareScalingLists(const Record& record, const TracedUnit& traced, const std::string& flagName) {
  size_t at = 0;
  for (; at < traced.elements.size(); ++at) {
    const TracedElement& flag = traced.elements[at];
    if (flag.name == "pic_scaling_list_present_flag[8]") return;
    if (!StartsWith(flag.name, flagName.c_str()) || flag.value == 0) continue;
    const size_t list = std::stoul(flag.name.substr(flagName.size() + 1));
    const size_t size = list < 6 ? 16 : 64;
    int64_t last = 8;
    int64_t next = 8;
    for (size_t i = 0; i < size; ++i) {
      if (next != 0) next = (last + traced.elements.at(++at).value + 256) % 256;
      last = next == 0 ? last : next;
      EXPECT_EQ(list < 6 ? record.ScalingList4x4[list][i] : record.ScalingList8x8[list - 6][i], last);
    }
  }
}

TEST(H264Streams, ParameterSetsAreReadElementByElement) {
  EXPECT_GE(std::size(kEncodes), 30u);
  for (const Encode& encode : kEncodes) {
    SCOPED_TRACE(encode.name);
    const std::string file = File(encode);
    const std::vector<TracedUnit> trace = TraceHeaders(file);
    const std::vector<Bytes> sps = Units(file, {7});
    const std::vector<Bytes> pps = Units(file, {8});
    const std::vector<TracedUnit> tracedSps = Traced(trace, "Sequence Parameter Set", sps.size());
    const std::vector<TracedUnit> tracedPps = Traced(trace, "Picture Parameter Set", pps.size());
    ASSERT_FALSE(sps.empty());
    ASSERT_EQ(tracedSps.size(), sps.size());
    ASSERT_EQ(tracedPps.size(), pps.size());
    for (size_t i = 0; i < sps.size(); ++i) {
      const auto parsed = Read<H264SpsRecord>(qlnutilRead_SPS, sps[i]);
      CompareSet(parsed.record, kH264SpsFields, tracedSps[i]);
      CompareScalingLists(parsed.record, tracedSps[i], "seq_scaling_list_present_flag");
      if (!tracedSps[i].has("bit_depth_luma_minus8")) {
        EXPECT_EQ(parsed.record.bit_depth_luma_minus8, 8u);
        EXPECT_EQ(parsed.record.chroma_format_idc, 1u);
      }
    }
    for (size_t i = 0; i < pps.size(); ++i) {
      const auto parsed = Read<H264PpsRecord>(qlnutilRead_PPS, pps[i]);
      CompareSet(parsed.record, kH264PpsFields, tracedPps[i]);
      CompareScalingLists(parsed.record, tracedPps[i], "pic_scaling_list_present_flag");
      EXPECT_EQ(parsed.record.more_rbsp_data_present, tracedPps[i].has("transform_8x8_mode_flag") ? 1u : 0u);
    }
  }
}

// The elements that the walk reads in step with the standard, the last value of each.
std::map<std::string, int64_t> SliceElements(const TracedUnit& unit, const H264PpsRecord& pps) {
  std::map<std::string, int64_t> values;
  const bool isP = unit.value("slice_type") % 5 == 0;
  const bool defaultCount =
      unit.value("num_ref_idx_active_override_flag") == 0 && pps.num_ref_idx_l0_default_active_minus1 != 0;
  for (const TracedElement& element : unit.elements) {
    if (element.name == "adaptive_ref_pic_marking_mode_flag") break;  // marking is not parsed
    if (element.name == "no_output_of_prior_pics_flag" || element.name == "long_term_reference_flag")
      continue;
    // The weight table runs on the record's count.
    if (isP && defaultCount && StartsWith(element.name, "luma_weight_l0_flag")) break;
    if (element.name == "cabac_alignment_one_bit" || StartsWith(element.name, "rbsp")) continue;
    const bool isArray =
        StartsWith(element.name, "luma_weight_l0[") || StartsWith(element.name, "luma_offset_l0[") ||
        StartsWith(element.name, "chroma_weight_l0[") || StartsWith(element.name, "chroma_offset_l0[");
    values[isArray ? element.name : element.name.substr(0, element.name.find('['))] = element.value;
  }
  return values;
}

TEST(H264Streams, SliceHeadersAreReadWhereTheyRunInStep) {
  size_t slices = 0;
  size_t elements = 0;
  for (const Encode& encode : kEncodes) {
    SCOPED_TRACE(encode.name);
    const std::string file = File(encode);
    const H264SpsRecord sps = Read<H264SpsRecord>(qlnutilRead_SPS, Units(file, {7}).at(0)).record;
    const std::vector<Bytes> ppsUnits = Units(file, {8});
    const std::vector<Bytes> units = Units(file, {1, 5});
    const std::vector<TracedUnit> traced = Traced(TraceHeaders(file), "Slice Header", units.size());
    ASSERT_EQ(traced.size(), units.size());
    for (size_t i = 0; i < units.size(); ++i) {
      H264PpsRecord pps{};
      for (const Bytes& unit : ppsUnits) {
        pps = Read<H264PpsRecord>(qlnutilRead_PPS, unit).record;
        if (int64_t{pps.pic_parameter_set_id} == traced[i].value("pic_parameter_set_id")) break;
      }
      test::ExactCopy copy(units[i]);
      QLNBitState state{copy.data(), static_cast<int32_t>(units[i].size()), 0, 0};
      H264SliceHeaderRecord header{};
      const uint32_t first =
          qlnutilRead_SliceHeader(&state, &header, &sps, &pps, units[i][0] % 32, units[i][0] / 32 % 4);
      EXPECT_EQ(int64_t{first}, traced[i].value("first_mb_in_slice"));
      for (const auto& [name, value] : SliceElements(traced[i], pps)) {
        const int64_t* const word = WordOf(header, kH264SliceHeaderFields, name);
        ASSERT_NE(word, nullptr) << name;
        EXPECT_EQ(*word, value) << name << " of slice " << i;
        ++elements;
      }
      ++slices;
    }
  }
  EXPECT_GT(slices, 400u);
  EXPECT_GT(elements, 4000u);
}

}  // namespace
}  // namespace qln::test
