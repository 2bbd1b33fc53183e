// What is read back of a transport stream, and damage that its packets show.

#include "container/ts/kept_packets.h"

#include <gtest/gtest.h>

#include "container/ts/damage.h"
#include "container/ts/row_reader.h"
#include "qlnmedia/error.h"
#include "ts/transport.h"

namespace qln::test {
namespace {

using qlnmedia::mp4::MemorySource;
using namespace qlnmedia::ts;

constexpr uint16_t kVideo = 0x100, kSound = 0x101;

template <class Watcher>
Watcher Watched(const Bytes& file, Watcher watcher) {
  const MemorySource source(file, "in.ts");
  RowReader rows(source);
  for (qlnmedia::ts::Row row; rows.Next(row);) watcher.Take(row);
  return watcher;
}

// What both ways of comparing say; they must agree.
std::string Difference(const Bytes& before, const Bytes& after) {
  const MemorySource was(before, "in.ts"), is(after, "out.ts");
  const auto said = [](const auto& compare) -> std::string {
    try {
      compare();
    } catch (const qlnmedia::Error& error) {
      return error.what();
    }
    return "";
  };
  const std::string direct = said([&] { RequireOthersKept(was, is, {kVideo}, "out.ts"); });
  const KeptPackets kept = Watched(before, KeptPackets({kVideo}));
  EXPECT_EQ(said([&] { RequireOthersKept(was, kept, is, {kVideo}, "out.ts"); }), direct);
  return direct;
}

Bytes File(uint8_t sound, uint64_t reference, uint8_t counter, int nulls = 0) {
  TransportBuilder builder;
  builder.Packet(kSound, true, Bytes(150, sound));
  builder.Pes(kVideo, Bytes(400, 2), 0, false, ClockReference(reference), nulls);
  builder.SetCounter(kVideo, counter);
  builder.Pes(kVideo, Bytes(100, 3), 0);
  builder.Packet(kSound, false, Bytes(184, 4));
  return builder.bytes();
}

TEST(KeptTransportPackets, AreHeldAgainstTheInput) {
  const Bytes before = File(1, 1000, 3);
  EXPECT_EQ(Difference(before, before), "");
  EXPECT_EQ(Difference(before, File(1, 1000, 3, 2)), "") << "null packets come and go";
  EXPECT_NE(Difference(before, File(9, 1000, 3)).find("the packet at byte 0 of the input"),
            std::string::npos);
  EXPECT_NE(Difference(before, File(1, 1001, 3)).find("clock reference"), std::string::npos);
  EXPECT_NE(Difference(before, File(1, 1000, 7)).find("continuity counters"), std::string::npos);
  Bytes longer = before;
  longer.insert(longer.end(), before.begin(), before.begin() + 188);
  EXPECT_NE(Difference(before, longer), "");
  EXPECT_NE(Difference(longer, before), "");
  Bytes edited = before;
  edited[188 + 100] ^= 1;
  EXPECT_EQ(Difference(before, edited), "") << "of the stream that changes";
  for (const size_t at : {10u, 150u, 187u}) {
    edited = before;
    edited[at] ^= 1;
    EXPECT_NE(Difference(before, edited), "") << at;
  }
  // Bytes that trade places.
  edited = before;
  for (size_t i = 40; i < 48; ++i) edited[i] = static_cast<uint8_t>(i);
  Bytes swapped = edited;
  std::swap_ranges(swapped.begin() + 40, swapped.begin() + 44, swapped.begin() + 44);
  EXPECT_NE(Difference(edited, swapped), "");
}

std::optional<uint16_t> DamageOf(const TransportBuilder& builder) {
  return Watched(builder.bytes(), Damage({kVideo, kSound})).Finish();
}

TEST(TransportDamage, ShowsInCountersMarksAndLengths) {
  TransportBuilder whole;
  whole.Pes(kVideo, Bytes(1000, 1), 0, true);
  whole.Packet(kVideo, false, {}, ClockReference(5));
  whole.Pes(kVideo, Bytes(10, 1), 0, true);
  whole.Packet(0x200, true, Bytes(10, 1));
  whole.SetCounter(0x200, 9);
  whole.Packet(0x200, false, Bytes(10, 1));
  EXPECT_EQ(DamageOf(whole), std::nullopt);

  TransportBuilder gap = whole;
  gap.SetCounter(kVideo, 14);
  // The discontinuity_indicator allows it.
  gap.Packet(kVideo, true, {0, 0, 1, 0xE0, 0, 0, 0x80, 0, 0, 1}, {0x80});
  EXPECT_EQ(DamageOf(gap), std::nullopt);
  gap.SetCounter(kVideo, 3);
  gap.Pes(kVideo, Bytes(10, 1), 0);
  EXPECT_EQ(DamageOf(gap), kVideo);

  TransportBuilder section;
  section.Packet(kSound, true, {0, 0xFC, 0x30, 0x11});
  section.SetCounter(kSound, 9);
  section.Packet(kSound, true, {0, 0xFC, 0x30, 0x11});
  EXPECT_EQ(DamageOf(section), std::nullopt) << "no PES packets";

  TransportBuilder marked = whole;
  marked.Pes(kSound, Bytes(10, 1), 0);
  Bytes bytes = marked.bytes();
  bytes[bytes.size() - 187] |= 0x80;  // transport_error_indicator
  TransportBuilder flagged;
  flagged.Pes(kSound, Bytes(10, 1), 0);
  flagged.Raw(bytes);
  EXPECT_EQ(DamageOf(flagged), kSound);

  // Two packets of a PES packet, of 316 bytes.
  const auto said = [](uint8_t length) {
    TransportBuilder builder;
    Bytes head{0, 0, 1, 0xE0, 1, length, 0x80, 0, 0};
    head.resize(184);
    builder.Packet(kVideo, true, head);
    builder.Packet(kVideo, false, Bytes(132, 1));
    return DamageOf(builder);
  };
  EXPECT_EQ(said(54), std::nullopt);
  EXPECT_EQ(said(55), kVideo) << "cut off";
  EXPECT_EQ(said(53), kVideo) << "goes on";
  TransportBuilder padded;
  padded.Packet(kVideo, true, Bytes{0, 0, 1, 0xE0, 0, 5, 0x80, 0, 0, 1, 2, 0xFF, 0xFF});
  EXPECT_EQ(DamageOf(padded), std::nullopt) << "bytes behind one that fits its packet";
}

}  // namespace
}  // namespace qln::test
