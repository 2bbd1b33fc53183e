// patch on streams whose messages stand where few expect them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/media/remake.h"
#include "qlnmedia/program.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using Units = std::vector<Bytes>;

const char* const kPictures = "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.4 -pix_fmt yuv420p ";

std::string AvcClip() {
  return MediaFile("pitfalls_avc.mp4", std::string(kPictures) +
                                           "-c:v libx264 -threads 1 -g 5 -x264-params slices=2 "
                                           "-bsf:v filter_units=remove_types=6 {out}");
}

std::string HevcClip() {
  return MediaFile("pitfalls_hevc.mp4",
                   std::string(kPictures) +
                       "-c:v libx265 -x265-params "
                       "keyint=5:open-gop=0:info=0:pools=1:frame-threads=1:log-level=none {out}");
}

// A mastering display and a light level of other values, and user data with two zero bytes in a row.
const char* const kMastering = "89 18 33C2 86C4 1D4C 0BB8 84D0 3E80 3D13 4042 00989680 000003 0001";
const char* const kLightLevel = "90 04 0384 0064";
const char* const kUserData = "05 14 00112233445566778899AABBCCDDEEFF 000003 01 07";

Bytes Sei(bool hevc, const std::string& messages) { return Hex((hevc ? "4E01 " : "06 ") + messages + " 80"); }

// The coded stream's units, packet by packet, as they are in a file with 4-byte lengths.
std::vector<Units> PacketsOf(const std::string& file) {
  std::vector<Units> packets;
  Remake remake;
  remake.units = [&packets](Units& units, int) { packets.push_back(units); };
  RemakeFile(file, MediaPath("pitfalls_read.mp4"), remake);
  return packets;
}

std::vector<Units> Patched(const std::string& clip, const std::function<void(Units&, int)>& plant,
                           const std::string& options) {
  const std::string in = MediaPath("pitfalls_in.mp4");
  const std::string out = MediaPath("pitfalls_out.mp4");
  Remake remake;
  remake.units = plant;
  RemakeFile(clip, in, remake);
  const CommandResult result = Qlnmedia("patch --verify '" + in + "' '" + out + "' " + options);
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_EQ(Decoded(out), Decoded(clip));
  return PacketsOf(out);
}

TEST(SeiPitfalls, OnlyTheAskedMessageOfSeveralInOneUnitChanges) {
  for (const bool hevc : {false, true}) {
    const std::string clip = hevc ? HevcClip() : AvcClip();
    const auto plant = [hevc](Units& units, int) {
      units.insert(units.begin(), Sei(hevc, std::string(kUserData) + kMastering + kLightLevel + kUserData));
    };
    const std::vector<Units> was = PacketsOf(clip);
    const std::vector<Units> is = Patched(clip, plant, "--light-level 700,70");
    ASSERT_EQ(was.size(), is.size());
    for (size_t i = 0; i < is.size(); ++i) {
      EXPECT_EQ(is[i][0], Sei(hevc, std::string(kUserData) + kMastering + kUserData)) << i;
      const bool keyPicture = i % 5 == 0;
      ASSERT_EQ(is[i].size(), was[i].size() + 1 + (keyPicture ? 1 : 0)) << i;
      // The new message stands in front of the first slice: 700 and 70 cd/m2.
      if (!keyPicture) continue;
      EXPECT_EQ(is[i][is[i].size() - (hevc ? 2 : 3)], Sei(hevc, "90 04 02BC 0046")) << i;
    }
  }
}

TEST(SeiPitfalls, EarlierMessagesGoWhereverTheyStand) {
  // Ahead of everything, between slices and behind the last one; in HEVC in a suffix unit too.
  for (const bool hevc : {false, true}) {
    const std::string clip = hevc ? HevcClip() : AvcClip();
    const auto plant = [hevc](Units& units, int) {
      const Bytes sei = Sei(hevc, kMastering);
      units.insert(units.begin(), sei);
      units.insert(units.end() - 1, sei);
      units.push_back(hevc ? Hex("5001 " + std::string(kMastering) + " 80") : sei);
    };
    const std::vector<Units> was = PacketsOf(clip);
    const std::vector<Units> is = Patched(clip, plant, "--hdr p3");
    for (size_t i = 0; i < is.size(); ++i) {
      Units units = is[i];
      if (i % 5 == 0) units.erase(units.end() - (hevc ? 2 : 3));
      EXPECT_EQ(units, was[i]) << i;
    }
  }
}

TEST(SeiPitfalls, MessagesOf255BytesAndMoreStayAsTheyAre) {
  for (const size_t size : {254u, 255u, 256u, 510u, 511u, 1000u}) {
    Bytes rbsp = {5};
    for (size_t left = size; true; left -= 255) {
      rbsp.push_back(static_cast<uint8_t>(std::min<size_t>(left, 255)));
      if (left < 255) break;
    }
    for (size_t i = 0; i < size; ++i) rbsp.push_back(static_cast<uint8_t>(i % 250 + 4));
    const std::string message = ToHex(rbsp);
    const auto plant = [&](Units& units, int) {
      units.insert(units.begin(), Sei(false, message + kLightLevel));
    };
    const std::vector<Units> is = Patched(AvcClip(), plant, "--light-level 1,1");
    for (const Units& units : is) EXPECT_EQ(units[0], Sei(false, message)) << size;
  }
}

TEST(SeiPitfalls, UnitsThatBreakOffStayAsTheyAre) {
  const Bytes broken = Hex("06 90 04 0384 0064 05 FF 01");
  const auto plant = [&](Units& units, int) { units.insert(units.begin(), broken); };
  for (const Units& units : Patched(AvcClip(), plant, "--light-level 1,1")) EXPECT_EQ(units[0], broken);
}

// Every SPS of a stream that repeats them changes, and those of pictures that are no random access points.
TEST(SeiPitfalls, EverySetOfTheStreamChanges) {
  for (const bool hevc : {false, true}) {
    const std::string clip = hevc ? HevcClip() : AvcClip();
    const std::string raw = MediaFile(std::string("pitfalls_sets.") + (hevc ? "hevc" : "h264"),
                                      "ffmpeg -v error -y -i '" + clip + "' -c copy -bsf:v " +
                                          (hevc ? "hevc" : "h264") + "_mp4toannexb {out}");
    const int type = hevc ? 33 : 7;
    const auto typeOf = [hevc](const Bytes& unit) { return hevc ? unit[0] >> 1 & 63 : unit[0] & 31; };
    Units stream = SplitByteStream(ReadFile(raw));
    const Bytes set =
        *std::find_if(stream.begin(), stream.end(), [&](const Bytes& unit) { return typeOf(unit) == type; });
    const auto plant = [&](Units& units, int) { units.insert(units.begin(), set); };
    const std::vector<Units> is = Patched(clip, plant, "--colour 9:18:9");
    ASSERT_EQ(is.size(), 10u);
    for (const Units& units : is) {
      EXPECT_EQ(typeOf(units[0]), type);
      EXPECT_NE(units[0], set);
      EXPECT_EQ(units[0], is[0][0]);
    }
  }
}

// The sizes that the index names are those of the packets, which lie without gap or overlap.
TEST(SeiPitfalls, SizesInTheIndexAreThoseOfThePackets) {
  for (const bool hevc : {false, true}) {
    const std::string clip = hevc ? HevcClip() : AvcClip();
    const std::vector<Units> was = PacketsOf(clip);
    const std::vector<Units> is =
        Patched(clip, nullptr, "--hdr p3 --light-level 700,70 --timecode 00:00:00:00");
    const std::string sizes =
        Text("ffprobe -v error -select_streams v -show_entries packet=size -of csv=p=0 '" +
             MediaPath("pitfalls_out.mp4") + "' | sed 's/,.*//' | grep .");
    std::string expected;
    for (const Units& units : is) {
      size_t size = 0;
      for (const Bytes& unit : units) size += unit.size() + 4;
      expected += std::to_string(size) + "\n";
    }
    EXPECT_EQ(sizes, expected);
    for (size_t i = 0; i < is.size(); ++i) EXPECT_GT(is[i].size(), was[i].size());
  }
}

}  // namespace
}  // namespace qln::test
