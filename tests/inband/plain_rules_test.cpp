// Places, counts and searches of the caption and colour functions against plain forms of their rules, on
// random bytes.

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "inband/caption_packets.h"
#include "inband/test_frame.h"
#include "qlnutil/inband/caption_payload.h"
#include "qlnutil/qlninband.h"

namespace qln::test {
namespace {

// Random bytes of which most are those that the searches look for.
Bytes Pick(Random& random, size_t size, const Bytes& frequent) {
  Bytes bytes(size);
  for (uint8_t& byte : bytes) {
    byte =
        random.below(8) != 0 ? frequent[random.below(frequent.size())] : static_cast<uint8_t>(random.next());
  }
  return bytes;
}

// A byte of a run; nothing behind its end.
int At(const Bytes& bytes, uint64_t i) { return i < bytes.size() ? bytes[static_cast<size_t>(i)] : -1; }

// ---- Captions into H.264 frames ----

size_t StartCodeAt(const Bytes& bytes, size_t at) {
  if (At(bytes, at) != 0 || At(bytes, at + 1) != 0) return 0;
  if (At(bytes, at + 2) == 1) return 3;
  return At(bytes, at + 2) == 0 && At(bytes, at + 3) == 1 ? 4 : 0;
}

size_t PlaceBehindStartCodes(const Bytes& frame) {
  bool sps = false;
  bool pps = false;
  for (size_t at = 0; at < std::min<size_t>(frame.size(), 256);) {
    const size_t code = StartCodeAt(frame, at);
    if (code == 0) {
      ++at;
      continue;
    }
    if (sps && pps) return at;
    at += code;
    sps |= At(frame, at) == 0x67;
    pps |= At(frame, at) == 0x68;
  }
  return std::min<size_t>(frame.size(), 6);
}

size_t PlaceBehindLengths(const Bytes& frame) {
  bool sps = false;
  bool pps = false;
  uint64_t at = 0;
  while (!sps || !pps) {
    const int header = At(frame, at + 4);
    if (header < 0) at = frame.size();
    if (header != 0x09 && header != 0x67 && header != 0x68) break;
    sps |= header == 0x67;
    pps |= header == 0x68;
    uint64_t length = 0;
    for (uint64_t i = 0; i < 4; ++i) length = length * 256 + static_cast<uint64_t>(At(frame, at + i));
    at += 4 + length;
  }
  at = std::min<uint64_t>(at, frame.size());
  return at < 256 ? static_cast<size_t>(at) : 6;
}

void ExpectPlace(const Bytes& frameBytes, bool lengths, size_t place) {
  const Bytes packet = CaptionPacket(Triplets(20));
  TestFrame frame(frameBytes, frameBytes.size() + 30 + 285);
  ASSERT_EQ(qlnutilAddAVCCaptions(frame.get(), packet.data(), 80, lengths ? 1 : 0), 0);
  const Bytes after = frame.bytes();
  ASSERT_EQ(after.size(), frameBytes.size() + 49);
  const auto cut = static_cast<std::ptrdiff_t>(place);
  ASSERT_EQ(Bytes(after.begin(), after.begin() + cut), Bytes(frameBytes.begin(), frameBytes.begin() + cut))
      << ToHex(frameBytes);
  ASSERT_EQ(Bytes(after.begin() + cut + 49, after.end()), Bytes(frameBytes.begin() + cut, frameBytes.end()))
      << ToHex(frameBytes) << " " << place;
}

TEST(CaptionPlace, AgreesWithThePlainScan) {
  Random random(11);
  for (int round = 0; round < 20000; ++round) {
    const Bytes frame = Pick(random, random.below(round % 10 == 0 ? 300 : 40), Hex("00 00 00 01 67 68 09"));
    ExpectPlace(frame, false, PlaceBehindStartCodes(frame));
    if (HasFatalFailure()) return;
  }
}

TEST(CaptionPlace, AgreesWithThePlainWalk) {
  Random random(12);
  for (int round = 0; round < 20000; ++round) {
    Bytes frame;
    while (random.below(5) != 0) {
      Bytes unit = random.bytes(random.below(random.below(20) == 0 ? 400 : 12));
      unit.insert(unit.begin(), Hex("67 68 09 27 65")[random.below(round % 3 == 0 ? 5 : 3)]);
      frame = Join({frame, WithLength(unit)});
      if (random.below(20) == 0) {
        uint8_t& lengthByte = frame[frame.size() - unit.size() - 1 - random.below(4)];
        lengthByte = static_cast<uint8_t>(lengthByte ^ 1 << random.below(8));
      }
    }
    frame.resize(frame.size() - std::min<size_t>(frame.size(), random.below(4) == 0 ? random.below(9) : 0));
    ExpectPlace(frame, true, PlaceBehindLengths(frame));
    if (HasFatalFailure()) return;
  }
}

// The checksum is the last byte of the size, so that zero bytes may stand behind a packet.
TEST(CaptionTriplets, AreThoseThatTheRuleCounts) {
  for (size_t triplets = 0; triplets <= 30; ++triplets) {
    for (size_t behind = 0; behind <= 12; ++behind) {
      const Bytes packet = Join({CaptionPacket(Triplets(triplets)), Bytes(behind, 0)});
      size_t bytes = std::min<size_t>(packet[6] - 7u, 30);
      if (bytes + 16 > packet.size()) bytes = packet.size() - 16;
      const size_t count = bytes / 3;
      TestFrame frame(Hex("09 F0"), 400);
      ExactCopy caption(packet);
      ASSERT_EQ(qlnutilAddAVCCaptions(frame.get(), caption.data(), static_cast<uint32_t>(packet.size()), 0),
                0);
      const Bytes after = frame.bytes();
      ASSERT_EQ(after.size(), 2 + 19 + 3 * count) << triplets << " " << behind;
      ASSERT_EQ(after[2 + 15], 0xC0 | count);
      ASSERT_EQ(Bytes(after.begin() + 2 + 17, after.end() - 2),
                Bytes(packet.begin() + 16, packet.begin() + 16 + static_cast<std::ptrdiff_t>(3 * count)));
    }
  }
}

// ---- Captions out of HEVC units ----

struct Payload {
  int32_t result = -1;
  uint32_t size = 0;
  uint32_t flags = 0;
  Bytes output = Bytes(262, 0xEE);
};

Payload ParsePlainly(const Bytes& bytes) {
  Payload payload;
  std::fill_n(payload.output.begin(), 4, 0x80);
  if (bytes.size() == 2) {
    for (size_t i = 0; i < 2; ++i) payload.output[i] = bytes[i] != 0 ? bytes[i] : 0x80;
    return {0, 2, 0x100, payload.output};
  }
  if (bytes.size() < 6) return payload;
  for (size_t at = 0; bytes.size() - at > 4; ++at) {
    const size_t left = bytes.size() - at;
    const uint8_t* const p = &bytes[at];
    const size_t n = p[2];
    if (p[0] == 'a' && p[1] == 1 && p[3] == 0x96 && p[4] == 'i' && n + 3 <= left) {
      std::copy_n(p, n + 3, payload.output.begin() + 4);
      return {0, static_cast<uint32_t>(n + 7), 0x1000, payload.output};
    }
    if (p[0] == 'a' && p[1] == 2 && n >= 2) {
      const bool second = n >= 4 && left >= 7;
      std::copy_n(p + 3, second ? 4 : 2, payload.output.begin());
      return {0, second ? 4u : 2u, second ? 0x300u : 0x100u, payload.output};
    }
  }
  return payload;
}

TEST(CaptionPayload, AgreesWithThePlainSearch) {
  Random random(13);
  for (int round = 0; round < 60000; ++round) {
    Bytes bytes = Pick(random, random.below(24), Hex("61 61 01 02 02 03 04 96 69 00"));
    if (round % 4 == 0)
      bytes = Join({bytes, Hex("61 01"), {static_cast<uint8_t>(random.below(9))}, Hex("96 69 11 22 33")});
    const Payload plain = ParsePlainly(bytes);
    ExactCopy copy(bytes);
    Payload found;
    found.size = found.flags = 0xEEEE;
    found.result = ParseCaptionPayload(copy.data(), static_cast<uint32_t>(copy.size()), 0,
                                       found.output.data(), &found.size, &found.flags);
    ASSERT_EQ(found.result, plain.result) << ToHex(bytes);
    ASSERT_EQ(found.size, plain.size) << ToHex(bytes);
    ASSERT_EQ(found.flags, plain.flags) << ToHex(bytes);
    ASSERT_EQ(found.output, plain.output) << ToHex(bytes);
  }
}

// ---- Colour metadata ----

struct Colour {
  uint32_t count = 0;
  uint32_t light[2] = {};
  uint32_t display[12] = {};
};

// The next unit of a run with start codes, by its offsets; none where no start code is left.
std::optional<std::pair<size_t, size_t>> NextUnit(const Bytes& bytes, size_t from) {
  const auto code = [&](size_t i, int third) {
    return At(bytes, i) == 0 && At(bytes, i + 1) == 0 && At(bytes, i + 2) == third;
  };
  size_t begin = from;
  while (begin + 3 <= bytes.size() && !code(begin, 1)) ++begin;
  if (begin + 3 > bytes.size()) return std::nullopt;
  size_t end = begin + 3;
  while (end < bytes.size() && !code(end, 0) && !code(end, 1)) ++end;
  return std::pair{begin + 3, end};
}

Bytes Unescaped(const Bytes& bytes) {
  Bytes out;
  int zeros = 0;
  for (const uint8_t byte : bytes) {
    if (zeros >= 2 && byte == 3) {
      zeros = 0;
      continue;
    }
    out.push_back(byte);
    zeros = byte == 0 ? zeros + 1 : 0;
  }
  return out;
}

void FindMessages(const Bytes& bytes, Colour* colour) {
  const auto coded = [&](size_t* i) -> int64_t {
    int64_t value = 0;
    for (; At(bytes, *i) == 255; ++*i) value += 255;
    return *i < bytes.size() ? value + bytes[(*i)++] : -1;
  };
  for (size_t i = 0; i < bytes.size() && bytes[i] != 0x80;) {
    const int64_t type = coded(&i);
    const int64_t size = type < 0 ? -1 : coded(&i);
    if (size < 0 || i + static_cast<uint64_t>(size) > bytes.size()) return;
    const auto word = [&](size_t at, size_t count) {
      uint32_t value = 0;
      for (size_t k = 0; k < count; ++k) value = value << 8 | bytes[i + at + k];
      return value;
    };
    if (type == 137 && size >= 24) {
      constexpr size_t kWords[] = {2, 3, 4, 5, 0, 1, 6, 7};
      for (size_t k = 0; k < 8; ++k) colour->display[kWords[k]] = word(2 * k, 2);
      colour->display[9] = word(16, 4);
      colour->display[8] = word(20, 4);
      colour->display[10] = colour->display[11] = 1;
      ++colour->count;
    }
    if (type == 144 && size >= 4) {
      for (size_t k = 0; k < 2; ++k) colour->light[k] = word(2 * k, 2);
      ++colour->count;
    }
    i += static_cast<size_t>(size);
  }
}

Colour FindPlainly(const Bytes& frame) {
  Colour colour;
  size_t from = 0;
  while (frame.size() - from > 4) {
    const auto unit = NextUnit(frame, from);
    if (!unit || unit->second == unit->first) break;
    const Bytes bytes(frame.begin() + static_cast<std::ptrdiff_t>(unit->first),
                      frame.begin() + static_cast<std::ptrdiff_t>(unit->second));
    const int type = bytes[0] >> 1 & 63;
    const size_t header = bytes.size() >= 2 && (type == 39 || type == 40) ? 2 : (bytes[0] & 31) == 6 ? 1 : 0;
    if (header != 0 && bytes.size() > header) {
      FindMessages(Unescaped(Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(header), bytes.end())),
                   &colour);
    }
    from = unit->second;
  }
  return colour;
}

TEST(ColourSearch, AgreesWithThePlainOne) {
  Random random(14);
  uint32_t found = 0;
  for (int round = 0; round < 40000; ++round) {
    Bytes frame;
    for (uint64_t units = 1 + random.below(3); units > 0; --units) {
      Bytes unit = random.below(2) == 0 ? Hex("4E 01") : Hex("06");
      if (random.below(6) == 0) unit[0] = static_cast<uint8_t>(random.next());
      while (random.below(4) != 0) {
        const size_t size = random.below(30);
        const uint8_t type = Hex("89 90 89 90 05 00 80")[random.below(7)];
        if (random.below(8) == 0) unit.push_back(0xFF);
        unit = Join({unit, {type}});
        if (random.below(8) == 0) unit.push_back(0xFF);
        unit = Join({unit, {static_cast<uint8_t>(size)}, random.zeroRichBytes(size + random.below(12) / 11)});
      }
      unit.resize(unit.size() - random.below(2) * random.below(std::min<size_t>(unit.size(), 4)));
      frame = Join({frame, WithStartCode(unit, 3 + static_cast<int>(random.below(2)))});
    }
    if (random.below(8) == 0) frame = Join({frame, Pick(random, random.below(6), Hex("00 01 06 4E"))});
    if (frame.size() < 5) continue;
    const Colour plain = FindPlainly(frame);
    TestFrame record(frame, frame.size());
    ContentLightRecord light;
    MasteringDisplayRecord display;
    ASSERT_EQ(qlnutilFindColorSEI(record.get(), &light, &display), plain.count) << ToHex(frame);
    ASSERT_EQ(std::memcmp(&light, plain.light, sizeof light), 0) << ToHex(frame);
    ASSERT_EQ(std::memcmp(&display, plain.display, sizeof display), 0) << ToHex(frame);
    found += plain.count;
  }
  EXPECT_GT(found, 5000u);
}

}  // namespace
}  // namespace qln::test
