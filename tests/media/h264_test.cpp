// H.264 streams of x264 in many settings: every element against what ffmpeg's trace_headers reads, sets read
// and written back, and units put in front of real frames.

#include "qlnutil/qlnh264.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <span>

#include "qlnutil/h264/record_fields.h"
#include "support/media.h"

namespace qln {
namespace {

using test::Bytes;
using test::MediaFile;
using test::SplitByteStream;
using test::TracedElement;
using test::TracedUnit;
using test::TraceHeaders;

struct Encode {
  const char* name;
  const char* source;   // of the test picture
  const char* options;  // of the encoder
};

const char* const kSmall = "testsrc=size=64x64:rate=25,format=yuv420p";

const Encode kEncodes[] = {
    {"baseline", kSmall, "-profile:v baseline"},
    {"baseline_slices", kSmall, "-profile:v baseline -x264-params slices=4"},
    {"main_cavlc", kSmall, "-profile:v main -x264-params cabac=0"},
    {"main_cabac", kSmall, "-profile:v main -x264-params bframes=2"},
    {"high", kSmall, "-profile:v high"},
    {"high_no8x8", kSmall, "-x264-params 8x8dct=0"},
    {"high_cavlc", kSmall, "-x264-params cabac=0:bframes=3"},
    {"high_intra", kSmall, "-x264-params keyint=1"},
    {"high_422", "testsrc=size=64x64:rate=25,format=yuv422p", "-profile:v high422"},
    {"high_444", "testsrc=size=64x64:rate=25,format=yuv444p", "-profile:v high444"},
    {"lossless_444", "testsrc=size=64x64:rate=25,format=yuv444p", "-qp 0"},
    {"lossless_420", kSmall, "-qp 0"},
    {"high_10", "testsrc=size=64x64:rate=25,format=yuv420p10le", "-profile:v high10"},
    {"high_422_10", "testsrc=size=64x64:rate=25,format=yuv422p10le", "-profile:v high422"},
    {"high_422_10_intra", "testsrc=size=64x64:rate=25,format=yuv422p10le", "-x264-params keyint=1"},
    {"gray", "testsrc=size=64x64:rate=25,format=gray", ""},
    {"tff", kSmall, "-x264-params tff=1"},
    {"bff", kSmall, "-x264-params bff=1:bframes=2"},
    {"mbaff_cavlc", kSmall, "-x264-params tff=1:cabac=0"},
    {"fake_interlaced", kSmall, "-x264-params fake-interlaced=1"},
    {"cropped", "testsrc=size=70x50:rate=25,format=yuv420p", ""},
    {"cropped_422", "testsrc=size=90x54:rate=25,format=yuv422p", ""},
    {"cropped_interlaced", "testsrc=size=66x68:rate=25,format=yuv420p", "-x264-params tff=1"},
    {"hrd_vbr", kSmall, "-x264-params nal-hrd=vbr:vbv-maxrate=500:vbv-bufsize=800"},
    {"hrd_cbr", kSmall, "-b:v 200k -x264-params nal-hrd=cbr:vbv-maxrate=200:vbv-bufsize=300"},
    {"hrd_pic_struct", kSmall, "-x264-params nal-hrd=vbr:vbv-maxrate=900:vbv-bufsize=950:pic-struct=1"},
    {"hrd_interlaced", kSmall, "-x264-params nal-hrd=vbr:vbv-maxrate=600:vbv-bufsize=700:tff=1"},
    {"full_vui", kSmall,
     "-x264-params sar=16/11:overscan=crop:videoformat=pal:fullrange=on:colorprim=bt709:transfer=bt709:"
     "colormatrix=bt709:chromaloc=2"},
    {"vui_2020", kSmall, "-x264-params colorprim=bt2020:transfer=smpte2084:colormatrix=bt2020nc"},
    {"odd_sar", kSmall, "-x264-params sar=1234/567:overscan=show"},
    {"film_rate", "testsrc=size=64x64:rate=24000/1001,format=yuv420p", ""},
    {"high_rate", "testsrc=size=64x64:rate=60000/1001,format=yuv420p", "-x264-params force-cfr=1"},
    {"scaling_jvt", kSmall, "-x264-params cqm=jvt"},
    {"scaling_own", kSmall, "-x264-params cqm4=17,18,19,20,21,22,23,24,25,26,27,28,29,30,31,32"},
    {"scaling_444", "testsrc=size=64x64:rate=25,format=yuv444p", "-x264-params cqm=jvt"},
    {"slices", kSmall, "-x264-params slices=3:bframes=1"},
    {"slice_sizes", kSmall, "-x264-params slice-max-size=200"},
    {"b_pyramid", kSmall, "-x264-params bframes=5:b-pyramid=normal:ref=4"},
    {"b_strict", kSmall, "-x264-params bframes=5:b-pyramid=strict:ref=4"},
    {"weighted", "testsrc=size=64x64:rate=25,format=yuv420p,fade=in:0:8", "-x264-params weightp=2:ref=3"},
    {"weighted_none", kSmall, "-x264-params weightp=0:weightb=0"},
    {"intra_refresh", kSmall, "-x264-params intra-refresh=1:keyint=5"},
    {"open_gop", kSmall, "-x264-params open-gop=1:keyint=4:bframes=2"},
    {"constrained_intra", kSmall, "-x264-params constrained-intra=1"},
    {"deblock", kSmall, "-x264-params deblock=-2,3"},
    {"no_deblock", kSmall, "-x264-params no-deblock=1"},
    {"many_refs", kSmall, "-x264-params ref=8:keyint=250"},
    {"sps_id", kSmall, "-x264-params sps-id=5"},
    {"stitchable", kSmall, "-x264-params stitchable=1"},
    {"bluray", kSmall, "-x264-params bluray-compat=1:nal-hrd=vbr:vbv-maxrate=900:vbv-bufsize=950"},
    {"zerolatency", kSmall, "-tune zerolatency"},
    {"dense_idr", kSmall, "-x264-params keyint=2:min-keyint=1"},
};

std::string File(const Encode& encode) {
  return MediaFile(std::string("h264_") + encode.name + ".264",
                   std::string("ffmpeg -hide_banner -v error -nostdin -f lavfi -i '") + encode.source +
                       "' -frames:v 8 -c:v libx264 -threads 1 " + encode.options + " -f h264 {out}");
}

std::vector<Bytes> Units(const std::string& file, std::initializer_list<uint32_t> types) {
  std::vector<Bytes> found;
  for (const Bytes& unit : SplitByteStream(test::ReadFile(file))) {
    for (const uint32_t type : types) {
      if (!unit.empty() && unit[0] % 32u == type) found.push_back(unit);
    }
  }
  return found;
}

// The traced units of one kind that stand in the stream itself, behind those of the extradata.
std::vector<TracedUnit> Traced(const std::vector<TracedUnit>& all, const std::string& heading, size_t count) {
  std::vector<TracedUnit> units;
  for (const TracedUnit& unit : all) {
    if (unit.heading == heading) units.push_back(unit);
  }
  EXPECT_GE(units.size(), count) << heading;
  if (units.size() > count) units.erase(units.begin(), units.end() - static_cast<std::ptrdiff_t>(count));
  return units;
}

template <class Record>
struct Parsed {
  Record record;
  uint64_t result;
};

template <class Record, class Function>
Parsed<Record> Read(Function function, const Bytes& unit) {
  Parsed<Record> parsed{};
  test::ExactCopy copy(unit);
  QLNBitState state{copy.data(), static_cast<int32_t>(unit.size()), static_cast<uint32_t>(unit.size() * 8),
                    0};
  parsed.result = function(&state, &parsed.record);
  return parsed;
}

template <class Record, class Function>
Bytes Write(Function function, const Record& record) {
  Bytes bytes(4096);
  QLNBitState state{bytes.data(), 1024, 8192, 0};
  bytes.resize(function(&state, &record));
  return bytes;
}

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

bool StartsWith(const std::string& text, const char* start) { return text.rfind(start, 0) == 0; }

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

// Rewrites by ffmpeg's own writer.
const char* const kRewrites[] = {
    "sample_aspect_ratio=4/3",
    "overscan_appropriate_flag=1",
    "video_format=2:video_full_range_flag=1",
    "colour_primaries=9:transfer_characteristics=16:matrix_coefficients=9",
    "chroma_sample_loc_type=3",
    "tick_rate=60000/1001",
    "crop_left=2:crop_right=4:crop_top=4:crop_bottom=4",
    "level=5.1",
};

void ExpectSetsToSurvive(const std::string& file) {
  for (const Bytes& unit : Units(file, {7})) {
    const H264SpsRecord sps = Read<H264SpsRecord>(qlnutilRead_SPS, unit).record;
    if (sps.seq_scaling_matrix_present_flag == 0) {
      EXPECT_EQ(test::ToHex(Write(qlnutilWrite_SPS, sps)), test::ToHex(unit));
      continue;
    }
    // Only the lists change, and they do.
    const H264SpsRecord again = Read<H264SpsRecord>(qlnutilRead_SPS, Write(qlnutilWrite_SPS, sps)).record;
    H264SpsRecord restored = again;
    std::memcpy(restored.ScalingList4x4, sps.ScalingList4x4, sizeof sps.ScalingList4x4);
    std::memcpy(restored.ScalingList8x8, sps.ScalingList8x8, sizeof sps.ScalingList8x8);
    EXPECT_EQ(std::memcmp(&restored, &sps, sizeof sps), 0);
    EXPECT_NE(std::memcmp(&again, &sps, sizeof sps), 0);
  }
  for (const Bytes& unit : Units(file, {8})) {
    const H264PpsRecord pps = Read<H264PpsRecord>(qlnutilRead_PPS, unit).record;
    // A matrix whose lists all fall back has no entries that could change.
    const bool hasLists =
        pps.pic_scaling_matrix_present_flag != 0 &&
        std::any_of(std::begin(pps.pic_scaling_list_present_flag),
                    std::end(pps.pic_scaling_list_present_flag), [](uint32_t flag) { return flag != 0; });
    if (!hasLists) {
      EXPECT_EQ(test::ToHex(Write(qlnutilWrite_PPS, pps)), test::ToHex(unit));
      continue;
    }
    const H264PpsRecord again = Read<H264PpsRecord>(qlnutilRead_PPS, Write(qlnutilWrite_PPS, pps)).record;
    H264PpsRecord restored = again;
    std::memcpy(restored.ScalingList4x4, pps.ScalingList4x4, sizeof pps.ScalingList4x4);
    std::memcpy(restored.ScalingList8x8, pps.ScalingList8x8, sizeof pps.ScalingList8x8);
    EXPECT_EQ(std::memcmp(&restored, &pps, sizeof pps), 0);
    EXPECT_NE(std::memcmp(&again, &pps, sizeof pps), 0);
  }
}

TEST(H264Streams, ParameterSetsSurviveAReadAndAWrite) {
  size_t streams = 0;
  size_t index = 0;
  for (const Encode& encode : kEncodes) {
    SCOPED_TRACE(encode.name);
    const std::string file = File(encode);
    ExpectSetsToSurvive(file);
    ++streams;
    const std::string rewrite = kRewrites[index++ % std::size(kRewrites)];
    SCOPED_TRACE(rewrite);
    ExpectSetsToSurvive(MediaFile(std::string("h264_") + encode.name + "_rewritten.264",
                                  "ffmpeg -hide_banner -v error -nostdin -i '" + file +
                                      "' -c copy -bsf:v h264_metadata=" + rewrite + " -f h264 {out}"));
    ++streams;
  }
  EXPECT_GE(streams, 60u);
}

// Entries of scaling lists are written as they stand: an independent reader finds them in the place of the
// differences, and every other element as it was.
TEST(H264Streams, RewrittenScalingListsHoldTheirEntriesAsDifferences) {
  size_t entries = 0;
  for (const Encode& encode : kEncodes) {
    if (!StartsWith(encode.name, "scaling") || std::string(encode.name) == "scaling_444") continue;
    SCOPED_TRACE(encode.name);
    const std::string file = File(encode);
    Bytes stream;
    std::vector<H264PpsRecord> sets;
    for (const Bytes& unit : SplitByteStream(test::ReadFile(file))) {
      const bool isPps = unit[0] % 32u == 8;
      if (isPps) sets.push_back(Read<H264PpsRecord>(qlnutilRead_PPS, unit).record);
      stream = test::Join({stream, test::WithStartCode(isPps ? Write(qlnutilWrite_PPS, sets.back()) : unit)});
    }
    const std::string rewritten = test::MediaPath(std::string("h264_") + encode.name + "_lists.264");
    test::WriteFile(rewritten, stream);
    const auto before = Traced(TraceHeaders(file), "Picture Parameter Set", sets.size());
    const auto after = Traced(TraceHeaders(rewritten), "Picture Parameter Set", sets.size());
    ASSERT_EQ(before.size(), sets.size());
    ASSERT_EQ(after.size(), sets.size());
    for (size_t i = 0; i < sets.size(); ++i) {
      const int32_t* entry = nullptr;
      std::vector<std::pair<std::string, int64_t>> kept;
      for (const TracedElement& element : after[i].elements) {
        if (StartsWith(element.name, "delta_scale")) {
          ASSERT_NE(entry, nullptr);
          EXPECT_EQ(element.value, *entry++);
          ++entries;
          continue;
        }
        kept.emplace_back(element.name, element.value);
        if (!StartsWith(element.name, "pic_scaling_list_present_flag[")) continue;
        const size_t list = std::stoul(element.name.substr(element.name.find('[') + 1));
        entry = list < 6 ? sets[i].ScalingList4x4[list] : sets[i].ScalingList8x8[list - 6];
      }
      std::vector<std::pair<std::string, int64_t>> expected;
      for (const TracedElement& element : before[i].elements) {
        if (!StartsWith(element.name, "delta_scale")) expected.emplace_back(element.name, element.value);
      }
      // The padding behind the longer lists may differ.
      const auto unpadded = [](auto& list) {
        while (!list.empty() && list.back().first == "rbsp_alignment_zero_bit") list.pop_back();
      };
      unpadded(kept);
      unpadded(expected);
      EXPECT_EQ(kept, expected);
    }
  }
  EXPECT_GT(entries, 100u);
}

uint32_t Number32(const Bytes& bytes, size_t at) {
  return uint32_t{bytes[at]} << 24 | uint32_t{bytes[at + 1]} << 16 | uint32_t{bytes[at + 2]} << 8 |
         bytes[at + 3];
}

// An MP4 file with its avcC box exchanged, and the sizes of all boxes around it.
Bytes WithOtherAvcc(Bytes file, const Bytes& box) {
  // Bytes of each box in front of its children.
  static const std::map<std::string, size_t> kHeads = {{"moov", 8}, {"trak", 8},  {"mdia", 8}, {"minf", 8},
                                                       {"stbl", 8}, {"stsd", 16}, {"avc1", 86}};
  size_t at = 0;
  size_t end = file.size();
  std::vector<size_t> around;
  while (at + 8 <= end) {
    const size_t size = Number32(file, at);
    const std::string type(file.begin() + static_cast<std::ptrdiff_t>(at + 4),
                           file.begin() + static_cast<std::ptrdiff_t>(at + 8));
    if (type == "avcC") {
      around.push_back(at);
      for (const size_t outer : around) {
        const size_t grown = Number32(file, outer) + box.size() - size;
        for (size_t i = 0; i < 4; ++i) file[outer + i] = static_cast<uint8_t>(grown >> (24 - 8 * i));
      }
      const auto begin = file.begin() + static_cast<std::ptrdiff_t>(at);
      file.erase(begin, begin + static_cast<std::ptrdiff_t>(size));
      file.insert(file.begin() + static_cast<std::ptrdiff_t>(at), box.begin(), box.end());
      return file;
    }
    if (kHeads.count(type) != 0) {
      around.push_back(at);
      end = at + size;
      at += kHeads.at(type);
    } else if (size < 8) {
      break;
    } else {
      at += size;
    }
  }
  ADD_FAILURE() << "no avcC";
  return file;
}

// A box built from a frame whose SPS and PPS have one size (zero bytes behind the PPS make up for the
// difference) stands in for the muxer's own.
TEST(H264Streams, ABuiltBoxIsTakenByAnIndependentReader) {
  for (const char* const name :
       {"baseline", "baseline_slices", "zerolatency", "high_intra", "high_422_10_intra"}) {
    SCOPED_TRACE(name);
    const Encode* encode = std::find_if(std::begin(kEncodes), std::end(kEncodes),
                                        [&](const Encode& e) { return std::string(e.name) == name; });
    const std::string stream = File(*encode);
    // No picture is reordered, as a byte stream has no times to restore. The index stands behind the
    // pictures, so that nothing in it moves with its size.
    const std::string file =
        MediaFile(std::string("h264_box_") + name + ".mp4",
                  "ffmpeg -hide_banner -v error -nostdin -i '" + stream + "' -c copy -an -f mp4 {out}");
    const Bytes sps = Units(stream, {7}).at(0);
    Bytes pps = Units(stream, {8}).at(0);
    ASSERT_LE(pps.size(), sps.size());
    pps.resize(sps.size(), 0);
    Bytes content = test::Join(
        {test::WithLength(sps), test::WithLength(pps), test::WithLength(Units(stream, {5}).at(0))});
    DFrame frame{};
    frame.frameData = content.data();
    frame.frameSize = static_cast<uint32_t>(content.size());
    Bytes box(14 + 2 + sps.size() + 3 + sps.size());
    ASSERT_EQ(qlnutilGetAvcc(&frame, box.data()), box.size());

    const std::string patched = test::MediaPath(std::string("h264_box_") + name + "_built.mp4");
    test::WriteFile(patched, WithOtherAvcc(test::ReadFile(file), box));
    const auto pictures = [](const std::string& path) {
      return test::Run("ffmpeg -hide_banner -v warning -nostdin -i '" + path +
                       "' -map 0:v:0 -fps_mode passthrough -f framemd5 - | grep -v '^#' | cut -d, -f6")
          .output;
    };
    const std::string expected = pictures(file);
    EXPECT_EQ(std::count(expected.begin(), expected.end(), '\n'), 8) << expected;
    EXPECT_EQ(pictures(patched), expected);
    const auto profile = test::Run(
        "ffprobe -v error -show_entries stream=profile,level,width,height,extradata_size "
        "-of csv=p=0 '" +
        patched + "'");
    EXPECT_NE(profile.output.find(std::to_string(box.size() - 8)), std::string::npos) << profile.output;
  }
}

// Units in front of real frames: the pictures are the same, nothing is complained about, and the values that
// went in are read back.
TEST(H264Streams, AddedUnitsDecodeQuietlyAndReadBack) {
  const std::string file = MediaFile(
      "h264_for_units.264",
      std::string("ffmpeg -hide_banner -v error -nostdin -f lavfi -i '") + kSmall +
          "' -frames:v 12 -c:v libx264 -threads 1 -x264-params "
          "keyint=4:bframes=0:nal-hrd=vbr:vbv-maxrate=900:vbv-bufsize=950:pic-struct=1 -f h264 {out}");
  const std::vector<Bytes> units = Units(file, {1, 5, 7, 8});
  const Bytes spsUnit = Units(file, {7}).at(0);
  Bytes plain;
  Bytes stream;
  Bytes pending;
  uint32_t pictures = 0;
  uint32_t intra = 0;
  for (const Bytes& unit : units) {
    pending = test::Join({pending, test::WithLength(unit)});
    const uint32_t type = unit[0] % 32u;
    if (type != 1 && type != 5) continue;
    const uint32_t size = static_cast<uint32_t>(pending.size());
    pending.resize(size + 512);
    DFrame frame{};
    frame.frameType = type == 5 ? 0x10000000u : 0x80000000u;
    frame.frameData = pending.data();
    frame.frameSize = size;
    frame.frameCapacity = size + 512;
    const uint8_t sei = pictures != 0;
    qlnutilAddNalUnits(&frame, spsUnit.data(), static_cast<int32_t>(spsUnit.size()), 1, sei, sei, sei, 4321,
                       99, 2 * pictures, 2, 1);
    EXPECT_GT(frame.frameSize, size);
    EXPECT_EQ(qlnUtilh264SizeToMarker(frame.frameData, frame.frameSize), frame.frameSize);
    stream.insert(stream.end(), pending.begin(), pending.begin() + frame.frameSize);
    pending.clear();
    intra += type == 5 && sei != 0;
    ++pictures;
  }
  ASSERT_EQ(pictures, 12u);
  ASSERT_EQ(intra, 2u);
  const std::string added = test::MediaPath("h264_units_added.264");
  test::WriteFile(added, stream);

  const std::string decode =
      "ffmpeg -hide_banner -v warning -nostdin -i '%' -f framemd5 - | grep -v '^#' | cut -d, -f6";
  const auto pixels = [&](const std::string& path) {
    std::string command = decode;
    command.replace(command.find('%'), 1, path);
    return test::Run(command).output;
  };
  EXPECT_EQ(pixels(added), pixels(file));

  const std::vector<TracedUnit> trace = TraceHeaders(added);
  std::map<std::string, std::vector<int64_t>> seen;
  for (const TracedUnit& unit : trace) {
    for (const TracedElement& element : unit.elements) {
      seen[element.name.substr(0, element.name.find('['))].push_back(element.value);
    }
  }
  EXPECT_EQ(seen["initial_cpb_removal_delay"], (std::vector<int64_t>{4321, 4321}));
  EXPECT_EQ(seen["initial_cpb_removal_delay_offset"], (std::vector<int64_t>{99, 99}));
  EXPECT_EQ(seen["recovery_frame_cnt"], (std::vector<int64_t>{0, 0}));
  std::vector<int64_t> delays;
  for (int64_t i = 1; i < 12; ++i) delays.push_back(2 * i);
  EXPECT_EQ(seen["cpb_removal_delay"], delays);
  EXPECT_EQ(seen["dpb_output_delay"], std::vector<int64_t>(11, 2));
  EXPECT_EQ(seen["counting_type"], std::vector<int64_t>(11, 3));
  EXPECT_EQ(seen["primary_pic_type"].size(), 12u);
}

}  // namespace
}  // namespace qln
