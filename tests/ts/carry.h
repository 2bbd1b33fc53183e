// Runs changes over transport streams in memory, and makes packets of them.
#ifndef TESTS_TS_CARRY_H
#define TESTS_TS_CARRY_H

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "container/ts/carrier.h"
#include "container/ts/kept_packets.h"
#include "ts/transport.h"

namespace qln::test {

using qlnmedia::mp4::MemorySource;
using qlnmedia::ts::Carrier;

inline constexpr uint16_t kVideo = 0x100, kSound = 0x101, kOther = 0x102;

class Collected final : public qlnmedia::mp4::Sink {
 public:
  void Write(qlnmedia::mp4::ByteSpan piece) override {
    bytes.insert(bytes.end(), piece.begin(), piece.end());
  }
  void Copy(const qlnmedia::mp4::Source&, uint64_t, uint64_t) override { FAIL(); }
  Bytes bytes;
};

struct Piece {
  Bytes was, is;
};

struct Carried {
  Bytes bytes;
  Carrier::Counts counts;
};

inline Carried Carry(const Bytes& stream, const std::vector<Piece>& pieces) {
  const MemorySource source(stream, "in.ts");
  Collected out;
  Carrier carrier(source, &out, {kVideo});
  for (const Piece& piece : pieces) carrier.Take(kVideo, piece.was, piece.is);
  carrier.Finish();
  if (!::testing::Test::HasFailure()) {
    const MemorySource written(out.bytes, "out.ts");
    EXPECT_NO_THROW(qlnmedia::ts::RequireOthersKept(source, written, {kVideo}, "out.ts"));
  }
  return {out.bytes, carrier.counts()};
}

// `size` bytes that differ from those of other seeds.
inline Bytes Data(size_t size, uint32_t seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  return bytes;
}

inline Bytes Joined(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// Three PES packets of video with sound and tables between them.
inline Bytes Sample(Row row, const Bytes& one, const Bytes& two, const Bytes& three, int nulls = 0) {
  TransportBuilder builder(row);
  builder.Packet(0, true, Data(100, 90));
  builder.Pes(kVideo, one, 90000, false, ClockReference(80000), nulls);
  builder.Packet(kSound, true, Data(184, 91));
  builder.Pes(kVideo, two, 93600, true, ClockReference(83600, 299), nulls);
  builder.Null();
  builder.Packet(kSound, false, Data(150, 92));
  builder.Pes(kVideo, three, 97200, false, {}, nulls);
  builder.Packet(kOther, true, Data(184, 93));
  return builder.bytes();
}

inline std::vector<Bytes> StreamsOf(const TransportRead& read) {
  std::vector<Bytes> streams;
  for (const PesRead& pes : read.streams.at(kVideo).packets) streams.push_back(pes.stream);
  return streams;
}

}  // namespace qln::test

#endif
