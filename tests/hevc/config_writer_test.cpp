// The writer of HEVC decoder configuration records.

#include <gtest/gtest.h>

#include <cstring>

#include "hevc/config_record_support.h"
#include "hevc/unit_builders.h"

namespace qln::test {
namespace {

Bytes WriteConfig(const HevcConfigRecord* config, const Bytes& vps, const Bytes& sps, const Bytes& pps,
                  uint32_t bitPos = 0, int32_t room = 4096) {
  Bytes out(static_cast<size_t>(room), 0);
  QLNBitState state{out.data(), room, 0, bitPos};
  const uint32_t result = qlnutilWrite_HEVC_CR(
      &state, config, vps.data(), sps.data(), pps.data(), static_cast<int32_t>(vps.size()),
      static_cast<int32_t>(sps.size()), static_cast<int32_t>(pps.size()));
  EXPECT_EQ(result, state.bitPos / 8);
  out.resize((state.bitPos + 7) / 8);
  return out;
}

TEST(HevcConfigWriter, ReadAndWrittenAgain) {
  const Bytes box = Box(FullSet());
  auto read = Read(box, false);
  const Bytes body = WriteConfig(&read.config, VpsUnit(), SpsUnit(), PpsUnit());
  EXPECT_EQ(ToHex(body), ToHex(Bytes(box.begin() + 8, box.end())));
}

TEST(HevcConfigWriter, WithoutAHead) {
  const Bytes body = WriteConfig(nullptr, Hex("40 01 0C"), Hex("42 01"), {});
  EXPECT_EQ(ToHex(body), "A0 00 01 00 03 40 01 0C A1 00 01 00 02 42 01 A2 00 01 00 00");
}

TEST(HevcConfigWriter, FieldsAreCutToTheirWidths) {
  HevcConfigRecord config;
  std::memset(&config, 0xFF, sizeof config);
  const Bytes body = WriteConfig(&config, {}, {}, {});
  EXPECT_EQ(ToHex(Head(body, 23)), ToHex(Bytes(23, 0xFF)));
  std::memset(&config, 0, sizeof config);
  config.numOfArrays = 0x107;
  const Bytes zero = WriteConfig(&config, {}, {}, {});
  EXPECT_EQ(ToHex(Head(zero, 23)), "00 00 00 00 00 00 00 00 00 00 00 00 00 F0 00 FC FC F8 F8 00 00 00 07");
}

TEST(HevcConfigWriter, StartsAtAnyBit) {
  const Bytes plain = WriteConfig(nullptr, Hex("40 01"), Hex("42 01"), Hex("44 01"));
  for (uint32_t bit = 0; bit < 24; ++bit) {
    Bytes out(64, 0xFF);
    QLNBitState state{out.data(), 64, 0, bit};
    const Bytes v = Hex("40 01"), s = Hex("42 01"), p = Hex("44 01");
    EXPECT_EQ(qlnutilWrite_HEVC_CR(&state, nullptr, v.data(), s.data(), p.data(), 2, 2, 2),
              (bit + plain.size() * 8) / 8);
    BitBuilder expected;
    expected.u(static_cast<int>(bit), ~uint64_t{0});
    for (const uint8_t byte : plain) expected.u(8, byte);
    while (expected.bits() < 64 * 8) expected.u(1, 1);
    EXPECT_EQ(ToHex(out), ToHex(expected.bytes()));
  }
}

TEST(HevcConfigWriter, WhatDoesNotFitIsNotWritten) {
  const Bytes v = Hex("40 01"), s = Hex("42 01"), p = Hex("44 01");
  const auto write = [&](int32_t size, uint32_t bit) {
    Bytes out(64, 0xEE);
    QLNBitState state{out.data(), size, 0, bit};
    const uint32_t result = qlnutilWrite_HEVC_CR(&state, nullptr, v.data(), s.data(), p.data(), 2, 2, 2);
    EXPECT_EQ(result, state.bitPos / 8);
    const bool written = state.bitPos != bit;
    if (!written) {
      EXPECT_EQ(out, Bytes(64, 0xEE));
    }
    return written;
  };
  EXPECT_TRUE(write(21, 0));
  EXPECT_FALSE(write(20, 0));
  EXPECT_FALSE(write(21, 1));
  EXPECT_TRUE(write(22, 8));
  EXPECT_FALSE(write(0, 0));
  EXPECT_FALSE(write(-5, 0));
  EXPECT_FALSE(write(21, 0xFFFFFFF0u));
  QLNBitState nowhere{nullptr, 64, 0, 8};
  EXPECT_EQ(qlnutilWrite_HEVC_CR(&nowhere, nullptr, v.data(), s.data(), p.data(), 2, 2, 2), 1u);
  EXPECT_EQ(nowhere.bitPos, 8u);
  EXPECT_EQ(qlnutilWrite_HEVC_CR(nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0, 0), 0u);
}

TEST(HevcConfigWriter, NegativeSizesAndNullUnitsHaveNoBytes) {
  Bytes out(64, 0);
  QLNBitState state{out.data(), 64, 0, 0};
  const Bytes v = Hex("40 01");
  EXPECT_EQ(qlnutilWrite_HEVC_CR(&state, nullptr, v.data(), nullptr, v.data(), -2, 0x12345, 2), 17u);
  EXPECT_EQ(ToHex(Head(out, 17)), "A0 00 01 FF FE A1 00 01 23 45 A2 00 01 00 02 40 01");
}

TEST(HevcConfigWriter, LongUnitsKeepTheLowSixteenBitsOfTheirSize) {
  const Bytes unit(70000, 0x55);
  const Bytes body = WriteConfig(nullptr, unit, {}, {}, 0, 80000);
  EXPECT_EQ(body.size(), 15u + 70000);
  EXPECT_EQ(ToHex(Head(body, 6)), "A0 00 01 11 70 55");
}

TEST(HevcConfigStub, HvccIsNotSupported) { EXPECT_EQ(qlnutilGetHvcc(), -1); }

}  // namespace
}  // namespace qln::test
