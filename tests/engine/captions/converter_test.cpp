// Caption packets and triplets in both directions, as GStreamer's converter understands them.

#include <gtest/gtest.h>

#include <algorithm>

#include "captions/cdp.h"
#include "captions/sequencer.h"
#include "support/media.h"
#include "support/test_support.h"

namespace qlnmedia::captions {
namespace {

using qln::test::MediaPath;
using qln::test::ReadFile;

// Of what is in files of equal pieces.
Bytes Converted(const Bytes& pieces, size_t size, const std::string& from, const std::string& to) {
  const std::string in = MediaPath("converter_in.bin"), out = MediaPath("converter_out.bin");
  qln::test::WriteFile(in, pieces);
  const auto result =
      qln::test::Run("gst-launch-1.0 -q filesrc location='" + in + "' blocksize=" + std::to_string(size) +
                     " ! '" + from + "' ! ccconverter ! '" + to + "' ! filesink location='" + out + "'");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  return ReadFile(out);
}

const std::string kRate = ",framerate=30000/1001";
const std::string kPackets = "closedcaption/x-cea-708,format=cdp" + kRate;
const std::string kTriplets = "closedcaption/x-cea-708,format=cc_data" + kRate;
const std::string kPairs = "closedcaption/x-cea-608,format=raw" + kRate;

// Twelve pictures with pairs of both fields.
std::vector<CaptionPacket> Packets() {
  Sequencer sequencer(Rate::k29_97);
  sequencer.AddPairs(1, {0x94AE, 0x94AE, 0x9420, 0x9420, 0x9470, 0x9470, 0xC1C2, 0x942F, 0x942F});
  sequencer.AddPairs(2, {0x1520, 0x1520, 0x1570, 0x1570, 0x43C4});
  std::vector<CaptionPacket> packets;
  for (int i = 0; i < 12; ++i) packets.push_back(sequencer.NextPacket());
  return packets;
}

void AddTriplet(const Triplet& t, Bytes* bytes) {
  const bool null = t.first == 0x80 && t.second == 0x80;  // some say that these are valid, others not
  bytes->insert(bytes->end(),
                {static_cast<uint8_t>(0xF8 | (t.valid && !null ? 4 : 0) | static_cast<uint8_t>(t.type)),
                 t.first, t.second});
}

class Converter : public testing::Test {
 protected:
  void SetUp() override {
    if (qln::test::Run("gst-launch-1.0 --version && gst-inspect-1.0 ccconverter").exitCode != 0)
      GTEST_SKIP() << "no GStreamer with caption plug-ins";
    for (const CaptionPacket& packet : Packets()) {
      const Bytes cdp = WriteCdp(packet);
      size_ = cdp.size();
      packets_.insert(packets_.end(), cdp.begin(), cdp.end());
      for (size_t i = 0; i < 2; ++i) AddTriplet(packet.triplets[i], &triplets_);
      pairs_.insert(pairs_.end(), {packet.triplets[0].first, packet.triplets[0].second});
    }
  }
  size_t size_ = 0;
  Bytes packets_, triplets_, pairs_;  // triplets of line 21 alone, pairs of field 1
};

TEST_F(Converter, ReadsThePacketsThatAreWritten) {
  EXPECT_EQ(Converted(packets_, size_, kPackets, kTriplets), triplets_);
  EXPECT_EQ(Converted(packets_, size_, kPackets, kPairs), pairs_);
}

TEST_F(Converter, WritesPacketsThatAreRead) {
  for (const auto& [bytes, size, form] :
       {std::tuple(triplets_, size_t{6}, kTriplets), std::tuple(pairs_, size_t{2}, kPairs)}) {
    const Bytes packets = Converted(bytes, size, form, kPackets);
    Bytes triplets;
    uint16_t counter = 0;
    for (size_t at = 0; at < packets.size(); at += packets[at + 2]) {
      ASSERT_LE(at + 3, packets.size());
      const auto begin = packets.begin() + static_cast<std::ptrdiff_t>(at);
      std::string reason;
      const auto end = std::min<size_t>(packets[at + 2], packets.size() - at);
      const auto packet = ReadCdp(Bytes(begin, begin + static_cast<std::ptrdiff_t>(end)), &reason);
      ASSERT_TRUE(packet) << reason;
      EXPECT_EQ(packet->rate, Rate::k29_97);
      EXPECT_EQ(packet->counter, counter++);
      for (size_t i = 0; i < 2; ++i) AddTriplet(packet->triplets.at(i), &triplets);
    }
    EXPECT_EQ(counter, 12);
    if (size == 6) {
      EXPECT_EQ(triplets, triplets_);
    } else {
      Bytes firsts;
      for (size_t i = 0; i + 6 <= triplets.size(); i += 6)
        firsts.insert(firsts.end(), {triplets[i + 1], triplets[i + 2]});
      EXPECT_EQ(firsts, pairs_);
    }
  }
}

}  // namespace
}  // namespace qlnmedia::captions
