// Reports the first frames of an HEVC stream.

#include <fmt/format.h>

#include <map>
#include <memory>
#include <utility>

#include "inspect/dolby_vision.h"
#include "inspect/frames.h"
#include "qlnutil/qlnhevc.h"
#include "sets/sps_facts.h"

namespace qlnmedia {

namespace {

constexpr size_t kUnitBufferSize = 1024;

// num_extra_slice_header_bits of the picture parameter sets, by their ids.
class SliceHeads {
 public:
  void Take(const Bytes& unit) {
    if (UnitType(Codec::kHevc, unit) != hevc::kPps) return;
    const std::optional<PpsFacts> pps = ReadPpsFacts(Codec::kHevc, unit);
    if (pps) extraBits_[pps->id] = pps->extraBits;
  }

  // slice_type of a picture's first slice segment (ITU-T H.265 clause 7.3.6.1), or an empty text.
  std::string SliceType(const Bytes& unit) const {
    const Bytes head = Unescape(ByteSpan(unit).first(std::min<size_t>(unit.size(), 64)));
    if (head.size() < 4) return {};
    QLNBitState state{const_cast<uint8_t*>(head.data()), static_cast<int32_t>(head.size()),
                      static_cast<uint32_t>(head.size() - 1) * 8, 16};
    const int type = UnitType(Codec::kHevc, unit);
    if (ReadBit(&state) != 1) return {};  // the address of a later segment needs the SPS
    if (type >= hevc::kFirstIrap && type <= hevc::kLastIrap) ReadBit(&state);
    const auto pps = extraBits_.find(ReadExponentialGolombCode(&state));
    if (pps == extraBits_.end()) return {};
    ReadBits(&state, static_cast<int32_t>(pps->second));
    const uint32_t code = ReadExponentialGolombCode(&state);
    return code == 0 ? "B" : code == 1 ? "P" : code == 2 ? "I" : "";
  }

 private:
  std::map<uint32_t, uint32_t> extraBits_;
};

// One frame through the library's frame scan, which knows start codes of four bytes.
uint32_t ScanHevcFrame(const UnitRun& run) {
  Bytes data = ToMarkerForm(run.units);
  DFrame frame{};
  frame.frameData = data.data();
  frame.frameSize = frame.frameCapacity = static_cast<uint32_t>(data.size());
  HevcVpsRecord vps{};
  const auto sps = std::make_unique<HevcSpsRecord>();
  HevcPpsRecord pps{};
  Bytes vpsSps(kUnitBufferSize);
  Bytes ppsBytes(kUnitBufferSize);
  uint32_t vpsSpsSize = 0;
  uint32_t ppsSize = 0;
  const uint32_t count = qlnutilFindNalUnitsHevc(&frame, &vps, sps.get(), &pps, 0, 0, vpsSps.data(),
                                                 ppsBytes.data(), 0, &vpsSpsSize, &ppsSize);
  return count;
}

// A unit of a frame, its header's fields among them, and what it says.
std::vector<Cell> UnitRow(const Unit& unit, size_t offset, const std::string& detail) {
  const int type = UnitType(Codec::kHevc, unit.bytes);
  const bool header = unit.bytes.size() >= 2;
  return {Cell(offset),
          Cell(type),
          Cell(UnitTypeName(Codec::kHevc, type)),
          Cell(header ? (unit.bytes[0] & 1) << 5 | unit.bytes[1] >> 3 : 0),
          Cell(header ? (unit.bytes[1] & 7) - 1 : 0),
          Cell(unit.bytes.size()),
          Cell(detail.empty() ? Json(nullptr) : Json(detail), detail.empty() ? " " : detail)};
}

void AddUnits(Section& frame, std::vector<std::vector<Cell>> rows) {
  frame.AddTable("units", "",
                 {{"offset", "Offset", true},
                  {"nal_unit_type", "Type", true},
                  {"name", "Name"},
                  {"nuh_layer_id", "Layer", true},
                  {"temporal_id", "Tid", true},
                  {"size", "Bytes", true},
                  {"detail", "What"}},
                 std::move(rows));
  frame.MarkLast(ReportPart::kUnits);
}

}  // namespace

void AddHevcFrames(Section& section, const CodedStream& stream, const InspectOptions& options,
                   const StreamTimecodes& timecodes) {
  SliceHeads heads;
  for (const Bytes& unit : stream.config.units()) heads.Take(unit);
  for (size_t n = 0; n < stream.packets.size(); ++n) {
    const UnitRun run = TakeApart(stream.packets[n].data, stream.config.framing);
    Section& frame = AddFrameHead(section, stream, n, run, ScanHevcFrame(run));
    std::vector<std::vector<Cell>> rows;
    UnitOffsets offsets(stream, run);
    std::string sliceType;
    for (const Unit& unit : run.units) {
      const int type = UnitType(Codec::kHevc, unit.bytes);
      heads.Take(unit.bytes);
      std::string detail;
      if (IsSlice(Codec::kHevc, type)) {
        detail = heads.SliceType(unit.bytes);
        if (sliceType.empty()) sliceType = detail;
      } else if (IsSei(Codec::kHevc, type)) {
        detail = SeiSummary(Codec::kHevc, unit.bytes);
      }
      rows.push_back(UnitRow(unit, offsets.Next(unit), detail));
    }
    if (!sliceType.empty()) frame.Add("slice_types", "Slice type", sliceType);
    AddDolbyVisionMetadata(frame, run);
    AddFrameMessages(frame, stream, n, run, timecodes);
    if (options.units) AddUnits(frame, std::move(rows));
  }
}

}  // namespace qlnmedia
