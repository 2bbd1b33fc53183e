// Program maps that change while a transport stream is patched as it comes (ISO/IEC 13818-1 clauses 2.4.4.8
// and 2.4.4.9): maps are written by hand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "qlnmedia/media/live_bytes.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr size_t kPacket = 188;
constexpr int kMap = 0x1000, kVideo = 0x100, kMoved = 0x120;
constexpr uint8_t kAvc = 0x1B, kHevc = 0x24;

struct Entry {
  uint8_t type;
  int identifier;
};

// Annex A: the polynomial of the CRC, bit by bit.
uint32_t Crc(const Bytes& bytes) {
  uint32_t crc = 0xFFFFFFFF;
  for (const uint8_t byte : bytes) {
    for (int bit = 7; bit >= 0; --bit) {
      const bool high = (crc >> 31 ^ (byte >> bit & 1)) != 0;
      crc = crc << 1 ^ (high ? 0x04C11DB7 : 0);
    }
  }
  return crc;
}

Bytes MapPacket(const std::vector<Entry>& entries, int version, uint8_t counter, bool inForce = true) {
  Bytes section = {2, 0xB0, 0, 0, 1, static_cast<uint8_t>(0xC0 | version << 1 | (inForce ? 1 : 0)), 0, 0};
  const auto put = [&section](int identifier) {
    section.push_back(static_cast<uint8_t>(0xE0 | identifier >> 8));
    section.push_back(static_cast<uint8_t>(identifier));
  };
  put(entries.empty() ? 0x1FFF : entries.front().identifier);  // PCR_PID
  section.insert(section.end(), {0xF0, 0});
  for (const Entry& entry : entries) {
    section.push_back(entry.type);
    put(entry.identifier);
    section.insert(section.end(), {0xF0, 0});
  }
  section[2] = static_cast<uint8_t>(section.size() - 3 + 4);
  const uint32_t crc = Crc(section);
  for (const int shift : {24, 16, 8, 0}) section.push_back(static_cast<uint8_t>(crc >> shift));
  Bytes packet = {0x47, 0x40 | kMap >> 8, kMap & 0xFF, static_cast<uint8_t>(0x10 | counter), 0};
  Append(packet, section);
  packet.resize(kPacket, 0xFF);
  return packet;
}

int IdentifierOf(const Bytes& packet) { return (packet[1] & 0x1F) << 8 | packet[2]; }

std::string Stream() { return LiveClip("live_programs.ts", "-c:a aac"); }

// The stream with other maps from the second group of pictures on, and its pictures under another identifier.
Bytes Changed(const Bytes& whole, const std::vector<Entry>& entries, int video = kVideo,
              bool inForce = true) {
  std::vector<Bytes> packets;
  for (size_t at = 0; at + kPacket <= whole.size(); at += kPacket)
    packets.emplace_back(whole.begin() + static_cast<std::ptrdiff_t>(at),
                         whole.begin() + static_cast<std::ptrdiff_t>(at + kPacket));
  size_t last = 0, from = 0;
  int keys = 0;
  for (size_t i = 0; i < packets.size() && from == 0; ++i) {
    const Bytes& packet = packets[i];
    if (IdentifierOf(packet) == kMap) last = i;
    const bool key = IdentifierOf(packet) == kVideo && (packet[1] & 0x40) != 0 && (packet[3] & 0x20) != 0 &&
                     packet[4] != 0 && (packet[5] & 0x40) != 0;  // random_access_indicator
    if (key && ++keys == 2) from = last;
  }
  EXPECT_NE(from, 0u);
  Bytes out;
  for (size_t i = 0; i < packets.size(); ++i) {
    Bytes& packet = packets[i];
    if (i >= from && IdentifierOf(packet) == kMap) {
      packet = MapPacket(entries, 1, packet[3] & 0xF, inForce);
    } else if (i >= from && IdentifierOf(packet) == kVideo) {
      packet[1] = static_cast<uint8_t>((packet[1] & 0xE0) | video >> 8);
      packet[2] = static_cast<uint8_t>(video);
    }
    Append(out, packet);
  }
  return out;
}

Bytes PatchedFile(const std::string& file, const std::string& options) {
  const std::string out = MediaPath("live_programs_want.ts");
  EXPECT_EQ(Qlnmedia("patch '" + file + "' '" + out + "' " + options).exitCode, 0);
  return ReadFile(out);
}

const char* const kOptions[] = {"--colour bt709", "--timecode 01:00:00:00 --colour bt709"};

TEST(LivePrograms, AStreamThatMovesIsFollowed) {
  for (const std::string options : kOptions) {
    const Bytes whole = ReadFile(Stream());
    const Bytes in = Changed(whole, {{kAvc, kMoved}, {0x0F, 0x101}}, kMoved);
    const LiveResult result = PatchedLive(in, options);
    EXPECT_THAT(result.said, HasSubstr("the stream of packet identifier 256 goes on as 288"));
    EXPECT_THAT(result.said, Not(HasSubstr("passed on")));
    const Bytes want = ElementaryBytes(PatchedFile(Stream(), options), {kVideo});
    EXPECT_TRUE(ElementaryBytes(result.out, {kVideo, kMoved}) == want) << options;
    EXPECT_FALSE(ElementaryBytes(result.out, {kMoved}).empty());
    EXPECT_TRUE(PatchedLive(in, options, "dd bs=1 status=none").out == result.out);
  }
}

TEST(LivePrograms, WhatMovesTwiceAndBackKeepsItsNumbers) {
  const Bytes whole = ReadFile(Stream());
  Bytes in = Changed(whole, {{kAvc, kMoved}, {0x0F, 0x101}}, kMoved);
  // Maps in a row, of which nothing comes.
  const Bytes there = MapPacket({{kAvc, 0x130}, {0x0F, 0x101}}, 2, 0);
  const Bytes back = MapPacket({{kAvc, kVideo}, {0x0F, 0x101}}, 3, 1);
  const Bytes first(in.begin(), in.begin() + static_cast<std::ptrdiff_t>(kPacket * 40));
  Bytes twice = first;
  Append(twice, there);
  Append(twice, back);
  Append(twice, Bytes(in.begin() + static_cast<std::ptrdiff_t>(first.size()), in.end()));
  const std::string options = "--timecode 01:00:00:00";
  const LiveResult result = PatchedLive(twice, options);
  EXPECT_TRUE(SlicesIn(ElementaryBytes(result.out, {kVideo, kMoved})) ==
              SlicesIn(ElementaryBytes(in, {kVideo, kMoved})));
  EXPECT_THAT(result.said, HasSubstr("goes on as 304"));
  EXPECT_THAT(result.said, HasSubstr("goes on as 288"));
}

// One of two goes, and the other seems to move to its identifier: both go on, and nothing of either is lost.
TEST(LivePrograms, WhereAStreamSeemsToMoveToOneThatWasGone) {
  const std::string clip = LiveClip("live_programs_two.ts", "-map 0:v -map 0:v");
  const Bytes in = ReadFile(clip);
  constexpr int kOther = kVideo + 1;
  Bytes changed(in.begin(), in.begin() + static_cast<std::ptrdiff_t>(kPacket * 60));
  Append(changed, MapPacket({{kAvc, kVideo}}, 1, 7));
  Append(changed, MapPacket({{kAvc, kOther}}, 2, 8));
  Append(changed, Bytes(in.begin() + static_cast<std::ptrdiff_t>(kPacket * 60), in.end()));
  for (const std::string options : kOptions) {
    const LiveResult result = PatchedLive(changed, options);
    EXPECT_THAT(result.said, HasSubstr("257 is no more there"));
    EXPECT_THAT(result.said, HasSubstr("256 goes on as 257"));
    const Bytes want = PatchedFile(clip, options);
    for (const int identifier : {kVideo, kOther}) {
      ASSERT_FALSE(ElementaryBytes(want, {identifier}).empty());
      EXPECT_TRUE(ElementaryBytes(result.out, {identifier}) == ElementaryBytes(want, {identifier}))
          << identifier;
    }
  }
}

TEST(LivePrograms, AnotherTypeUnderTheSameIdentifierPasses) {
  for (const std::string options : kOptions) {
    const Bytes whole = ReadFile(Stream());
    const Bytes in = Changed(whole, {{kHevc, kVideo}, {0x0F, 0x101}});
    const LiveResult result = PatchedLive(in, options);
    EXPECT_THAT(result.said, HasSubstr("256 is of another type: passed on as it comes"));
    const std::vector<Bytes> came = UnitsIn(ElementaryBytes(in, {kVideo}));
    const std::vector<Bytes> out = UnitsIn(ElementaryBytes(result.out, {kVideo}));
    ASSERT_GT(out.size(), 40u);
    // Behind the change units are those that came; in front of it the first set is another one.
    EXPECT_TRUE(std::vector<Bytes>(came.end() - 40, came.end()) ==
                std::vector<Bytes>(out.end() - 40, out.end()));
    EXPECT_FALSE(std::vector<Bytes>(came.begin(), came.begin() + 4) ==
                 std::vector<Bytes>(out.begin(), out.begin() + 4));
  }
}

TEST(LivePrograms, NewOnesAndThoseThatGoAreTold) {
  const Bytes whole = ReadFile(Stream());
  const std::string options = kOptions[0];
  const Bytes want = ElementaryBytes(PatchedFile(Stream(), options), {kVideo});
  const LiveResult more =
      PatchedLive(Changed(whole, {{kAvc, kVideo}, {0x0F, 0x101}, {kHevc, 0x1F0}}), options);
  EXPECT_THAT(more.said, HasSubstr("496 is new: passed on as it comes"));
  EXPECT_TRUE(ElementaryBytes(more.out, {kVideo}) == want);
  const LiveResult fewer = PatchedLive(Changed(whole, {{0x0F, 0x101}}), options);
  EXPECT_THAT(fewer.said, HasSubstr("256 is no more there"));
  // A version that says the same, and one that is not in force yet.
  const LiveResult same = PatchedLive(Changed(whole, {{kAvc, kVideo}, {0x0F, 0x101}}), options);
  EXPECT_THAT(same.said, Not(HasSubstr("program map")));
  const LiveResult next = PatchedLive(Changed(whole, {{kAvc, kMoved}}, kVideo, false), options);
  EXPECT_THAT(next.said, Not(HasSubstr("program map")));
  EXPECT_TRUE(ElementaryBytes(next.out, {kVideo}) == want);
}

// Maps of all lengths with any bytes in them: nothing but what is right is believed.
TEST(LivePrograms, DamagedMapsAreNotBelieved) {
  const Bytes whole = ReadFile(Stream());
  const std::string options = kOptions[0];
  for (const size_t at : {5u, 7u, 10u, 16u, 18u, 20u}) {
    Bytes in = Changed(whole, {{kAvc, kMoved}, {0x0F, 0x101}});
    for (size_t packet = 0; packet + kPacket <= in.size(); packet += kPacket) {
      if (((in[packet + 1] & 0x1F) << 8 | in[packet + 2]) == kMap && in[packet + 10] != 0xC1)
        in[packet + at] ^= 0x55;
    }
    const LiveResult result = PatchedLive(in, options);
    EXPECT_THAT(result.said, Not(HasSubstr("goes on as"))) << at;
  }
}

// A list of tracks that comes again.
TEST(LivePrograms, ALaterListOfTracksIsTold) {
  const Bytes whole = ReadFile(LiveClip("live_programs.mkv", "-c:a aac -cluster_time_limit 500"));
  const Bytes id = {0x1F, 0x43, 0xB6, 0x75};  // Cluster
  const auto second = std::find_end(whole.begin(), whole.end(), id.begin(), id.end());
  Bytes in(whole.begin(), second);
  Append(in, {0x16, 0x54, 0xAE, 0x6B, 0x83, 0xEC, 0x81, 0});  // Tracks with Void in it
  in.insert(in.end(), second, whole.end());
  const LiveResult result = PatchedLive(in, kOptions[0]);
  EXPECT_THAT(result.said, HasSubstr("another list of tracks"));
}

}  // namespace
}  // namespace qln::test
