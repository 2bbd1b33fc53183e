// The H.264 side of `qlnmedia inspect`, read with the library as a host reads it.

#include <fmt/format.h>

#include <map>
#include <utility>

#include "inspect/codec.h"
#include "inspect/elements.h"
#include "inspect/timecode.h"
#include "qlnutil/h264/record_fields.h"
#include "qlnutil/qlnh264.h"
#include "sets/names.h"

namespace qlnmedia {

namespace {

constexpr int kSps = 7;
constexpr int kPps = 8;

// The library's readers take pointers to bytes that they never write.
QLNBitState StateOver(const Bytes& unit) {
  const auto size = static_cast<uint32_t>(unit.size());
  return {const_cast<uint8_t*>(unit.data()), static_cast<int32_t>(size), size * 8, 0};
}

// Profiles whose sets carry elements from chroma_format_idc on that the library reads.
bool IsHighProfile(uint32_t profile_idc) {
  for (const uint32_t high : {44u, 83u, 86u, 100u, 110u, 118u, 122u, 128u, 244u}) {
    if (profile_idc == high) return true;
  }
  return false;
}

// Profiles whose sets carry them too, but that are read as if they did not.
bool IsMisreadProfile(uint32_t profile_idc) {
  return profile_idc == 134 || profile_idc == 135 || profile_idc == 138 || profile_idc == 139;
}

uint32_t BitDepth(const H264SpsRecord& sps, uint32_t coded) {
  return IsHighProfile(sps.profile_idc) ? coded + 8 : coded;
}

uint32_t ConstraintSets(const H264SpsRecord& sps) {
  return (sps.constraint_set0_flag & 1) | (sps.constraint_set1_flag & 1) << 1 |
         (sps.constraint_set2_flag & 1) << 2 | (sps.constraint_set3_flag & 1) << 3 |
         (sps.constraint_set4_flag & 1) << 4 | (sps.constraint_set5_flag & 1) << 5;
}

PictureSize CodedSize(const H264SpsRecord& sps) {
  const uint64_t fieldFactor = sps.frame_mbs_only_flag == 0 ? 2 : 1;
  return {(uint64_t{sps.pic_width_in_mbs_minus1} + 1) * 16,
          (uint64_t{sps.pic_height_in_map_units_minus1} + 1) * 16 * fieldFactor};
}

// ITU-T H.264 equations 7-19 to 7-22; nothing is left of a window that crops more than there is.
PictureSize CroppedSize(const H264SpsRecord& sps) {
  PictureSize size = CodedSize(sps);
  if (sps.frame_cropping_flag == 0) return size;
  const uint32_t chroma = sps.separate_colour_plane_flag != 0 ? 0 : sps.chroma_format_idc;
  const uint64_t unitX = chroma == 1 || chroma == 2 ? 2 : 1;
  const uint64_t unitY = uint64_t{chroma == 1 ? 2u : 1u} * (sps.frame_mbs_only_flag == 0 ? 2 : 1);
  const uint64_t cutX = unitX * (uint64_t{sps.frame_crop_left_offset} + sps.frame_crop_right_offset);
  const uint64_t cutY = unitY * (uint64_t{sps.frame_crop_top_offset} + sps.frame_crop_bottom_offset);
  return {cutX < size.width ? size.width - cutX : 0, cutY < size.height ? size.height - cutY : 0};
}

void AddSpsFacts(Section& section, const H264SpsRecord& sps) {
  section.Add("profile", "Profile", H264ProfileName(sps.profile_idc, ConstraintSets(sps)));
  section.Add("level", "Level", H264LevelName(sps.level_idc, sps.profile_idc, sps.constraint_set3_flag == 1));
  AddPictureSize(section, "coded_size", "Coded size", CodedSize(sps));
  AddPictureSize(section, "picture_size", "Picture size", CroppedSize(sps));
  section.Add("chroma_format", "Chroma", ChromaFormatName(sps.chroma_format_idc));
  const uint32_t luma = BitDepth(sps, sps.bit_depth_luma_minus8);
  const uint32_t chroma = BitDepth(sps, sps.bit_depth_chroma_minus8);
  section.Add("bit_depth", "Bit depth", Json{{"luma", luma}, {"chroma", chroma}},
              luma == chroma ? fmt::format("{}", luma) : fmt::format("{} luma, {} chroma", luma, chroma));
  section.Add("scan", "Scan",
              sps.frame_mbs_only_flag != 0            ? "frames"
              : sps.mb_adaptive_frame_field_flag != 0 ? "fields, frames or macroblock-adaptive"
                                                      : "fields or frames");
  if (sps.vui_parameters_present_flag == 0) return;
  if (sps.aspect_ratio_info_present_flag != 0)
    AddSampleAspect(section, sps.aspect_ratio_idc, sps.sar_width, sps.sar_height);
  if (sps.timing_info_present_flag != 0)
    AddFrameRate(section, sps.time_scale, uint64_t{sps.num_units_in_tick} * 2,
                 sps.fixed_frame_rate_flag == 0 ? "not fixed" : "");
  if (sps.video_signal_type_present_flag != 0) {
    AddRange(section, sps.video_full_range_flag != 0);
    if (sps.colour_description_present_flag != 0)
      AddColour(section, sps.colour_primaries, sps.transfer_characteristics, sps.matrix_coefficients);
  }
}

// The active sets by id, as a decoder keeps them.
struct ActiveSets {
  std::map<uint32_t, H264SpsRecord> sps;
  std::map<uint32_t, H264PpsRecord> pps;

  void Take(const Bytes& unit) {
    QLNBitState state = StateOver(unit);
    if (UnitType(Codec::kH264, unit) == kSps) {
      H264SpsRecord record{};
      if (qlnutilRead_SPS(&state, &record) != 0) sps[record.seq_parameter_set_id] = record;
    } else if (UnitType(Codec::kH264, unit) == kPps) {
      H264PpsRecord record{};
      if (qlnutilRead_PPS(&state, &record) != 0) pps[record.pic_parameter_set_id] = record;
    }
  }
};

// Elements as the reader finds them in one set.
std::vector<Element> SpsElements(const Bytes& unit) {
  H264SpsRecord zeroed{};
  auto filled = FilledRecord<H264SpsRecord>();
  QLNBitState state = StateOver(unit);
  qlnutilRead_SPS(&state, &zeroed);
  state = StateOver(unit);
  qlnutilRead_SPS(&state, &filled);
  return PresentElements(qln::kH264SpsFields, &zeroed, &filled);
}

std::vector<Element> PpsElements(const Bytes& unit) {
  H264PpsRecord zeroed{};
  auto filled = FilledRecord<H264PpsRecord>();
  filled.more_rbsp_data_present = 0;
  QLNBitState state = StateOver(unit);
  qlnutilRead_PPS(&state, &zeroed);
  state = StateOver(unit);
  qlnutilRead_PPS(&state, &filled);
  return PresentElements(qln::kH264PpsFields, &zeroed, &filled);
}

void ReportSps(Section& sets, const FoundSet& set, MessageSink& messages) {
  H264SpsRecord sps{};
  auto filled = FilledRecord<H264SpsRecord>();
  QLNBitState state = StateOver(set.bytes);
  const uint64_t result = qlnutilRead_SPS(&state, &sps);
  const bool cut = state.bitPos > state.bitLength;
  state = StateOver(set.bytes);
  qlnutilRead_SPS(&state, &filled);

  Section& section = sets.AddToList("sps", fmt::format("SPS {}", sps.seq_parameter_set_id));
  section.Add("found_in", "Found in", set.places, set.Places());
  section.Add("size", "Size", set.bytes.size(), fmt::format("{} bytes", set.bytes.size()));
  if (result == 0) {
    section.AddNote("cannot be read");
    return;
  }
  AddSpsFacts(section, sps);
  std::vector<Element> elements = PresentElements(qln::kH264SpsFields, &sps, &filled);
  if (!IsHighProfile(sps.profile_idc)) {
    // Filled in by the reader, not read.
    std::erase_if(elements, [](const Element& element) {
      return element.name == "chroma_format_idc" || element.name == "bit_depth_luma_minus8" ||
             element.name == "bit_depth_chroma_minus8";
    });
  }
  for (const char* name :
       {"offset_for_non_ref_pic", "offset_for_top_to_bottom_field", "offset_for_ref_frame"})
    NoteElement(elements, name, "code number of a signed value");
  Bytes written(2 * set.bytes.size() + 256);
  QLNBitState out{written.data(), static_cast<int32_t>(written.size()), 0, 0};
  written.resize(qlnutilWrite_SPS(&out, &sps));
  AddComparison(section, Codec::kH264, set.bytes, written, SpsElements,
                sps.seq_scaling_matrix_present_flag == 1 && IsHighProfile(sps.profile_idc)
                    ? "scaling lists are written as values, not as differences"
                : sps.pic_order_cnt_type == 1 ? "picture order offsets are kept as code numbers"
                : sps.nal_hrd.cpb_cnt_minus1 == 7 || sps.vcl_hrd.cpb_cnt_minus1 == 7
                    ? "at most 8 HRD schedules are kept"
                    : "escapes near the end, or extension data");
  section.AddElements("elements", "Elements", std::move(elements));
  if (IsMisreadProfile(sps.profile_idc))
    section.AddNote(
        fmt::format("profile {} has elements behind seq_parameter_set_id that are not read: what "
                    "stands behind them is out of step",
                    sps.profile_idc));
  if (cut) section.AddNote("the unit is cut off: values behind its end are not real");
  AddMessages(section, messages);
}

void ReportPps(Section& sets, const FoundSet& set, MessageSink& messages) {
  H264PpsRecord pps{};
  auto filled = FilledRecord<H264PpsRecord>();
  filled.more_rbsp_data_present = 0;  // a word that stays set once it is
  QLNBitState state = StateOver(set.bytes);
  const uint32_t result = qlnutilRead_PPS(&state, &pps);
  const bool cut = state.bitPos > state.bitLength;
  state = StateOver(set.bytes);
  qlnutilRead_PPS(&state, &filled);

  Section& section = sets.AddToList("pps", fmt::format("PPS {}", pps.pic_parameter_set_id));
  section.Add("found_in", "Found in", set.places, set.Places());
  section.Add("size", "Size", set.bytes.size(), fmt::format("{} bytes", set.bytes.size()));
  if (result == 0) {
    section.AddNote("cannot be read");
    return;
  }
  section.Add("entropy_coding", "Entropy coding", pps.entropy_coding_mode_flag != 0 ? "CABAC" : "CAVLC");
  Bytes written(2 * set.bytes.size() + 1024);
  QLNBitState out{written.data(), static_cast<int32_t>(written.size()), 0, 0};
  written.resize(qlnutilWrite_PPS(&out, &pps));
  AddComparison(section, Codec::kH264, set.bytes, written, PpsElements,
                pps.pic_scaling_matrix_present_flag == 1
                    ? "scaling lists are written as values, not as differences"
                : pps.num_slice_groups_minus1 > 0 ? "slice group ids are not written"
                                                  : "escapes near the end, or extension data");
  section.AddElements("elements", "Elements", PresentElements(qln::kH264PpsFields, &pps, &filled));
  if (pps.num_slice_groups_minus1 > 0 && pps.slice_group_map_type == 2)
    section.AddNote(
        "slice groups of map type 2 are read with one rectangle too many: what stands behind them "
        "is out of step");
  if (cut) section.AddNote("the unit is cut off: values behind its end are not real");
  AddMessages(section, messages);
}

// The box through the library's own reader, as a host takes it.
void ReportConfiguration(Section& section, const CodedStream& stream, MessageSink& messages) {
  const ConfigRecord& config = stream.config;
  Section& record = section.AddSection("configuration", "Configuration record");
  record.Add("form", "Form", config.box ? "avcC" : config.empty() ? "none" : "start codes");
  if (!config.box) return;
  record.Add("length_bytes", "Length fields", config.framing.lengthBytes,
             fmt::format("{} bytes", config.framing.lengthBytes));
  if (config.head.size() == 5) {
    record.Add("AVCProfileIndication", "Profile", config.head[1],
               fmt::format("{} ({})", H264ProfileName(config.head[1], 0), config.head[1]));
    record.Add("profile_compatibility", "Compatibility", config.head[2],
               fmt::format("0x{:02X}", config.head[2]));
    record.Add("AVCLevelIndication", "Level", config.head[3],
               H264LevelName(config.head[3], config.head[1], (config.head[2] & 0x10) != 0));
  }
  if (!config.lists.empty()) record.Add("sps_count", "SPS", config.lists[0].units.size());
  if (config.lists.size() > 1) record.Add("pps_count", "PPS", config.lists[1].units.size());
  if (!config.problem.empty()) record.AddNote(config.problem);

  const Bytes box = WithBoxHeader(stream.privateData, "avcC");
  QLNBitState state = StateOver(box);
  H264SpsRecord sps{};
  H264PpsRecord pps{};
  const bool read = qlnutilReadAvcc(&state, &sps, &pps) == 0;
  record.Add("read_by_library", "Read by the library", read);
  if (read && sps.nal_unit_type == kSps && !config.lists.empty() && !config.lists[0].units.empty() &&
      config.head.size() == 5 && sps.profile_idc != config.head[1])
    record.AddNote(fmt::format("the record says profile {}, its SPS {}", config.head[1], sps.profile_idc));
  AddMessages(record, messages);
}

// Slice header fields that the reader is in step for: behind the reference lists it passes over reference
// marking, and the weights of B slices.
bool IsQpInStep(const H264SliceHeaderRecord& header, const H264PpsRecord& pps, int unitType,
                uint32_t refIdc) {
  const uint32_t type = header.slice_type % 5;
  if (header.slice_type > 9 || type == 3 || type == 4) return false;
  const bool weights =
      (type == 0 && pps.weighted_pred_flag != 0) || (type == 1 && pps.weighted_bipred_idc == 1);
  return type == 2 ? unitType == 5 : refIdc == 0 && !weights;
}

struct SliceFacts {
  bool known = false;  // its parameter sets are there
  H264SliceHeaderRecord header{};
  int32_t qp = 0;
  bool qpKnown = false;
};

SliceFacts ReadSlice(const Bytes& unit, ActiveSets& active) {
  SliceFacts facts;
  const int type = UnitType(Codec::kH264, unit);
  // The header names its PPS behind two numbers that need no set to be read.
  const Bytes head = Unescape(ByteSpan(unit).first(std::min<size_t>(unit.size(), 64)));
  QLNBitState state{const_cast<uint8_t*>(head.data()), static_cast<int32_t>(head.size()),
                    head.empty() ? 0 : static_cast<uint32_t>(head.size() - 1) * 8, 8};
  if (head.size() < 2) return facts;
  ReadExponentialGolombCode(&state);
  ReadExponentialGolombCode(&state);
  const auto pps = active.pps.find(ReadExponentialGolombCode(&state));
  if (pps == active.pps.end()) return facts;
  const auto sps = active.sps.find(pps->second.seq_parameter_set_id);
  if (sps == active.sps.end()) return facts;
  QLNBitState slice = StateOver(unit);
  H264PpsRecord scratch = pps->second;  // the reader stores a bit into it
  qlnutilRead_SliceHeader(&slice, &facts.header, &sps->second, &scratch, type, unit[0] >> 5 & 3);
  facts.known = true;
  facts.qpKnown = IsQpInStep(facts.header, pps->second, type, unit[0] >> 5 & 3);
  facts.qp = 26 + pps->second.pic_init_qp_minus26 + facts.header.slice_qp_delta;
  return facts;
}

std::string SliceText(const SliceFacts& slice) {
  if (!slice.known) return "its parameter sets are missing";
  std::string text =
      fmt::format("{} at macroblock {}, frame_num {}", H264SliceTypeName(slice.header.slice_type),
                  slice.header.first_mb_in_slice, slice.header.frame_num);
  if (slice.header.field_pic_flag != 0)
    text += slice.header.bottom_field_flag != 0 ? ", bottom field" : ", top field";
  if (slice.qpKnown) text += fmt::format(", QP {}", slice.qp);
  return text;
}

std::vector<Cell> UnitRow(const Unit& unit, size_t offset, ActiveSets& active) {
  const int type = UnitType(Codec::kH264, unit.bytes);
  std::string detail;
  Json slice = nullptr;
  if (IsSlice(Codec::kH264, type) && type != 3 && type != 4) {
    const SliceFacts facts = ReadSlice(unit.bytes, active);
    detail = SliceText(facts);
    if (facts.known) {
      slice = Json{{"first_mb_in_slice", facts.header.first_mb_in_slice},
                   {"slice_type", H264SliceTypeName(facts.header.slice_type)},
                   {"pic_parameter_set_id", facts.header.pic_parameter_set_id},
                   {"frame_num", facts.header.frame_num},
                   {"field_pic_flag", facts.header.field_pic_flag},
                   {"bottom_field_flag", facts.header.bottom_field_flag},
                   {"pic_order_cnt_lsb", facts.header.pic_order_cnt_lsb}};
      if (facts.qpKnown) slice["slice_qp"] = facts.qp;
    }
  } else if (type == 6) {
    detail = SeiSummary(Codec::kH264, unit.bytes);
  }
  return {Cell(offset),
          Cell(type),
          Cell(UnitTypeName(Codec::kH264, type)),
          Cell(unit.bytes.empty() ? 0 : unit.bytes[0] >> 5 & 3),
          Cell(unit.bytes.size()),
          Cell(detail.empty() ? Json(nullptr) : Json(detail), detail.empty() ? " " : detail),
          Cell(std::move(slice))};
}

// One frame through the library's frame scan: a DFrame in length form.
uint32_t ScanFrame(const UnitRun& run) {
  Bytes data = ToLengthForm(run.units);
  if (data.empty()) return 0;
  DFrame frame{};
  frame.frameData = data.data();
  frame.frameSize = frame.frameCapacity = static_cast<uint32_t>(data.size());
  H264SpsRecord sps{};
  H264PpsRecord pps{};
  Bytes spsBytes(QLN_H264_UNIT_BUFFER_SIZE);
  Bytes ppsBytes(QLN_H264_UNIT_BUFFER_SIZE);
  uint32_t spsSize = 0;
  uint32_t ppsSize = 0;
  return qlnutilFindNalUnits(&frame, &sps, &pps, nullptr, spsBytes.data(), ppsBytes.data(), &spsSize,
                             &ppsSize);
}

void ReportFrame(Section& frames, const CodedStream& stream, size_t number, const InspectOptions& options,
                 ActiveSets& active, const StreamTimecodes& timecodes) {
  const CodedPacket& packet = stream.packets[number];
  const UnitRun run = TakeApart(packet.data, stream.config.framing);
  Section& frame = frames.AddToList("frames", fmt::format("Frame {}", number));
  frame.Add("pts", "Time", TimeJson(packet.pts, stream.timeBase), TimeText(packet.pts, stream.timeBase));
  frame.Add("key", "Key frame", packet.key);
  frame.Add("size", "Size", packet.data.size(), fmt::format("{} bytes", packet.data.size()));
  frame.Add("unit_count", "Units", run.units.size(), UnitSummary(Codec::kH264, run.units));
  frame.Add("scan_count", "Scan", ScanFrame(run),
            fmt::format("the library's scan visits {} of {}", ScanFrame(run), run.units.size()));

  std::string types;
  SliceFacts first;
  for (const Unit& unit : run.units) {
    active.Take(unit.bytes);
    const int type = UnitType(Codec::kH264, unit.bytes);
    if (!IsSlice(Codec::kH264, type) || type == 3 || type == 4) continue;
    const SliceFacts slice = ReadSlice(unit.bytes, active);
    if (!slice.known) continue;
    if (!first.known) first = slice;
    const std::string name = H264SliceTypeName(slice.header.slice_type);
    if (types.find(name) == std::string::npos) types += (types.empty() ? "" : " ") + name;
  }
  if (first.known) {
    frame.Add("slice_types", "Slice types", types);
    frame.Add("frame_num", "frame_num", first.header.frame_num);
    frame.Add("picture", "Picture",
              first.header.field_pic_flag == 0      ? "frame"
              : first.header.bottom_field_flag == 0 ? "top field first"
                                                    : "bottom field first");
  } else {
    frame.AddNote("no slice that its parameter sets explain");
  }
  AddColourMessages(frame, Codec::kH264, run);
  timecodes.AddToFrame(frame, number);
  AddCaptionMessages(frame, Codec::kH264, run);
  if (run.damaged()) frame.AddNote(fmt::format("{} bytes at the end are cut off", run.rest.size()));
  if (!options.units) return;
  std::vector<std::vector<Cell>> rows;
  size_t offset = run.lead.size();
  for (const Unit& unit : run.units) {
    const size_t prefix = static_cast<size_t>(
        stream.config.framing.startCodes() ? unit.startCodeBytes : stream.config.framing.lengthBytes);
    rows.push_back(UnitRow(unit, offset, active));
    offset += prefix + unit.bytes.size() + static_cast<size_t>(unit.trailingZeros);
  }
  frame.AddTable("units", "",
                 {{"offset", "Offset", true},
                  {"nal_unit_type", "Type", true},
                  {"name", "Name"},
                  {"nal_ref_idc", "Ref", true},
                  {"size", "Bytes", true},
                  {"detail", "What"},
                  {"slice", "", false, true}},
                 std::move(rows));
}

}  // namespace

void ReportH264(Section& section, const CodedStream& stream, const InspectOptions& options,
                MessageSink& messages) {
  messages.Take();
  const StreamTimecodes timecodes(stream);
  timecodes.AddToStream(section);
  ReportConfiguration(section, stream, messages);
  Section& sets = section.AddSection("parameter_sets", "Parameter sets");
  const SetCollector collector(stream);
  for (const FoundSet& set : collector.sets()) {
    if (set.type == kSps) ReportSps(sets, set, messages);
    if (set.type == kPps) ReportPps(sets, set, messages);
  }
  if (collector.sets().empty()) sets.AddNote("none found");

  ActiveSets active;
  for (const Bytes& unit : stream.config.units()) active.Take(unit);
  for (size_t n = 0; n < stream.packets.size(); ++n)
    ReportFrame(section, stream, n, options, active, timecodes);
  messages.Take();  // of readers run more than once
}

}  // namespace qlnmedia
