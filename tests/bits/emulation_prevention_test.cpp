// The two linear passes against a byte-by-byte form of the same rules.

#include "qlnutil/bits/emulation_prevention.h"

#include <gtest/gtest.h>

#include <cstring>

#include "support/test_support.h"

namespace qln {
namespace {

using test::Bytes;
using test::Hex;
using test::Random;

// Moves bytes down one at a time, as the rule of each reader is told. endsEarly: the loop ends one byte in
// front of where it could, as that of the SPS reader does.
Bytes RemovePlain(Bytes bytes, const EmulationRemoval& policy, size_t* removed, bool endsEarly = false) {
  *removed = 0;
  const size_t size = bytes.size();
  size_t n = size;
  for (size_t i = policy.firstIndex; i + (endsEarly ? 4 : 3) <= n;) {
    const uint8_t third = bytes[i + 2];
    if (bytes[i] == 0 && bytes[i + 1] == 0 && (third == 3 || (policy.removesTwelve && third == 12)) &&
        i + 3 + (policy.keepsSize ? *removed : 0) <= size) {
      std::memmove(&bytes[i + 2], &bytes[i + 2] + 1, n - i - 3);
      ++*removed;
      i += 2;
      if (!policy.keepsSize) bytes[--n] = 0;
    } else {
      ++i;
    }
  }
  return bytes;
}

Bytes Remove(const Bytes& bytes, const EmulationRemoval& policy, size_t* removed) {
  Bytes out(bytes.size());
  *removed = RemoveEmulationPrevention(out.data(), bytes.data(), bytes.size(), policy);
  Bytes inPlace = bytes;
  EXPECT_EQ(RemoveEmulationPrevention(inPlace.data(), inPlace.data(), inPlace.size(), policy), *removed);
  EXPECT_EQ(inPlace, out);
  return out;
}

TEST(EmulationRemoval, EqualsMovingBytesOneAtATime) {
  Random random(1);
  for (const EmulationRemoval& policy : {kRemovalH264Sps, kRemovalH264Pps, kRemovalH264Slice, kRemovalHevcVps,
                                         kRemovalHevcSpsPps, kRemovalHevcBox, kRemovalSeiPayload}) {
    for (int round = 0; round < 20000; ++round) {
      const Bytes bytes = random.zeroRichBytes(random.below(48));
      size_t plainRemoved;
      size_t removed;
      const Bytes plain = RemovePlain(bytes, policy, &plainRemoved);
      const Bytes fast = Remove(bytes, policy, &removed);
      ASSERT_EQ(removed, plainRemoved) << test::ToHex(bytes);
      ASSERT_EQ(fast, plain) << test::ToHex(bytes);
    }
  }
}

// A loop that ends in front of a triple at the very end leaves the same bytes as one that removes it.
TEST(EmulationRemoval, SpsKeepsATripleAtTheVeryEnd) {
  Random random(2);
  for (int round = 0; round < 40000; ++round) {
    Bytes bytes = random.zeroRichBytes(random.below(24));
    if (round % 2 == 0) bytes.insert(bytes.end(), {0, 0, 3});
    size_t removed;
    const Bytes plain = RemovePlain(bytes, kRemovalH264Sps, &removed, true);
    ASSERT_EQ(Remove(bytes, kRemovalH264Sps, &removed), plain) << test::ToHex(bytes);
  }
}

TEST(EmulationRemoval, SpsKeepsATripleInTheFirstThreeBytes) {
  size_t removed;
  EXPECT_EQ(Remove(Hex("67 00 00 03 01 00 00 03"), kRemovalH264Sps, &removed),
            Hex("67 00 00 03 01 00 00 03"));
  EXPECT_EQ(Remove(Hex("67 64 00 00 00 03 AA BB"), kRemovalH264Sps, &removed),
            Hex("67 64 00 00 00 AA BB BB"));
  EXPECT_EQ(removed, 1u);
}

TEST(EmulationRemoval, SpsLosesBothOfTwoTriplesInARow) {
  size_t removed;
  EXPECT_EQ(Remove(Hex("67 64 28 00 00 03 00 00 03 AA BB"), kRemovalH264Sps, &removed),
            Hex("67 64 28 00 00 00 00 AA BB BB BB"));
  EXPECT_EQ(removed, 2u);
}

TEST(EmulationRemoval, PpsRemovesTwelveAndTheLastByte) {
  size_t removed;
  EXPECT_EQ(Remove(Hex("68 01 02 00 00 0C AA"), kRemovalH264Pps, &removed), Hex("68 01 02 00 00 AA AA"));
  EXPECT_EQ(Remove(Hex("68 01 02 00 00 03"), kRemovalH264Pps, &removed), Hex("68 01 02 00 00 03"));
  EXPECT_EQ(removed, 1u);
  EXPECT_EQ(Remove(Hex("68 01 02 00 00 0C AA"), kRemovalH264Sps, &removed), Hex("68 01 02 00 00 0C AA"));
}

// Moves bytes up one at a time (HEVC), or copies triple by triple (H.264), as the rule of each writer is
// told.
Bytes InsertPlain(const Bytes& in, const EmulationInsertion& policy) {
  Bytes out;
  if (policy.limitIsUnescapedSize) {
    out = in;
    if (in.size() < policy.smallestSize) return out;
    const size_t limit = in.size();
    for (size_t i = policy.firstIndex; i + 2 <= limit;) {
      if (out[i] == 0 && out[i + 1] == 0 && i + 2 < out.size() && out[i + 2] <= 3) {
        out.insert(out.begin() + static_cast<std::ptrdiff_t>(i + 2), 3);
        i += 2;
      } else {
        ++i;
      }
    }
    return out;
  }
  size_t i = std::min<size_t>(policy.firstIndex, in.size());
  out.assign(in.begin(), in.begin() + static_cast<std::ptrdiff_t>(i));
  while (in.size() - i > 2) {
    if (in[i] == 0 && in[i + 1] == 0 && in[i + 2] <= 3) {
      out.insert(out.end(), {0, 0, 3});
      i += 2;
      if (policy.stepsBehindTriple) out.push_back(in[i++]);
    } else {
      out.push_back(in[i++]);
    }
  }
  out.insert(out.end(), in.begin() + static_cast<std::ptrdiff_t>(i), in.end());
  return out;
}

Bytes Insert(const Bytes& in, const EmulationInsertion& policy) {
  Bytes out(WorstEscapedSize(in.size()));
  const size_t written = InsertEmulationPrevention(out.data(), out.size(), in.data(), in.size(), policy);
  EXPECT_NE(written, kDoesNotFit);
  out.resize(written);
  Bytes exact(written);
  EXPECT_EQ(InsertEmulationPrevention(exact.data(), written, in.data(), in.size(), policy), written);
  EXPECT_EQ(exact, out);
  if (written > 0) {
    EXPECT_EQ(InsertEmulationPrevention(exact.data(), written - 1, in.data(), in.size(), policy),
              kDoesNotFit);
  }
  return out;
}

TEST(EmulationInsertion, EqualsThePlainForm) {
  Random random(2);
  for (const EmulationInsertion& policy : {kInsertionH264Writer, kInsertionHevcWriter, kInsertionSeiPacket}) {
    for (int round = 0; round < 20000; ++round) {
      Bytes bytes = random.zeroRichBytes(4 + random.below(48));
      bytes.back() |= 1;  // a unit ends in its stop bit
      ASSERT_EQ(Insert(bytes, policy), InsertPlain(bytes, policy)) << test::ToHex(bytes);
    }
  }
}

TEST(EmulationInsertion, H264WriterDoesNotCarryZerosOverATriple) {
  EXPECT_EQ(Insert(Hex("00 00 00 00 03"), kInsertionH264Writer), Hex("00 00 03 00 00 03"));
  EXPECT_EQ(Insert(Hex("67 00 00 02 80"), kInsertionH264Writer), Hex("67 00 00 03 02 80"));
  EXPECT_EQ(Insert(Hex("67 80 00 00"), kInsertionH264Writer), Hex("67 80 00 00"));
}

TEST(EmulationInsertion, HevcWriterStopsAtTheUnescapedSize) {
  // After one insertion the last byte's output index is the size before it: still looked at. After two, the
  // last byte is not.
  EXPECT_EQ(Insert(Hex("42 01 01 00 00 01 00 00 01"), kInsertionHevcWriter),
            Hex("42 01 01 00 00 03 01 00 00 03 01"));
  EXPECT_EQ(Insert(Hex("42 01 01 00 00 01 00 00 01 00 00 01"), kInsertionHevcWriter),
            Hex("42 01 01 00 00 03 01 00 00 03 01 00 00 01"));
  EXPECT_EQ(Insert(Hex("00 00 01 01"), kInsertionHevcWriter), Hex("00 00 01 01"));
  EXPECT_EQ(Insert(Hex("00 00 01 01 01"), kInsertionHevcWriter), Hex("00 00 01 01 01"));
}

TEST(EmulationInsertion, SeiPacketLeavesItsPrefixAlone) {
  EXPECT_EQ(Insert(Hex("00 00 00 01 06 00 00 02 80"), kInsertionSeiPacket),
            Hex("00 00 00 01 06 00 00 03 02 80"));
  EXPECT_EQ(Insert(Hex("00 00 00 01 06 00 00 00 00 00"), kInsertionSeiPacket),
            Hex("00 00 00 01 06 00 00 03 00 00 03 00"));
  EXPECT_EQ(Insert(Hex("00 00 00 01 06 07 00 00"), kInsertionSeiPacket), Hex("00 00 00 01 06 07 00 00"));
}

}  // namespace
}  // namespace qln
