// Reads and changes picture timing of HEVC.

#include "timing/hevc_timing.h"

#include <algorithm>
#include <memory>
#include <new>

#include "qlnutil/qlnbits.h"
#include "qlnutil/qlninband.h"
#include "units/library_frame.h"

namespace qlnmedia {

namespace {

constexpr uint32_t kInfoBits = 7;
constexpr int kPictureTiming = 1;
constexpr int kPrefixSei = 39;

bool BitAt(ByteSpan bytes, uint64_t position) { return (bytes[position / 8] >> (7 - position % 8) & 1) != 0; }

// Reads a payload; what lies behind it counts as missing.
class PayloadReader {
 public:
  explicit PayloadReader(const Bytes& payload) : bytes_(payload), bits_(payload.size() * 8) {}
  bool good() const { return at_ <= bits_; }
  uint64_t position() const { return at_; }
  void skip(uint64_t count) { at_ += count; }
  bool flag() { return at_++ < bits_ && BitAt(bytes_, at_ - 1); }
  uint64_t ue() {
    uint32_t zeros = 0;
    while (!flag()) {
      if (good() && ++zeros <= 32) continue;
      at_ = bits_ + 1;
      return 0;
    }
    uint64_t value = 1;
    for (uint32_t i = 0; i < zeros; ++i) value = value << 1 | (flag() ? 1u : 0u);
    return value - 1;
  }

 private:
  ByteSpan bytes_;
  uint64_t bits_;
  uint64_t at_ = 0;
};

// Moves behind the delays and what belongs to them.
void SkipDelays(PayloadReader& in, const HevcDelays& delays) {
  if (!delays.present) return;
  in.skip(delays.cpbRemoval + delays.dpbOutput);
  if (!delays.subPictures) return;
  in.skip(delays.dpbOutputDu);
  if (!delays.unitsInPictureTiming) return;
  const uint64_t lastUnit = in.ue();
  const bool common = in.flag();
  if (common) in.skip(delays.duIncrement);
  for (uint64_t i = 0; i <= lastUnit && in.good(); ++i) {
    in.ue();
    if (!common && i < lastUnit) in.skip(delays.duIncrement);
  }
}

void AppendBits(std::vector<bool>& out, uint32_t count, uint32_t value) {
  for (uint32_t i = count; i-- > 0;) out.push_back((value >> i & 1) != 0);
}

// Bits to bytes, with payload_bit_equal_to_one where they do not fill their last byte or where it must part
// extension bits from what follows.
Bytes ClosePayload(std::vector<bool> bits, bool extended) {
  if (bits.size() % 8 != 0 || extended) bits.push_back(true);
  Bytes payload((bits.size() + 7) / 8);
  for (size_t i = 0; i < bits.size(); ++i) {
    if (bits[i]) payload[i / 8] = static_cast<uint8_t>(payload[i / 8] | 0x80 >> i % 8);
  }
  return payload;
}

}  // namespace

bool IsFieldPicStruct(uint32_t picStruct) {
  return picStruct == 1 || picStruct == 2 || (picStruct >= 9 && picStruct <= 12);
}

std::optional<FrameFieldInfo> ReadFrameFieldInfo(ByteSpan payload) {
  if (payload.empty()) return {};
  return FrameFieldInfo{static_cast<uint32_t>(payload[0] >> 4), static_cast<uint32_t>(payload[0] >> 2 & 3),
                        (payload[0] & 2) != 0};
}

std::optional<Bytes> WithFrameFieldInfo(const Bytes& payload, bool hadInfo, const HevcDelays& delays,
                                        const FrameFieldInfo& info) {
  const auto infoBits =
      static_cast<uint8_t>(info.picStruct << 4 | info.sourceScanType << 2 | (info.duplicate ? 2 : 0));
  if (hadInfo) {
    if (payload.empty()) return {};
    Bytes changed = payload;
    changed[0] = static_cast<uint8_t>(infoBits | (payload[0] & 1));
    return changed;
  }
  PayloadReader in(payload);
  SkipDelays(in, delays);
  if (!in.good()) return {};
  // Behind the message: nothing, or extension bits, a stop bit and zeros.
  const uint64_t end = payload.size() * 8;
  uint64_t last = in.position();
  bool extended = false;
  if (last < end) {
    last = end;
    while (last > in.position() && !BitAt(payload, last - 1)) --last;
    if (last == in.position()) return {};  // no stop bit
    --last;
    extended = last > in.position();
  }
  if (extended && !delays.present) return {};
  std::vector<bool> bits;
  AppendBits(bits, kInfoBits, infoBits >> 1);
  for (uint64_t i = 0; i < last; ++i) bits.push_back(BitAt(payload, i));
  return ClosePayload(std::move(bits), extended);
}

Bytes MakeFieldTimingUnit(uint32_t picStruct, uint8_t temporalPlus1) {
  // A frame of two fields, each the beginning of a slice; the units come to stand in front of them.
  const Bytes field = {0x02, 0x01, 0xD0, 0x80};
  LibraryFrame from({field, field});
  from.frame().fieldFlags = QLN_TWO_FIELDS;
  from.frame().secondFieldOffset = from.sizeBefore() / 2;
  LibraryFrame to({});
  // The stream as the library is to know it: the flag makes picture timing begin with frame and field info.
  const auto sps = std::make_unique<HevcSpsRecord>();
  sps->frame_field_info_present_flag = 1;
  qlnutilSetFrameInterlaced(&from.frame(), &to.frame(), sps.get(), 0);
  for (const Unit& unit : to.units()) {
    if (UnitType(Codec::kHevc, unit.bytes) != kPrefixSei) continue;
    std::vector<SeiMessage> messages = ReadSeiMessages(Codec::kHevc, unit.bytes);
    if (messages.empty() || messages.front().type != kPictureTiming) continue;
    // The library makes frames whose top field comes first; the rest of the unit is the same for all fields.
    Bytes& payload = messages.front().payload;
    std::optional<FrameFieldInfo> info = ReadFrameFieldInfo(payload);
    if (!info) break;
    info->picStruct = picStruct;
    payload = WithFrameFieldInfo(payload, true, {}, *info).value();
    return MakeSeiUnit(Bytes{unit.bytes[0], temporalPlus1}, messages);
  }
  throw std::bad_alloc();
}

}  // namespace qlnmedia
