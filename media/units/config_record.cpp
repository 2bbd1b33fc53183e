// Walks avcC and hvcC bodies (ISO/IEC 14496-15).

#include "units/config_record.h"

#include <fmt/format.h>

namespace qlnmedia {

namespace {

// Reads big-endian numbers and runs of bytes, and remembers when they were not there.
class Walk {
 public:
  explicit Walk(ByteSpan data) : data_(data) {}
  bool good() const { return good_; }
  size_t position() const { return at_; }
  ByteSpan Take(size_t count) {
    if (count > data_.size() - at_) {
      good_ = false;
      return {};
    }
    at_ += count;
    return data_.subspan(at_ - count, count);
  }
  uint64_t Number(size_t bytes) {
    uint64_t value = 0;
    for (const uint8_t byte : Take(bytes)) value = value << 8 | byte;
    return value;
  }
  ByteSpan Rest() const { return data_.subspan(at_); }

 private:
  ByteSpan data_;
  size_t at_ = 0;
  bool good_ = true;
};

Bytes Copy(ByteSpan span) { return Bytes(span.begin(), span.end()); }

// What is called while a box body is walked.
struct BoxVisitor {
  std::function<void(uint8_t head)> list;  // at the beginning of each list
  std::function<void(ByteSpan unit)> unit;
};

size_t HeadBytes(Codec codec) { return codec == Codec::kH264 ? AvccHead::kBytes : HvccHead::kBytes; }

// Start codes begin with 00 00; a box body begins with its version, 1 (some writers of hvcC leave a 0
// there, whose next byte is then no 0).
bool HasStartCodes(ByteSpan data) {
  return data.size() < 3 || (data[0] == 0 && data[1] == 0 && data[2] <= 1);
}

// Walks `count` units with 2-byte lengths; false when they run out of the box.
bool VisitUnits(Walk& walk, uint64_t count, const BoxVisitor& visitor) {
  for (uint64_t i = 0; i < count; ++i) {
    const ByteSpan unit = walk.Take(walk.Number(2));
    if (!walk.good()) return false;
    visitor.unit(unit);
  }
  return true;
}

// Walks the lists behind a head.
void VisitLists(Codec codec, Walk& walk, const BoxVisitor& visitor) {
  if (codec == Codec::kH264) {
    for (const unsigned countMask : {31u, 255u}) {
      const auto count = static_cast<unsigned>(walk.Number(1));
      if (!walk.good()) return;
      visitor.list(static_cast<uint8_t>(count & ~countMask));
      if (!VisitUnits(walk, count & countMask, visitor)) return;
    }
    return;
  }
  const uint64_t arrays = walk.Number(1);
  for (uint64_t i = 0; i < arrays && walk.good(); ++i) {
    const auto head = static_cast<uint8_t>(walk.Number(1));
    const uint64_t count = walk.Number(2);
    if (!walk.good()) return;
    visitor.list(head);
    if (!VisitUnits(walk, count, visitor)) return;
  }
}

void AppendUnit(Bytes& out, const Bytes& unit) {
  out.push_back(static_cast<uint8_t>(unit.size() >> 8));
  out.push_back(static_cast<uint8_t>(unit.size()));
  out.insert(out.end(), unit.begin(), unit.end());
}

}  // namespace

std::vector<Bytes> ConfigRecord::units() const {
  std::vector<Bytes> all;
  for (const List& list : lists) all.insert(all.end(), list.units.begin(), list.units.end());
  for (const Unit& unit : startCodeUnits.units) all.push_back(unit.bytes);
  return all;
}

std::optional<AvccHead> ReadAvccHead(ByteSpan body) {
  if (body.size() < AvccHead::kBytes) return {};
  AvccHead head;
  head.configurationVersion = body[0];
  head.AVCProfileIndication = body[1];
  head.profile_compatibility = body[2];
  head.AVCLevelIndication = body[3];
  head.lengthSizeMinusOne = body[4] & 3;
  return head;
}

std::optional<HvccHead> ReadHvccHead(ByteSpan body) {
  if (body.size() < HvccHead::kBytes) return {};
  Walk walk(body);
  const auto byte = [&walk] { return static_cast<uint8_t>(walk.Number(1)); };
  const auto word = [&walk] { return static_cast<uint16_t>(walk.Number(2)); };
  HvccHead head;
  head.configurationVersion = byte();
  const uint8_t profile = byte();
  head.general_profile_space = profile >> 6;
  head.general_tier_flag = profile >> 5 & 1;
  head.general_profile_idc = profile & 31;
  head.general_profile_compatibility_flags = static_cast<uint32_t>(walk.Number(4));
  head.general_constraint_indicator_flags = walk.Number(6);
  head.general_level_idc = byte();
  head.min_spatial_segmentation_idc = word() & 0xFFF;
  head.parallelismType = byte() & 3;
  head.chromaFormat = byte() & 3;
  head.bitDepthLumaMinus8 = byte() & 7;
  head.bitDepthChromaMinus8 = byte() & 7;
  head.avgFrameRate = word();
  const uint8_t last = byte();
  head.constantFrameRate = last >> 6;
  head.numTemporalLayers = last >> 3 & 7;
  head.temporalIdNested = last >> 2 & 1;
  head.lengthSizeMinusOne = last & 3;
  return head;
}

std::optional<AvccHead> ConfigRecord::avccHead() const {
  return box && codec == Codec::kH264 ? ReadAvccHead(head) : std::nullopt;
}

std::optional<HvccHead> ConfigRecord::hvccHead() const {
  return box && codec == Codec::kHevc ? ReadHvccHead(head) : std::nullopt;
}

void VisitConfigUnits(Codec codec, ByteSpan data, const std::function<void(ByteSpan unit)>& take) {
  if (HasStartCodes(data)) return VisitUnits(data, Framing{}, take);
  Walk walk(data);
  walk.Take(HeadBytes(codec));
  if (walk.good()) VisitLists(codec, walk, {[](uint8_t) {}, take});
}

ConfigRecord ReadConfigRecord(Codec codec, ByteSpan data) {
  ConfigRecord record;
  record.codec = codec;
  if (HasStartCodes(data)) {
    record.startCodeUnits = TakeApart(data, record.framing);
    return record;
  }
  record.box = true;
  Walk walk(data);
  record.head = Copy(walk.Take(HeadBytes(codec)));
  if (walk.good()) {
    record.framing.lengthBytes = (record.head.back() & 3) + 1;  // lengthSizeMinusOne ends both heads
    VisitLists(codec, walk,
               {[&record](uint8_t head) {
                  record.lists.push_back({head, {}});
                },
                [&record](ByteSpan unit) { record.lists.back().units.push_back(Copy(unit)); }});
  } else {
    record.framing.lengthBytes = 4;
  }
  if (!walk.good()) {
    record.problem =
        fmt::format("the configuration record breaks off at byte {} of {}", walk.position(), data.size());
    return record;
  }
  record.tail = Copy(walk.Rest());
  return record;
}

Bytes WriteConfigRecord(const ConfigRecord& record) {
  if (!record.box) return PutTogether(record.startCodeUnits, Framing{});
  Bytes out = record.head;
  if (record.codec == Codec::kHevc) out.push_back(static_cast<uint8_t>(record.lists.size()));
  for (const ConfigRecord::List& list : record.lists) {
    if (record.codec == Codec::kH264) {
      out.push_back(static_cast<uint8_t>(list.head | list.units.size()));
    } else {
      out.push_back(list.head);
      out.push_back(static_cast<uint8_t>(list.units.size() >> 8));
      out.push_back(static_cast<uint8_t>(list.units.size()));
    }
    for (const Bytes& unit : list.units) AppendUnit(out, unit);
  }
  out.insert(out.end(), record.tail.begin(), record.tail.end());
  return out;
}

Bytes WithBoxHeader(ByteSpan body, const char* type) {
  const size_t size = body.size() + 8;
  Bytes box;
  for (int shift = 24; shift >= 0; shift -= 8) box.push_back(static_cast<uint8_t>(size >> shift));
  for (int i = 0; i < 4; ++i) box.push_back(static_cast<uint8_t>(type[i]));
  box.insert(box.end(), body.begin(), body.end());
  return box;
}

}  // namespace qlnmedia
