// Walks avcC and hvcC bodies (ISO/IEC 14496-15).

#include "units/config_record.h"

#include <fmt/format.h>

namespace qlnmedia {

namespace {

constexpr size_t kAvccHead = 5;   // version, profile, compatibility, level, length size
constexpr size_t kHvccHead = 22;  // all in front of numOfArrays

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
  unsigned Number(size_t bytes) {
    unsigned value = 0;
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

// Reads `count` units with 2-byte lengths; false when they run out of the box.
bool ReadUnits(Walk& walk, unsigned count, ConfigRecord::List& list) {
  for (unsigned i = 0; i < count; ++i) {
    const unsigned size = walk.Number(2);
    const ByteSpan unit = walk.Take(size);
    if (!walk.good()) return false;
    list.units.push_back(Copy(unit));
  }
  return true;
}

void ReadLists(Walk& walk, ConfigRecord& record) {
  if (record.codec == Codec::kH264) {
    record.framing.lengthBytes = (record.head[4] & 3) + 1;
    for (const unsigned countMask : {31u, 255u}) {
      const unsigned count = walk.Number(1);
      if (!walk.good()) return;
      record.lists.push_back({static_cast<uint8_t>(count & ~countMask), {}});
      if (!ReadUnits(walk, count & countMask, record.lists.back())) return;
    }
  } else {
    record.framing.lengthBytes = (record.head[21] & 3) + 1;
    const unsigned arrays = walk.Number(1);
    for (unsigned i = 0; i < arrays && walk.good(); ++i) {
      const unsigned head = walk.Number(1);
      const unsigned count = walk.Number(2);
      if (!walk.good()) return;
      record.lists.push_back({static_cast<uint8_t>(head), {}});
      if (!ReadUnits(walk, count, record.lists.back())) return;
    }
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

ConfigRecord ReadConfigRecord(Codec codec, ByteSpan data) {
  ConfigRecord record;
  record.codec = codec;
  // Start codes begin with 00 00; a box body begins with its version, 1 (some writers of hvcC leave a 0
  // there, whose next byte is then no 0).
  const bool startCodes = data.size() < 3 || (data[0] == 0 && data[1] == 0 && data[2] <= 1);
  if (startCodes) {
    record.startCodeUnits = TakeApart(data, record.framing);
    return record;
  }
  record.box = true;
  Walk walk(data);
  const size_t headSize = codec == Codec::kH264 ? kAvccHead : kHvccHead;
  record.head = Copy(walk.Take(headSize));
  if (record.head.size() == headSize) ReadLists(walk, record);
  if (!walk.good()) {
    record.framing.lengthBytes = record.head.size() == headSize ? record.framing.lengthBytes : 4;
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
