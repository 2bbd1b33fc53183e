// The interlace rewrite of an HEVC frame: units are walked once and come out copied, rewritten or not at all.

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>

#include "nalstream/nalstream.h"
#include "qlnutil/bits/private_copy.h"
#include "qlnutil/bits/sei_packet.h"
#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/inband/frame_timecode.h"
#include "qlnutil/inband/hevc_timing_sei.h"
#include "qlnutil/inband/interlace_sets.h"
#include "qlnutil/inband/mastering_display.h"
#include "qlnutil/inband/picture_delays.h"
#include "qlnutil/inband/unit_walk.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

constexpr uint32_t kFrameTypeMask = 0xB0000000u;
constexpr uint32_t kIntra = 0x10000000u;
constexpr uint32_t kTransferPq = 16;

// What a pass goes over, with its pic_struct and source_scan_type (ITU-T H.265 table D.2).
struct Mode {
  uint32_t picStruct;
  uint32_t sourceScanType;
};
constexpr Mode kWholeFrame{0, 1};
constexpr Mode kFirstField{11, 0};
constexpr Mode kSecondField{10, 0};

// The destination under way. Once a unit did not fit, nothing more goes in.
class Output {
 public:
  explicit Output(DFrame* frame) : frame_(frame) { frame_->frameSize = 0; }

  bool full() const { return full_; }

  // Appends two runs of bytes as one unit.
  void Append(const uint8_t* head, size_t headSize, const uint8_t* bytes, size_t size) {
    const uint64_t newSize = uint64_t{frame_->frameSize} + headSize + size;
    const uint64_t room = frame_->frameCapacity != 0 ? frame_->frameCapacity : UINT32_MAX;
    if (full_ || newSize > room) {
      full_ = true;
      return;
    }
    uint8_t* const place = frame_->frameData + frame_->frameSize;
    if (headSize != 0) std::memcpy(place, head, headSize);
    std::memcpy(place + headSize, bytes, size);
    frame_->frameSize = static_cast<uint32_t>(newSize);
  }
  void Append(const uint8_t* bytes, size_t size) { Append(nullptr, 0, bytes, size); }

 private:
  DFrame* frame_;
  bool full_ = false;
};

// A unit of the source. The walk stands on its start code, or on bytes in front of that.
struct Unit {
  const uint8_t* begin;  // the walk's place: what is copied begins there, so that no byte is lost
  uint32_t codeBytes;    // 3 where the walk stands on a start code of three bytes, else 4
  const uint8_t* header;
  uint32_t size;  // from the header on
  const uint8_t* end;

  uint32_t type() const { return HevcUnitType(*header); }
  size_t wholeSize() const { return static_cast<size_t>(end - begin); }
};

class Rewrite {
 public:
  Rewrite(DFrame* source, DFrame* destination, const HevcSpsRecord& host, InterlaceSets* sets)
      : source_(source), destination_(destination), host_(host), sets_(sets), output_(destination) {}

  // Returns the number of units walked.
  uint32_t Run() {
    if ((source_->fieldFlags & QLN_TWO_FIELDS) != QLN_TWO_FIELDS) {
      Pass(source_->frameData, source_->frameSize, kWholeFrame);
      return count_;
    }
    const uint32_t firstSize = std::min(source_->secondFieldOffset, source_->frameSize);
    Pass(source_->frameData, firstSize, kFirstField);
    if (output_.full()) return count_;
    destination_->secondFieldOffset = destination_->frameSize;
    Pass(source_->frameData + firstSize, source_->frameSize - firstSize, kSecondField);
    return count_;
  }

 private:
  void Pass(const uint8_t* data, uint32_t size, const Mode& mode) {
    made_ = {};
    const uint8_t* const end = data + size;
    const uint8_t* place = data;
    while (end - place >= 4) {
      int start;
      int behind;
      const int unitSize = find_nal_unit(
          place, static_cast<int>(std::min<std::ptrdiff_t>(end - place, INT32_MAX)), &start, &behind);
      if (unitSize <= 0) return;
      const bool shortCode = place[0] == 0 && place[1] == 0 && place[2] == 1;
      const uint8_t* const header = place + start;
      Take({place, shortCode ? 3u : 4u, header, static_cast<uint32_t>(unitSize), place + behind}, end, mode);
      if (output_.full()) return;
      ++count_;
      place += behind;
    }
    count_ += static_cast<uint32_t>(end - place);  // bytes too few to hold a unit count one each
  }

  void Take(const Unit& unit, const uint8_t* passEnd, const Mode& mode) {
    const uint32_t type = unit.type();
    switch (type) {
      case kHevcNalVps:
      case kHevcNalSps:
      case kHevcNalPps:
        TakeParameterSet(unit, passEnd, type);
        break;
      case kHevcNalAccessUnitDelimiter:
        output_.Append(unit.begin, unit.wholeSize());
        break;
      case kHevcNalPrefixSei:
        ReadPictureDelays(unit.header, unit.size, host_, &delays_);
        break;
      default:
        if (IsHevcSlice(type)) TakeSlice(unit, mode);
    }
  }

  void TakeParameterSet(const Unit& unit, const uint8_t* passEnd, uint32_t type) {
    // Behind a start code of three bytes the readers begin one byte late; what lies behind the pass is zero.
    const uint8_t* data = unit.header + (4 - unit.codeBytes);
    const auto there = static_cast<size_t>(passEnd - data);
    PrivateCopy padded(there < unit.size ? unit.size : 0);
    if (there < unit.size) {
      if (!padded.ok()) return output_.Append(unit.begin, unit.wholeSize());
      std::memset(padded.data(), 0, unit.size);
      std::memcpy(padded.data(), data, there);
      data = padded.data();
    }
    uint8_t written[QLN_HEVC_UNIT_SIZE];
    const uint32_t length = sets_->Rewrite(type, data, unit.size, *source_, host_, written);
    if (length == 0) return output_.Append(unit.begin, unit.wholeSize());
    constexpr uint8_t kStartCode[] = {0, 0, 0, 1};
    output_.Append(kStartCode + 4 - unit.codeBytes, unit.codeBytes, written, length);
    if (!output_.full()) {
      sets_->ReadBack(type, destination_->frameData + destination_->frameSize - length, length);
    }
  }

  void TakeSlice(const Unit& unit, const Mode& mode) {
    uint8_t sei[kTimingSeiRoom];
    if (!made_.timing) {
      output_.Append(sei, WriteHevcPicTiming(sei, mode.picStruct, mode.sourceScanType, host_,
                                             delays_.auCpbRemovalDelay, delays_.picDpbOutputDelay));
      made_.timing = true;
    }
    if (!made_.timeCode) {
      output_.Append(sei, WriteHevcTimeCodeSei(sei, FrameTimeCode(*destination_), host_));
      made_.timeCode = true;
    }
    if (!made_.colour && (destination_->colorFlags & kHdrFlags) == 0 &&
        (destination_->frameType & kFrameTypeMask) == kIntra) {
      output_.Append(sei, qlnUtilAddSeiATC(sei, static_cast<uint8_t>(host_.transfer_characteristics)));
      if (host_.transfer_characteristics == kTransferPq) output_.Append(sei, WriteMasteringDisplayUnit(sei));
      made_.colour = true;
    }
    constexpr uint8_t kZeroByte = 0;
    output_.Append(&kZeroByte, unit.codeBytes == 3 ? 1 : 0, unit.begin, unit.wholeSize());
  }

  // Writes the SEI unit of the source's mastering display; a source without metadata gets defaults, which
  // stay.
  uint32_t WriteMasteringDisplayUnit(uint8_t (&output)[kTimingSeiRoom]) {
    if ((source_->colorFlags & kHdrFlags) == 0) {
      constexpr double kPrimaries[8] = {0.708, 0.292, 0.17, 0.797, 0.131, 0.046, 0.3127, 0.329};
      std::copy(std::begin(kPrimaries), std::end(kPrimaries), source_->displayPrimaries);
      source_->maxDisplayLuminance = 100.0;
      source_->minDisplayLuminance = 0.05;
    }
    uint8_t scratch[40] = {};
    BitWriter writer(scratch, sizeof scratch);
    // Start code, NAL header of a prefix SEI, payload type and size.
    constexpr uint8_t kHead[] = {0, 0, 0, 1, 0x4E, 0x01, kMasteringDisplayPayload, 0};
    writer.WriteBytes(kHead, sizeof kHead);
    WriteMasteringDisplay(writer, *source_);
    QLNBitState from{scratch, sizeof scratch, sizeof scratch * 8, static_cast<uint32_t>(writer.bitPos)};
    QLNBitState to{output, sizeof output, sizeof output * 8, 0};
    WriteSeiPacket(&from, &to, sizeof kHead - 1, false);
    return to.bitPos / 8;
  }

  // What was made in this pass.
  struct Made {
    bool timing = false;
    bool timeCode = false;
    bool colour = false;
  };

  DFrame* source_;
  DFrame* destination_;
  const HevcSpsRecord& host_;
  InterlaceSets* sets_;
  Output output_;
  Made made_;
  PictureDelays delays_;
  uint32_t count_ = 0;
};

}  // namespace
}  // namespace qln

uint32_t qlnutilSetFrameInterlaced(DFrame* source, DFrame* destination, const HevcSpsRecord* hostSps,
                                   uint32_t /*reserved*/) {
  using namespace qln;
  if (source == nullptr || destination == nullptr || hostSps == nullptr || source->frameData == nullptr ||
      destination->frameData == nullptr) {
    return 0;
  }
  const std::unique_ptr<InterlaceSets> sets(new (std::nothrow) InterlaceSets());
  if (sets == nullptr) return 0;
  return Rewrite(source, destination, *hostSps, sets.get()).Run();
}
