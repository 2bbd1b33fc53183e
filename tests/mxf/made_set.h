// Sets of header metadata, put together property by property.
#ifndef TESTS_MXF_MADE_SET_H
#define TESTS_MXF_MADE_SET_H

#include <cstdint>
#include <string>
#include <vector>

#include "mxf/made_file.h"

namespace qln::test {

inline const std::string kLabel = "060e2b34";

inline Bytes Hex(const std::string& text) {
  Bytes bytes;
  for (size_t i = 0; i + 1 < text.size(); i += 2)
    bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
  return bytes;
}

inline void Put(Bytes& to, uint64_t value, size_t bytes) {
  while (bytes-- != 0) to.push_back(static_cast<uint8_t>(value >> 8 * bytes));
}

inline void Put(Bytes& to, const Bytes& more) { to.insert(to.end(), more.begin(), more.end()); }

inline void Store(Bytes& to, size_t at, uint64_t value, size_t bytes) {
  for (size_t i = 0; i < bytes; ++i) to[at + i] = static_cast<uint8_t>(value >> 8 * (bytes - 1 - i));
}

// Sets refer to each other by these.
inline Bytes Instance(uint8_t number) {
  Bytes id(16, 0xA5);
  id[15] = number;
  return id;
}
inline Bytes Package(uint8_t number) {
  Bytes id = Hex("060a2b340101010501010d2013000000");
  id.resize(32, number);
  return id;
}

// Operational patterns OP1a and OPAtom.
inline Bytes PatternLabel(bool atom) {
  return Hex(atom ? "060e2b34040101020d01020110000000" : "060e2b34040101010d01020101010900");
}

// How frames are wrapped, and how they are coded.
inline Bytes ContainerLabel(Coded coded) {
  switch (coded) {
    case Coded::kMpeg2:
      return Hex("060e2b34040101020d01030102046001");
    case Coded::kHevc:
      return Hex("060e2b340401010d0d010301021f6001");
    default:
      return Hex("060e2b340401010a0d01030102106001");
  }
}
inline Bytes CodingLabel(Coded coded) {
  switch (coded) {
    case Coded::kMpeg2:
      return Hex("060e2b34040101030401020201040300");
    case Coded::kHevc:
      return Hex("060e2b340401010d0401020201350000");
    case Coded::kAvcIntra:
      return Hex("060e2b340401010a0401020201322102");
    default:
      return Hex("060e2b340401010a0401020201312001");
  }
}

class Set {
 public:
  Set(uint8_t name, uint8_t instance) : name_(name) { Add(0x3C0A, Instance(instance)); }
  Set& Add(uint16_t tag, const Bytes& value) {
    Put(value_, tag, 2);
    Put(value_, value.size(), 2);
    Put(value_, value);
    return *this;
  }
  Set& Add(uint16_t tag, uint64_t value, size_t bytes) {
    Bytes number;
    Put(number, value, bytes);
    return Add(tag, number);
  }
  Set& Refer(uint16_t tag, const std::vector<uint8_t>& instances) {
    Bytes batch;
    Put(batch, instances.size(), 4);
    Put(batch, 16, 4);
    for (const uint8_t instance : instances) Put(batch, Instance(instance));
    return Add(tag, batch);
  }
  Bytes bytes() const {
    const std::string digits = "0123456789abcdef";
    const std::string name = {digits[name_ >> 4], digits[name_ & 15]};
    return Triplet(kLabel + "025301010d0101010101" + name + "00", value_);
  }

 private:
  uint8_t name_;
  Bytes value_;
};

}  // namespace qln::test

#endif
