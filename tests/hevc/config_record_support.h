// Boxes of an HEVC decoder configuration record, and one read of a box.
#ifndef TESTS_HEVC_CONFIG_RECORD_SUPPORT_H
#define TESTS_HEVC_CONFIG_RECORD_SUPPORT_H

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "hevc/unit_builders.h"

namespace qln::test {

inline const std::string kReserved = "Hevc Reserved bits incorrect" + kLocated;

struct Array {
  uint32_t type;
  std::vector<Bytes> units;
  uint32_t reserved = 0;
};

// Values of the head that differ from each other; `reserved` as five fields of all ones.
inline Bytes Box(const std::vector<Array>& arrays, std::array<uint32_t, 5> reserved = {15, 63, 63, 31, 31},
                 int arrayCount = -1, const Bytes& header = Hex("00 00 00 00 68 76 63 43")) {
  BitBuilder b;
  b.u(8, 1).u(2, 2).u(1, 1).u(5, 4).u(32, 0x89ABCDEF).u(48, 0xA0B0C0D0E0F1).u(8, 150);
  b.u(4, reserved[0]).u(12, 0x5A5).u(6, reserved[1]).u(2, 3).u(6, reserved[2]).u(2, 2);
  b.u(5, reserved[3]).u(3, 2).u(5, reserved[4]).u(3, 4).u(16, 12800).u(2, 1).u(3, 5).u(1, 1).u(2, 3);
  b.u(8, arrayCount < 0 ? arrays.size() : static_cast<uint64_t>(arrayCount));
  for (const Array& array : arrays) {
    b.u(1, 1).u(1, array.reserved).u(6, array.type).u(16, array.units.size());
    for (const Bytes& unit : array.units) {
      b.u(16, unit.size());
      for (const uint8_t byte : unit) b.u(8, byte);
    }
  }
  return Join({header, b.bytes()});
}

inline Bytes VpsUnit() { return Escaped(Vps()); }
inline Bytes SpsUnit() { return Escaped(Sps()); }
inline Bytes PpsUnit() { return Escaped(Pps()); }

inline std::vector<Array> FullSet() { return {{32, {VpsUnit()}}, {33, {SpsUnit()}}, {34, {PpsUnit()}}}; }

struct ConfigOutcome {
  uint32_t result = 0;
  uint32_t bitPos = 0;
  HevcConfigRecord config{};
  std::unique_ptr<HevcVpsRecord> vps = std::make_unique<HevcVpsRecord>();
  std::unique_ptr<HevcSpsRecord> sps = std::make_unique<HevcSpsRecord>();
  std::unique_ptr<HevcPpsRecord> pps = std::make_unique<HevcPpsRecord>();
  std::vector<std::string> messages;
};

// Reads a box into the records of `outcome`.
inline void ReadInto(ConfigOutcome& outcome, const Bytes& box, bool withRecords = true) {
  ExactCopy copy(box);
  QLNBitState state{copy.data(), static_cast<int32_t>(box.size()), static_cast<uint32_t>(box.size() * 8), 0};
  MessageCapture capture;
  outcome.result = qlnutilRead_HEVC_CR(&state, &outcome.config, withRecords ? outcome.vps.get() : nullptr,
                                       withRecords ? outcome.sps.get() : nullptr,
                                       withRecords ? outcome.pps.get() : nullptr);
  outcome.bitPos = state.bitPos;
  outcome.messages = capture.textsWithoutLines();
  EXPECT_EQ(copy.bytes(), box);
}

inline ConfigOutcome Read(const Bytes& box, bool withRecords = true) {
  ConfigOutcome outcome;
  ReadInto(outcome, box, withRecords);
  return outcome;
}

}  // namespace qln::test

#endif
