// Reports the first frames of an H.264 stream, with their slices as the library reads them.

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

#include "inspect/frames.h"
#include "inspect/library_record.h"
#include "qlnutil/qlnh264.h"
#include "sets/names.h"

namespace qlnmedia {

namespace {

// The active sets by id, as a decoder keeps them.
struct ActiveSets {
  std::map<uint32_t, H264SpsRecord> sps;
  std::map<uint32_t, H264PpsRecord> pps;

  void Take(const Bytes& unit) {
    QLNBitState state = StateOver(unit);
    if (UnitType(Codec::kH264, unit) == h264::kSps) {
      H264SpsRecord record{};
      if (qlnutilRead_SPS(&state, &record) != 0) sps[record.seq_parameter_set_id] = record;
    } else if (UnitType(Codec::kH264, unit) == h264::kPps) {
      H264PpsRecord record{};
      if (qlnutilRead_PPS(&state, &record) != 0) pps[record.pic_parameter_set_id] = record;
    }
  }
};

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
uint32_t ScanH264Frame(const UnitRun& run) {
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

void AddUnits(Section& frame, const CodedStream& stream, const UnitRun& run, ActiveSets& active) {
  std::vector<std::vector<Cell>> rows;
  UnitOffsets offsets(stream, run);
  for (const Unit& unit : run.units) rows.push_back(UnitRow(unit, offsets.Next(unit), active));
  frame.AddTable("units", "",
                 {{"offset", "Offset", true},
                  {"nal_unit_type", "Type", true},
                  {"name", "Name"},
                  {"nal_ref_idc", "Ref", true},
                  {"size", "Bytes", true},
                  {"detail", "What"},
                  {"slice", "", false, true}},
                 std::move(rows));
  frame.MarkLast(ReportPart::kUnits);
}

void AddSlices(Section& frame, const UnitRun& run, ActiveSets& active) {
  std::vector<std::string> types;
  SliceFacts first;
  for (const Unit& unit : run.units) {
    active.Take(unit.bytes);
    const int type = UnitType(Codec::kH264, unit.bytes);
    if (!IsSlice(Codec::kH264, type) || type == 3 || type == 4) continue;
    const SliceFacts slice = ReadSlice(unit.bytes, active);
    if (!slice.known) continue;
    if (!first.known) first = slice;
    const std::string name = H264SliceTypeName(slice.header.slice_type);
    if (std::find(types.begin(), types.end(), name) == types.end()) types.push_back(name);
  }
  if (!first.known) {
    frame.AddNote("no slice that its parameter sets explain");
    return;
  }
  frame.Add("slice_types", "Slice types", fmt::format("{}", fmt::join(types, " ")));
  frame.Add("frame_num", "frame_num", first.header.frame_num);
  frame.Add("picture", "Picture",
            first.header.field_pic_flag == 0      ? "frame"
            : first.header.bottom_field_flag == 0 ? "top field first"
                                                  : "bottom field first");
}

}  // namespace

void AddH264Frames(Section& section, const CodedStream& stream, const InspectOptions& options,
                   const StreamTimecodes& timecodes) {
  ActiveSets active;
  for (const Bytes& unit : stream.config.units()) active.Take(unit);
  for (size_t n = 0; n < stream.packets.size(); ++n) {
    const UnitRun run = TakeApart(stream.packets[n].data, stream.config.framing);
    Section& frame = AddFrameHead(section, stream, n, run, ScanH264Frame(run));
    AddSlices(frame, run, active);
    AddFrameMessages(frame, stream, n, run, timecodes);
    if (options.units) AddUnits(frame, stream, run, active);
  }
}

}  // namespace qlnmedia
