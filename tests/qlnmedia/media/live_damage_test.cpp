// Damage in streams that are patched as they come: a line tells of it, slices are those that came, and what
// is behind it is edited again.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

#include "qlnmedia/media/live_bytes.h"

namespace qln::test {
namespace {

using testing::HasSubstr;

const char* const kTimecodes = "--timecode 01:00:00:00";
const char* const kColour = "--colour bt709";

Bytes Noise(size_t size) {
  std::minstd_rand random(1);
  Bytes noise(size);
  for (uint8_t& byte : noise) byte = static_cast<uint8_t>(1 + random() % 255);  // no start code
  return noise;
}

size_t Find(const Bytes& in, const Bytes& what) {
  return static_cast<size_t>(std::search(in.begin(), in.end(), what.begin(), what.end()) - in.begin());
}

Bytes Part(const Bytes& of, size_t begin, size_t end) {
  return {of.begin() + static_cast<std::ptrdiff_t>(begin), of.begin() + static_cast<std::ptrdiff_t>(end)};
}

size_t TimecodesIn(const Bytes& stream) {
  const std::vector<Bytes> units = UnitsIn(stream);
  return static_cast<size_t>(std::count_if(units.begin(), units.end(), [](const Bytes& unit) {
    return unit.size() > 1 && (unit[0] & 0x1F) == 6 && unit[1] == 1;  // pic_timing
  }));
}

// The raw stream with other bytes from the begin of slice `number` on: `change` gets what stands there, up to
// the next slice.
Bytes RawWith(size_t number, const std::function<Bytes(Bytes slice)>& change) {
  const Bytes stream = ReadFile(LiveClip("live_damage.h264"));
  const std::vector<Bytes> slices = SlicesIn(stream);
  const size_t begin = Find(stream, slices.at(number)) - 3, end = Find(stream, slices.at(number + 1)) - 3;
  Bytes out = Part(stream, 0, begin);
  Append(out, change(Part(stream, begin, end)));
  Append(out, Part(stream, end, stream.size()));
  return out;
}

void ExpectTold(const Bytes& in, const std::string& options, const std::string& line) {
  const LiveResult result = PatchedLive(in, options);
  EXPECT_THAT(result.said, HasSubstr(line)) << options;
  EXPECT_TRUE(SlicesIn(result.out) == SlicesIn(in)) << options;
  const LiveResult slow = PatchedLive(in, options, "dd bs=1 status=none");
  EXPECT_TRUE(slow.out == result.out) << options;
  EXPECT_EQ(slow.said, result.said) << options;
}

TEST(LiveDamage, SlicesThatBreakOffPassAndTheEditorTakesUpAgain) {
  for (const size_t left : {3u, 4u, 5u}) {
    const Bytes in = RawWith(10, [left](const Bytes& slice) { return Part(slice, 0, left); });
    ExpectTold(in, kColour, left == 3 ? "changed" : "break off");
    if (left != 3) ExpectTold(in, kTimecodes, "taken up again");
  }
  // The group of pictures with the damage has timecodes up to there, the other one on all of its pictures.
  const Bytes in = RawWith(10, [](const Bytes& slice) { return Part(slice, 0, 5); });
  const Bytes out = PatchedLive(in, kTimecodes).out;
  const std::vector<Bytes> slices = SlicesIn(out);
  const auto idr =
      std::find_if(slices.begin() + 1, slices.end(), [](const Bytes& unit) { return (unit[0] & 0x1F) == 5; });
  ASSERT_NE(idr, slices.end());
  EXPECT_EQ(TimecodesIn(Part(out, Find(out, *idr), out.size())), 24u)
      << "that of the first one stands in front of it";
}

TEST(LiveDamage, GarbageBetweenUnitsPasses) {
  const Bytes noise = Noise(500);
  for (const uint8_t type : {uint8_t{0x7E}, uint8_t{0x1F}, uint8_t{0}}) {
    const Bytes in = RawWith(10, [&](const Bytes& slice) {
      Bytes out = {0, 0, 1, type};
      Append(out, noise);
      Append(out, slice);
      return out;
    });
    for (const char* const options : {kColour, kTimecodes}) {
      const LiveResult result = PatchedLive(in, options);
      EXPECT_TRUE(SlicesIn(result.out) == SlicesIn(in));
      EXPECT_LT(Find(result.out, noise), result.out.size()) << "it is still there";
    }
  }
}

TEST(LiveDamage, AStreamThatBeginsInTheMiddlePassesUpToItsSets) {
  const Bytes whole = ReadFile(LiveClip("live_damage.h264"));
  const Bytes in = Part(whole, Find(whole, SlicesIn(whole).at(10)) - 3, whole.size());
  ExpectTold(in, kColour, "taken up again; 15 passed on as they came");
  ExpectTold(in, kTimecodes, "taken up again; 15 passed on as they came");
  EXPECT_EQ(TimecodesIn(PatchedLive(in, kTimecodes).out), 25u);
}

class LostPackets : public testing::Test {
 protected:
  LostPackets() : whole_(ReadFile(LiveClip("live_damage.ts", "-c:a aac"))) {
    for (size_t at = 0; at + 188 <= whole_.size(); at += 188) {
      if (((whole_[at + 1] & 0x1F) << 8 | whole_[at + 2]) != 0x100) continue;
      if ((whole_[at + 1] & 0x40) != 0) begins_.push_back(video_.size());
      video_.push_back(at);
    }
  }
  // The place of a packet of the tenth picture.
  size_t At(size_t number) const { return video_.at(begins_.at(10) + number); }
  Bytes Without(size_t first, size_t count) const {
    std::set<size_t> left;
    for (size_t i = 0; i < count; ++i) left.insert(At(first + i));
    Bytes out;
    for (size_t at = 0; at + 188 <= whole_.size(); at += 188) {
      if (left.count(at) == 0) Append(out, Part(whole_, at, at + 188));
    }
    return out;
  }
  static void Expect(const Bytes& in, const std::string& line, const std::set<int>& of = {0x100}) {
    for (const char* const options : {kColour, kTimecodes}) {
      const LiveResult result = PatchedLive(in, options);
      EXPECT_THAT(result.said, HasSubstr(line)) << options;
      EXPECT_TRUE(SlicesIn(ElementaryBytes(result.out, of)) == SlicesIn(ElementaryBytes(in, of))) << options;
    }
    EXPECT_GE(TimecodesIn(ElementaryBytes(PatchedLive(in, kTimecodes).out, of)), 25u);
  }

  Bytes whole_;
  std::vector<size_t> video_, begins_;  // places of packets; numbers of those that begin a PES packet
};

TEST_F(LostPackets, InTheMiddleAtTheBeginAndOverPictures) {
  const std::string line = "a packet of identifier 256 is lost, cut off or damaged: passed on as it came";
  Expect(Without(2, 1), line);
  Expect(Without(0, 1), line);
  Expect(Without(2, 30), line);
}

TEST_F(LostPackets, MarkedOrWithAWrongLengthOrWithoutABegin) {
  const std::string line = "a packet of identifier 256 is lost, cut off or damaged: passed on as it came";
  Bytes marked = whole_;
  marked[At(2) + 1] |= 0x80;  // transport_error_indicator
  Expect(marked, line);
  const size_t pes = At(0) + ((whole_[At(0) + 3] & 0x20) != 0 ? size_t{5} + whole_[At(0) + 4] : 4);
  Bytes shorter = whole_;
  shorter[pes + 5] = 0x20;  // PES_packet_length
  Expect(shorter, line);
  Bytes bare = whole_;
  bare[pes] = 9;  // packet_start_code_prefix
  Expect(bare, line);
}

TEST_F(LostPackets, BytesBetweenPackets) {
  // As much as keeps the reader of this test in step.
  Bytes noise = Noise(188);
  noise[0] = 1;
  Bytes in = Part(whole_, 0, At(2));
  Append(in, noise);
  Append(in, Part(whole_, At(2), whole_.size()));
  Expect(in, "bytes that are no packets");
  const Bytes out = PatchedLive(in, kColour).out;
  EXPECT_LT(Find(out, noise), out.size());
}

// A length that leads past its picture, and one that is 0.
TEST(LiveDamage, WrongLengthsInMatroska) {
  const Bytes whole = ReadFile(LiveClip("live_damage.mkv", "-c:a aac"));
  const Bytes slice = SlicesIn(ReadFile(LiveClip("live_damage.h264"))).at(10);
  const size_t at = Find(whole, slice);
  ASSERT_LT(at, whole.size());
  for (const uint8_t high : {uint8_t{0x7F}, uint8_t{1}}) {
    Bytes in = whole;
    in[at - 4] = high;
    const LiveResult result = PatchedLive(in, kTimecodes);
    EXPECT_THAT(result.said, HasSubstr("passed on as it came"));
    EXPECT_THAT(result.said, HasSubstr("taken up again"));
    // Numbers go on as if nothing had been lost; a reader of its own tells them.
    EXPECT_THAT(test::Run("ffprobe -v error -select_streams v -show_frames '" + MediaPath("live_bytes_out") +
                          "' 2>&1")
                    .output,
                HasSubstr("01:00:01:24"));
    const Bytes damaged = Part(in, at - 4, at + slice.size());
    EXPECT_LT(Find(result.out, damaged), result.out.size()) << "as it came";
  }
}

}  // namespace
}  // namespace qln::test
