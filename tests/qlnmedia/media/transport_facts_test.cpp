// What broadcasters measure of a transport stream holds in the output where it held in the input: how exact
// its clock references are, how far they are apart, and that every picture is there before it is decoded.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "qlnmedia/program.h"
#include "support/media.h"

namespace qln::test {
namespace {

constexpr size_t kPacket = 188;
constexpr double kClock = 27e6;

struct Reference {
  size_t at;       // of its packet
  double seconds;  // what it says
};

struct Picture {
  size_t end = 0;  // behind its last packet
  double decoded = 0;
};

struct Facts {
  size_t packets = 0;
  std::vector<Reference> references;
  std::vector<Picture> pictures;  // of the one video stream
  double inexact = 0;             // most nanoseconds that a reference is off a constant rate
  double longestGap = 0;          // seconds from reference to reference
  double leastSlack = std::numeric_limits<double>::max();  // from a picture's last byte to its decoding
  size_t fullest = 0;                                      // bytes in the transport buffer
};

double Time33(const uint8_t* p) {
  const uint64_t ticks = uint64_t{p[0]} >> 1 & 7;
  return static_cast<double>(ticks << 30 | uint64_t{p[1]} << 22 | uint64_t{p[2]} >> 1 << 15 |
                             uint64_t{p[3]} << 7 | p[4] >> 1) /
         90000;
}

// ISO/IEC 13818-1, clause 2.4.3.4: the clock reference of an adaptation field.
std::optional<double> ReferenceOf(const uint8_t* packet) {
  if ((packet[3] & 0x20) == 0 || packet[4] == 0 || (packet[5] & 0x10) == 0) return {};
  const uint8_t* const p = packet + 6;
  const uint64_t base =
      uint64_t{p[0]} << 25 | uint64_t{p[1]} << 17 | uint64_t{p[2]} << 9 | uint64_t{p[3]} << 1 | p[4] >> 7;
  const unsigned extension = (p[4] & 1u) << 8 | p[5];
  return static_cast<double>(base * 300 + extension) / kClock;
}

double ArrivalOf(const std::vector<Reference>& references, size_t at) {
  auto behind = std::upper_bound(references.begin(), references.end(), at,
                                 [](size_t place, const Reference& r) { return place < r.at; });
  if (behind == references.begin()) ++behind;
  if (behind == references.end()) --behind;
  const Reference& a = *std::prev(behind);
  const Reference& b = *behind;
  return a.seconds + (b.seconds - a.seconds) * (static_cast<double>(at) - static_cast<double>(a.at)) /
                         static_cast<double>(b.at - a.at);
}

void MeasureClock(Facts& facts) {
  const Reference& first = facts.references.front();
  const Reference& last = facts.references.back();
  const double slope = (last.seconds - first.seconds) / static_cast<double>(last.at - first.at);
  for (size_t i = 0; i < facts.references.size(); ++i) {
    const Reference& r = facts.references[i];
    const double expected = first.seconds + slope * static_cast<double>(r.at - first.at);
    facts.inexact = std::max(facts.inexact, std::abs(r.seconds - expected) * 1e9);
    if (i != 0) facts.longestGap = std::max(facts.longestGap, r.seconds - facts.references[i - 1].seconds);
  }
}

Facts Measure(const std::string& file, uint16_t video) {
  const Bytes bytes = ReadFile(file);
  Facts facts;
  facts.packets = bytes.size() / kPacket;
  std::vector<size_t> places;  // of the video's packets
  for (size_t at = 0; at + kPacket <= bytes.size(); at += kPacket) {
    const uint8_t* const packet = &bytes[at];
    EXPECT_EQ(packet[0], 0x47) << at;
    if (const auto seconds = ReferenceOf(packet)) facts.references.push_back({at, *seconds});
    if (((packet[1] & 0x1F) << 8 | packet[2]) != video) continue;
    places.push_back(at);
    if ((packet[1] & 0x40) != 0) {
      const size_t field = (packet[3] & 0x20) != 0 ? size_t{packet[4]} + 1 : 0;
      const uint8_t* const pes = packet + 4 + field;
      const bool two = (pes[7] & 0x40) != 0;
      facts.pictures.push_back({0, Time33(pes + (two ? 14 : 9))});
    }
    if (!facts.pictures.empty()) facts.pictures.back().end = at + kPacket;
  }
  if (facts.references.size() < 2) {
    ADD_FAILURE() << file << " has no clock";
    return facts;
  }
  MeasureClock(facts);
  for (const Picture& picture : facts.pictures)
    facts.leastSlack = std::min(facts.leastSlack, picture.decoded - ArrivalOf(facts.references, picture.end));
  // The transport buffer, clause 2.4.2.3 and 2.14.3: it leaks at 1.2 times what the lowest level allows.
  constexpr double kLeak = 1.2 * 2e6 / 8;
  double fullness = 0, before = 0;
  for (const size_t at : places) {
    const double now = ArrivalOf(facts.references, at + kPacket);
    fullness = std::max(0.0, fullness - (now - before) * kLeak) + kPacket;
    before = now;
    facts.fullest = std::max(facts.fullest, static_cast<size_t>(fullness));
  }
  return facts;
}

std::string Made(const std::string& name, const std::string& options) {
  return MediaFile(
      name,
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x120:r=25:d=2 -f lavfi -i sine=d=2 -c:v libx264 "
      "-preset veryfast -bf 2 -b:v 300k -maxrate 300k -bufsize 150k -threads 1 -c:a aac " +
          options + " {out}");
}

constexpr uint16_t kVideo = 0x100;

TEST(TransportFacts, AConstantRateKeepsItsClockAndItsBuffers) {
  const std::string in = Made("facts_constant.ts", "-muxrate 1200k");
  const std::string out = MediaPath("facts_constant.ts");
  const CommandResult patch =
      Qlnmedia("patch '" + in + "' '" + out + "' --keep-rate --delimiters --timecode 01:00:00:00");
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  const Facts was = Measure(in, kVideo), is = Measure(out, kVideo);
  ASSERT_EQ(was.pictures.size(), 50u);
  // The muxer's own: half a microsecond is what is allowed.
  ASSERT_LT(was.inexact, 500);
  ASSERT_GT(was.leastSlack, 0);
  ASSERT_LE(was.fullest, 512u);
  EXPECT_EQ(is.packets, was.packets);
  EXPECT_LT(is.inexact, 500);
  EXPECT_EQ(is.longestGap, was.longestGap);
  ASSERT_EQ(is.pictures.size(), was.pictures.size());
  EXPECT_GT(is.leastSlack, 0);
  EXPECT_LE(is.fullest, 512u);
}

TEST(TransportFacts, WhatIsPutInLeavesEveryPictureInTime) {
  const std::string in = Made("facts_free.ts", "-pcr_period 20");
  const std::string out = MediaPath("facts_free.ts");
  const CommandResult patch =
      Qlnmedia("patch '" + in + "' '" + out + "' --delimiters --timecode 01:00:00:00");
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  const Facts was = Measure(in, kVideo), is = Measure(out, kVideo);
  ASSERT_EQ(was.pictures.size(), 50u);
  ASSERT_GT(was.leastSlack, 0);
  EXPECT_GT(is.packets, was.packets);
  EXPECT_EQ(is.longestGap, was.longestGap);
  ASSERT_EQ(is.references.size(), was.references.size());
  for (size_t i = 0; i < was.references.size(); ++i)
    EXPECT_EQ(is.references[i].seconds, was.references[i].seconds);
  EXPECT_GT(is.leastSlack, 0);
}

}  // namespace
}  // namespace qln::test
