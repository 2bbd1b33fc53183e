// Marker form to length form and back, against a walk that moves the frame byte by byte.

#include "qlnutil/h264/frame_conversion.h"

#include <chrono>

#include "h264/h264_test_support.h"
#include "qlnutil/h264/start_code.h"

namespace qln {
namespace {

using test::Bytes;
using test::Hex;
using test::Join;
using test::Random;

// The conversion as a forward walk that moves the rest of the frame up at each start code of 3 bytes.
Bytes MarkerToSizePlain(Bytes frame) {
  const auto is = [&](size_t pos, std::initializer_list<uint8_t> code) {
    return pos + code.size() <= frame.size() &&
           std::equal(code.begin(), code.end(), frame.begin() + static_cast<std::ptrdiff_t>(pos));
  };
  if (frame.size() < 4 || (!is(0, {0, 0, 0, 1}) && !is(0, {0, 0, 1}))) return frame;
  constexpr size_t kNone = ~size_t{0} - 1;
  size_t prev = kNone;
  const auto store = [&](size_t pos) {
    if (prev == kNone) return;
    const size_t value = pos - prev - 4;
    for (size_t i = 0; i < 4; ++i) frame[prev + i] = static_cast<uint8_t>(value >> (24 - 8 * i));
  };
  size_t pos = 0;
  for (; pos + 4 <= frame.size(); ++pos) {
    const bool four = is(pos, {0, 0, 0, 1});
    const bool three = !four && is(pos, {0, 0, 1}) && pos != prev + 1;
    if (!four && !three) continue;
    store(pos);
    prev = pos;
    if (three) frame.insert(frame.begin() + static_cast<std::ptrdiff_t>(pos), 0);
  }
  store(frame.size());
  return frame;
}

Bytes MarkerToSize(const Bytes& frame) {
  const uint32_t size = static_cast<uint32_t>(frame.size());
  const uint32_t widened = CountWidenedMarkers(frame.data(), size);
  test::ExactCopy buffer(frame, widened);
  const uint32_t newSize = qlnUtilh264MarkerToSize(buffer.data(), size);
  EXPECT_EQ(newSize, size + widened);
  return Bytes(buffer.data(), buffer.data() + newSize);
}

Bytes SizeToMarker(const Bytes& frame, uint32_t* result) {
  test::ExactCopy buffer(frame);
  *result = qlnUtilh264SizeToMarker(buffer.data(), static_cast<uint32_t>(frame.size()));
  return buffer.bytes();
}

TEST(FrameConversion, SizesAreBigEndian) {
  uint8_t bytes[4] = {};
  StoreBigEndian32(bytes, 0x81020304);
  EXPECT_EQ(test::ToHex(bytes, 4), "81 02 03 04");
  EXPECT_EQ(LoadBigEndian32(bytes), 0x81020304u);
}

TEST(MarkerToSize, WidensStartCodesOfThreeBytes) {
  EXPECT_EQ(MarkerToSize(Hex("00 00 01 67 42 00 00 00 01 68")), Hex("00 00 00 02 67 42 00 00 00 01 68"));
  EXPECT_EQ(MarkerToSize(Hex("00 00 00 01 67 42 00 00 01 68 EE 00 00 01 65")),
            Hex("00 00 00 02 67 42 00 00 00 02 68 EE 00 00 00 01 65"));
}

TEST(MarkerToSize, CountsBytesInFrontOfTheNextMarkerToTheUnit) {
  EXPECT_EQ(MarkerToSize(Hex("00 00 00 01 67 00 00 00 00 00 01 68")),
            Hex("00 00 00 03 67 00 00 00 00 00 01 68"));
}

TEST(MarkerToSize, DoesNotSearchTheLastThreeBytes) {
  EXPECT_EQ(MarkerToSize(Hex("00 00 00 01 67 00 00 01")), Hex("00 00 00 04 67 00 00 01"));
  EXPECT_EQ(MarkerToSize(Hex("00 00 00 01 67 00 00 00 01")), Hex("00 00 00 01 67 00 00 00 00"));
  EXPECT_EQ(MarkerToSize(Hex("00 00 00 01 67 00 00 01 68")), Hex("00 00 00 01 67 00 00 00 01 68"));
}

TEST(MarkerToSize, LeavesFramesThatDoNotBeginWithAStartCode) {
  for (const Bytes& frame : {Hex(""), Hex("00"), Hex("00 00 01"), Hex("00 00 00 02 67 42"),
                             Hex("00 00 00 00 01 67"), Hex("67 00 00 01 68")}) {
    EXPECT_EQ(MarkerToSize(frame), frame);
  }
  EXPECT_EQ(MarkerToSize(Hex("00 00 00 01")), Hex("00 00 00 00"));
  EXPECT_EQ(MarkerToSize(Hex("00 00 01 67")), Hex("00 00 00 01 67"));
  EXPECT_EQ(qlnUtilh264MarkerToSize(nullptr, 12), 12u);
}

TEST(MarkerToSize, EqualsTheForwardWalk) {
  Random random(4);
  for (int round = 0; round < 60000; ++round) {
    Bytes frame;
    const uint64_t size = random.below(80);
    while (frame.size() < size) {
      const uint64_t kind = random.below(8);
      frame.push_back(static_cast<uint8_t>(kind < 5 ? 0 : kind < 7 ? 1 : 2 + random.below(254)));
    }
    if (round % 2 == 0) frame = Join({Hex(round % 4 == 0 ? "00 00 01" : "00 00 00 01"), frame});
    ASSERT_EQ(MarkerToSize(frame), MarkerToSizePlain(frame)) << test::ToHex(frame);
  }
}

// What is found is remembered up to some number of start codes, and searched for again where there are more.
TEST(MarkerToSize, EqualsTheForwardWalkForAnyNumberOfMarkers) {
  Random random(7);
  for (const int codes : {1, 2, 16, 255, 256, 257, 258, 600}) {
    for (int round = 0; round < 8; ++round) {
      Bytes frame;
      for (int i = 0; i < codes; ++i) {
        if (random.below(3) == 0) frame.push_back(0);
        frame.insert(frame.end(), {0, 0, 1});
        for (uint64_t left = random.below(round % 2 == 0 ? 4 : 90); left != 0; --left)
          frame.push_back(static_cast<uint8_t>(2 + random.below(254)));
      }
      ASSERT_EQ(MarkerToSize(frame), MarkerToSizePlain(frame)) << codes << ' ' << round;
    }
  }
}

TEST(MarkerToSize, IsLinearInTheNumberOfShortMarkers) {
  Bytes frame;
  for (int i = 0; i < 1 << 20; ++i) frame.insert(frame.end(), {0, 0, 1, 9});
  const auto begin = std::chrono::steady_clock::now();
  const Bytes converted = MarkerToSize(frame);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
  ASSERT_EQ(converted.size(), frame.size() / 4 * 5);
  EXPECT_EQ(Bytes(converted.end() - 10, converted.end()), Hex("00 00 00 01 09 00 00 00 01 09"));
}

TEST(FrameConversion, CountsWhatWouldBeWidened) {
  const auto count = [](const char* hex) {
    const Bytes frame = Hex(hex);
    test::ExactCopy copy(frame);
    return CountWidenedMarkers(copy.data(), static_cast<uint32_t>(copy.size()));
  };
  EXPECT_EQ(count("00 00 01 67 00 00 01 68"), 2u);
  EXPECT_EQ(count("00 00 01 67 00 00 00 01 68"), 1u);
  EXPECT_EQ(count("00 00 01 67 00 00 01"), 1u);
  EXPECT_EQ(count("00 00 00 05 67 00 00 01 68"), 0u);
  EXPECT_EQ(count("00 00 01"), 0u);
  EXPECT_EQ(CountWidenedMarkers(nullptr, 9), 0u);
}

TEST(FrameConversion, TellsWhetherAFrameBeginsWithAStartCode) {
  const auto begins = [](const char* hex) {
    test::ExactCopy copy(Hex(hex));
    return BeginsWithStartCode(copy.data(), static_cast<uint32_t>(copy.size()));
  };
  EXPECT_TRUE(begins("00 00 01"));
  EXPECT_TRUE(begins("00 00 00 01"));
  EXPECT_FALSE(begins("00 00 00"));
  EXPECT_FALSE(begins("00 00"));
  EXPECT_FALSE(begins(""));
  EXPECT_FALSE(begins("00 00 00 02"));
  EXPECT_FALSE(begins("01 00 00 01"));
  EXPECT_FALSE(BeginsWithStartCode(nullptr, 4));
}

TEST(SizeToMarker, PutsFourByteStartCodes) {
  uint32_t result;
  EXPECT_EQ(SizeToMarker(Hex("00 00 00 02 67 42 00 00 00 03 68 EE 01 00 00 00 05 65"), &result),
            Hex("00 00 00 01 67 42 00 00 00 01 68 EE 01 00 00 00 05 65"));
  EXPECT_EQ(result, 18u);  // the last length reaches beyond: half converted
  EXPECT_EQ(SizeToMarker(Hex("00 00 00 02 67 42 00 00 00 01 68"), &result),
            Hex("00 00 00 01 67 42 00 00 00 01 68"));
  EXPECT_EQ(result, 11u);
}

TEST(SizeToMarker, LeavesAFrameThatBeginsWithAStartCodeOrAUnitOfOneByte) {
  uint32_t result;
  const Bytes frame = Hex("00 00 00 01 67 00 00 00 02 68 EE");
  EXPECT_EQ(SizeToMarker(frame, &result), frame);
  EXPECT_EQ(result, frame.size());
  // 00 00 01 is a length here: 0x167, beyond the end.
  const Bytes shortCode = Hex("00 00 01 67 42");
  EXPECT_EQ(SizeToMarker(shortCode, &result), shortCode);
  EXPECT_EQ(result, 5u);
}

TEST(SizeToMarker, ALengthOfZeroEndsTheFrame) {
  uint32_t result;
  EXPECT_EQ(SizeToMarker(Hex("00 00 00 02 67 42 00 00 00 00 68 EE"), &result),
            Hex("00 00 00 01 67 42 00 00 00 00 68 EE"));
  EXPECT_EQ(result, 6u);
  EXPECT_EQ(SizeToMarker(Hex("00 00 00 00 68 EE"), &result), Hex("00 00 00 00 68 EE"));
  EXPECT_EQ(result, 0u);
}

TEST(SizeToMarker, ALengthThatCutsIntoItsPrefixPassesAndEndsTheWalk) {
  uint32_t result;
  // 6 bytes are left: 6 is refused, 5, 4 and 3 pass, 2 is right.
  EXPECT_EQ(SizeToMarker(Hex("00 00 00 06 67 42"), &result), Hex("00 00 00 06 67 42"));
  for (const char* frame :
       {"00 00 00 05 67 42", "00 00 00 04 67 42", "00 00 00 03 67 42", "00 00 00 02 67 42"}) {
    EXPECT_EQ(SizeToMarker(Hex(frame), &result), Hex("00 00 00 01 67 42")) << frame;
    EXPECT_EQ(result, 6u);
  }
}

TEST(SizeToMarker, ALengthMayBeTheLastFourBytes) {
  uint32_t result;
  const Bytes unit = Hex("00 00 00 02 67 42");
  const Bytes marked = Hex("00 00 00 01 67 42");
  // 3 is below the 4 bytes that are left, 4 is not; 0 ends the frame in front of it.
  EXPECT_EQ(SizeToMarker(Join({unit, Hex("00 00 00 03")}), &result), Join({marked, Hex("00 00 00 01")}));
  EXPECT_EQ(result, 10u);
  EXPECT_EQ(SizeToMarker(Join({unit, Hex("00 00 00 04")}), &result), Join({marked, Hex("00 00 00 04")}));
  EXPECT_EQ(result, 10u);
  EXPECT_EQ(SizeToMarker(Join({unit, Hex("00 00 00 00")}), &result), Join({marked, Hex("00 00 00 00")}));
  EXPECT_EQ(result, 6u);
}

TEST(MarkerToSize, AMarkerMayBeTheLastFourBytes) {
  // A code of three bytes with its one byte behind, and one of four with none.
  EXPECT_EQ(MarkerToSize(Hex("00 00 00 01 67 00 00 01 68")), Hex("00 00 00 01 67 00 00 00 01 68"));
  EXPECT_EQ(MarkerToSize(Hex("00 00 01 67 00 00 00 01")), Hex("00 00 00 01 67 00 00 00 00"));
  EXPECT_EQ(MarkerToSize(Hex("00 00 01 67 11 00 00 01")), Hex("00 00 00 05 67 11 00 00 01"));
}

TEST(SizeToMarker, FewerThanFourBytesAtALengthStay) {
  uint32_t result;
  for (const Bytes& tail : {Hex("00"), Hex("00 00"), Hex("00 00 00"), Hex("FF FF FF")}) {
    EXPECT_EQ(SizeToMarker(Join({Hex("00 00 00 02 67 42"), tail}), &result),
              Join({Hex("00 00 00 01 67 42"), tail}));
    EXPECT_EQ(result, 6 + tail.size());
    EXPECT_EQ(SizeToMarker(tail, &result), tail);
    EXPECT_EQ(result, tail.size());
  }
  EXPECT_EQ(SizeToMarker(Hex("FF FF FF FF 00"), &result), Hex("FF FF FF FF 00"));
  EXPECT_EQ(qlnUtilh264SizeToMarker(nullptr, 7), 7u);
}

TEST(FrameConversion, TheFormsAreEachOthersInverseForFramesWithoutStartCodesInside) {
  Random random(6);
  for (int round = 0; round < 500; ++round) {
    Bytes frame;
    for (uint64_t units = 1 + random.below(6); units > 0; --units) {
      Bytes unit = random.bytes(2 + random.below(300));
      for (uint8_t& byte : unit) byte |= 2;
      frame = Join({frame, test::WithLength(unit)});
    }
    uint32_t result;
    const Bytes markers = SizeToMarker(frame, &result);
    EXPECT_EQ(result, frame.size());
    EXPECT_NE(markers, frame);
    EXPECT_EQ(MarkerToSize(markers), frame);
  }
}

}  // namespace
}  // namespace qln
