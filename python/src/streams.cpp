// H.264 and HEVC: parameter sets and slice headers, the boxes that hold them, frames and their forms; AAC
// headers.

#include <algorithm>
#include <memory>
#include <optional>

#include "byte_view.h"
#include "failure.h"
#include "module.h"
#include "qlnutil/helpers.h"
#include "qlnutil/qlnaac.h"
#include "qlnutil/qlnh264.h"
#include "qlnutil/qlnhevc.h"
#include "records.h"

namespace qlnpython {

namespace py = pybind11;

namespace {

// Sizes and positions in bits are 32-bit words.
constexpr size_t kMostBytes = size_t{1} << 28;
constexpr uint32_t kNotTold = 0xFFFFFFFF;

using Units = std::vector<std::pair<size_t, size_t>>;  // offset of the header byte, size

void CheckSize(size_t size) {
  if (size == 0) throw StreamFailure("there are no bytes");
  if (size >= kMostBytes) throw StreamFailure("more than 268435455 bytes");
}

// A unit begins with its NAL header; a start code in front is passed over.
std::span<const uint8_t> UnitIn(std::span<const uint8_t> bytes) {
  size_t zeros = 0;
  while (zeros < bytes.size() && zeros < 3 && bytes[zeros] == 0) ++zeros;
  if (zeros >= 2 && zeros < bytes.size() && bytes[zeros] == 1) bytes = bytes.subspan(zeros + 1);
  CheckSize(bytes.size());
  return bytes;
}

QLNBitState StateOver(std::span<const uint8_t> bytes) {
  // The readers never write.
  return {const_cast<uint8_t*>(bytes.data()), static_cast<int32_t>(bytes.size()),
          static_cast<uint32_t>(bytes.size() * 8), 0};
}

template <class Record, std::optional<Record> (*read)(const uint8_t*, size_t)>
py::object ReadSet(const py::object& data) {
  const ByteView view(data);
  const std::span<const uint8_t> unit = UnitIn(view.span());
  Listener listener;
  const auto record = read(unit.data(), unit.size());
  listener.Log();
  if (!record)
    throw StreamFailure(
        "no whole unit of that type",
        "give it from its NAL header on; an HEVC set whose HRD has several schedules or sub-layers "
        "is not read to its end either");
  return NewRecord(*record);
}

py::object ReadSliceHeader(const py::object& data, const py::object& sps, const py::object& pps) {
  const ByteView view(data);
  const std::span<const uint8_t> unit = UnitIn(view.span());
  const int type = unit[0] & 0x1F;
  if (type != 1 && type != 2 && type != 5 && type != 19)
    throw StreamFailure("no slice: NAL unit type " + std::to_string(type));
  const auto& sequence = RecordIn<H264SpsRecord>(sps);
  auto picture = RecordIn<H264PpsRecord>(pps);  // a bit behind the header is stored in it
  const auto header = std::make_unique<H264SliceHeaderRecord>();
  // What the reader looks at, with zeros behind it.
  std::vector<uint8_t> bytes(unit.begin(),
                             unit.begin() + static_cast<ptrdiff_t>(std::min<size_t>(unit.size(), 512)));
  const size_t size = bytes.size();
  bytes.resize(size + 16);
  QLNBitState state{bytes.data(), static_cast<int32_t>(size), static_cast<uint32_t>(size * 8), 0};
  Listener listener;
  qlnutilRead_SliceHeader(&state, header.get(), &sequence, &picture, type, 0);
  listener.Log();
  return NewRecord(*header);
}

// ---- Boxes
// ---------------------------------------------------------------------------------------------------

py::tuple ReadAvcc(const py::object& box) {
  const ByteView view(box);
  CheckSize(view.size());
  const auto sps = std::make_unique<H264SpsRecord>();
  const auto pps = std::make_unique<H264PpsRecord>();
  QLNBitState state = StateOver(view.span());
  Listener listener;
  const uint32_t result = qlnutilReadAvcc(&state, sps.get(), pps.get());
  listener.Log();
  if (result != 0 || state.bitPos > state.bitLength) throw StreamFailure("the avcC box breaks off");
  return py::make_tuple(sps->nal_unit_type == 7 ? NewRecord(*sps) : py::none(),
                        pps->nal_unit_type == 8 ? NewRecord(*pps) : py::none());
}

py::tuple ReadHvcc(const py::object& box) {
  const ByteView view(box);
  CheckSize(view.size());
  HevcConfigRecord config{};
  HevcVpsRecord vps{};
  const auto sps = std::make_unique<HevcSpsRecord>();
  HevcPpsRecord pps{};
  pps.pps_pic_parameter_set_id = kNotTold;
  QLNBitState state = StateOver(view.span());
  Listener listener;
  const uint32_t result = qlnutilRead_HEVC_CR(&state, &config, &vps, sps.get(), &pps);
  listener.Log();
  if (result == QLN_HEVC_REFUSED || state.bitPos > state.bitLength) throw StreamFailure("no whole hvcC box");
  return py::make_tuple(NewRecord(config),
                        vps.profile_tier_level.general_level_idc != 0 ? NewRecord(vps) : py::none(),
                        sps->profile_tier_level.general_level_idc != 0 ? NewRecord(*sps) : py::none(),
                        pps.pps_pic_parameter_set_id != kNotTold ? NewRecord(pps) : py::none());
}

// ---- Frames
// --------------------------------------------------------------------------------------------------

Units UnitsWithLengths(std::span<const uint8_t> frame) {
  Units units;
  for (size_t at = 0; at < frame.size();) {
    if (frame.size() - at < 4) throw StreamFailure("bytes are left behind the last unit");
    const size_t size =
        size_t{frame[at]} << 24 | size_t{frame[at + 1]} << 16 | size_t{frame[at + 2]} << 8 | frame[at + 3];
    at += 4;
    if (size > frame.size() - at) throw StreamFailure("a unit is longer than what is left of the frame");
    if (size != 0) units.emplace_back(at, size);
    at += size;
  }
  return units;
}

Units UnitsOf(std::span<const uint8_t> frame, bool lengths) {
  if (lengths) return UnitsWithLengths(frame);
  Units units;
  for (const qlnutil::NalUnit& unit : qlnutil::StartCodeUnits(frame.data(), frame.size()))
    units.emplace_back(unit.offset, unit.size);
  return units;
}

bool BeginsWithStartCode(std::span<const uint8_t> frame) {
  return frame.size() >= 4 && frame[0] == 0 && frame[1] == 0 &&
         (frame[2] == 1 || (frame[2] == 0 && frame[3] == 1));
}

std::vector<uint8_t> ToLengths(std::span<const uint8_t> frame) {
  CheckSize(frame.size());
  if (!BeginsWithStartCode(frame)) throw StreamFailure("the frame does not begin with a start code");
  std::vector<uint8_t> out(frame.size() + frame.size() / 3 + 4);
  std::copy(frame.begin(), frame.end(), out.begin());
  out.resize(qlnUtilh264MarkerToSize(out.data(), static_cast<uint32_t>(frame.size())));
  return out;
}

std::vector<uint8_t> ToStartCodes(std::span<const uint8_t> frame) {
  CheckSize(frame.size());
  UnitsWithLengths(frame);
  std::vector<uint8_t> out(frame.begin(), frame.end());
  out.resize(qlnUtilh264SizeToMarker(out.data(), static_cast<uint32_t>(out.size())));
  return out;
}

py::object Taken(const std::vector<uint8_t>& bytes, uint32_t size) {
  if (size == kNotTold || size == 0) return py::none();
  return BytesOf({bytes.data(), size});
}

DFrame FrameOver(std::vector<uint8_t>& bytes) {
  DFrame frame{};
  frame.frameData = bytes.data();
  frame.frameSize = frame.frameCapacity = static_cast<uint32_t>(bytes.size());
  return frame;
}

// (units visited, SPS, PPS, SPS bytes, PPS bytes)
py::tuple ScanH264(const py::object& data, bool lengths) {
  const ByteView view(data);
  CheckSize(view.size());
  std::vector<uint8_t> bytes =
      lengths ? std::vector<uint8_t>(view.span().begin(), view.span().end()) : ToLengths(view.span());
  const DFrame frame = FrameOver(bytes);
  const auto sps = std::make_unique<H264SpsRecord>();
  const auto pps = std::make_unique<H264PpsRecord>();
  std::vector<uint8_t> spsBytes(QLN_H264_UNIT_BUFFER_SIZE), ppsBytes(QLN_H264_UNIT_BUFFER_SIZE);
  uint32_t spsSize = kNotTold, ppsSize = kNotTold;
  Listener listener;
  const uint32_t visited = qlnutilFindNalUnits(&frame, sps.get(), pps.get(), nullptr, spsBytes.data(),
                                               ppsBytes.data(), &spsSize, &ppsSize);
  listener.Log();
  return py::make_tuple(visited, spsSize != kNotTold ? NewRecord(*sps) : py::none(),
                        ppsSize != kNotTold ? NewRecord(*pps) : py::none(), Taken(spsBytes, spsSize),
                        Taken(ppsBytes, ppsSize));
}

// (units visited, VPS, SPS, PPS, PPS bytes); start codes of three bytes are made ones of four first.
py::tuple ScanHevc(const py::object& data, bool lengths) {
  const ByteView view(data);
  CheckSize(view.size());
  std::vector<uint8_t> bytes = ToStartCodes(
      lengths ? std::vector<uint8_t>(view.span().begin(), view.span().end()) : ToLengths(view.span()));
  const DFrame frame = FrameOver(bytes);
  HevcVpsRecord vps{};
  const auto sps = std::make_unique<HevcSpsRecord>();
  HevcPpsRecord pps{};
  std::vector<uint8_t> setBytes(QLN_HEVC_UNIT_SIZE), ppsBytes(QLN_HEVC_UNIT_SIZE);
  uint32_t setSize = kNotTold, ppsSize = kNotTold;
  Listener listener;
  const uint32_t visited = qlnutilFindNalUnitsHevc(&frame, &vps, sps.get(), &pps, 0, 0, setBytes.data(),
                                                   ppsBytes.data(), 0, &setSize, &ppsSize);
  listener.Log();
  return py::make_tuple(visited, vps.profile_tier_level.general_level_idc != 0 ? NewRecord(vps) : py::none(),
                        sps->profile_tier_level.general_level_idc != 0 ? NewRecord(*sps) : py::none(),
                        ppsSize != kNotTold ? NewRecord(pps) : py::none(), Taken(ppsBytes, ppsSize));
}

// (SEI, RPU) as (offset, size) inside the frame, each None where there is none.
py::tuple FindDolbyVision(const py::object& data) {
  const ByteView view(data);
  CheckSize(view.size());
  auto* const bytes = const_cast<uint8_t*>(view.data());  // searched, not written
  uint8_t *sei = nullptr, *rpu = nullptr;
  uint32_t seiSize = 0, rpuSize = 0;
  qlnUtilFindDolbyVisionMetadata(bytes, static_cast<uint32_t>(view.size()), 0, &sei, &seiSize, &rpu,
                                 &rpuSize);
  const auto place = [&](const uint8_t* at, uint32_t size) -> py::object {
    const size_t offset = at == nullptr ? view.size() : static_cast<size_t>(at - bytes);
    const size_t inside = std::min<size_t>(size, view.size() - offset);  // a length may lead behind the frame
    if (inside == 0) return py::none();
    return py::make_tuple(offset, inside);
  };
  return py::make_tuple(place(sei, seiSize), place(rpu, rpuSize));
}

// ---- AAC
// -----------------------------------------------------------------------------------------------------

template <class Record, int32_t (*read)(QLNBitState*, Record*)>
py::object ReadHeader(const py::object& data) {
  const ByteView view(data);
  CheckSize(view.size());
  std::vector<uint8_t> bytes(view.data(), view.data() + std::min<size_t>(view.size(), 16));
  QLNBitState state = StateOver(bytes);
  bytes.resize(bytes.size() + 16);
  state.data = bytes.data();
  Record record{};
  read(&state, &record);
  if (state.bitPos > state.bitLength) throw StreamFailure("the header breaks off");
  return NewRecord(record);
}

}  // namespace

void AddStreams(py::module_& module) {
  module.def("h264_read_sps", &ReadSet<H264SpsRecord, qlnutil::ReadH264Sps>, py::arg("data"));
  module.def("h264_read_pps", &ReadSet<H264PpsRecord, qlnutil::ReadH264Pps>, py::arg("data"));
  module.def("h264_read_slice_header", &ReadSliceHeader, py::arg("data"), py::arg("sps"), py::arg("pps"));
  module.def("h264_read_avcc", &ReadAvcc, py::arg("box"));
  module.def("h264_scan", &ScanH264, py::arg("frame"), py::arg("lengths"));
  module.def("hevc_read_vps", &ReadSet<HevcVpsRecord, qlnutil::ReadHevcVps>, py::arg("data"));
  module.def("hevc_read_sps", &ReadSet<HevcSpsRecord, qlnutil::ReadHevcSps>, py::arg("data"));
  module.def("hevc_read_pps", &ReadSet<HevcPpsRecord, qlnutil::ReadHevcPps>, py::arg("data"));
  module.def("hevc_read_hvcc", &ReadHvcc, py::arg("box"));
  module.def("hevc_scan", &ScanHevc, py::arg("frame"), py::arg("lengths"));
  module.def("hevc_find_dolby_vision", &FindDolbyVision, py::arg("frame"));
  module.def("read_aac_config", &ReadHeader<QLNAacConfig, qlnutilReadAAC>, py::arg("data"));
  module.def("read_adts_header", &ReadHeader<QLNAdtsHeader, qlnutilReadADTS>, py::arg("data"));
  module.def(
      "units",
      [](const py::object& frame, bool lengths) {
        const ByteView view(frame);
        py::list list;
        for (const auto& [offset, size] : UnitsOf(view.span(), lengths))
          list.append(py::make_tuple(offset, size));
        return list;
      },
      py::arg("frame"), py::arg("lengths"));
  module.def(
      "to_lengths", [](const py::object& frame) { return BytesOf(ToLengths(ByteView(frame).span())); },
      py::arg("frame"));
  module.def(
      "to_start_codes", [](const py::object& frame) { return BytesOf(ToStartCodes(ByteView(frame).span())); },
      py::arg("frame"));
}

}  // namespace qlnpython
