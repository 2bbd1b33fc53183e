// Packets of a transport stream that belong together: which wait, which are joined, and what passes.

#include "container/packet_joiner.h"

#include <gtest/gtest.h>

#include <cstring>

#include "engine/patch/small_files.h"
#include "support/program_tables.h"

namespace qlnmedia {
namespace {

// A file of tables and a few pictures that libavformat takes for a transport stream with H.264 in it.
Bytes TransportStream() {
  Bytes stream = qln::test::TablePackets(0, qln::test::AssociationTable(0x1000));
  qln::test::AppendBytes(stream, qln::test::TablePackets(0x1000, qln::test::MapTable({{0x1B, 0x101}})));
  Bytes pes = qln::test::Hex("000001 E0 0000 80 80 05 2100010001");  // a time, and pictures behind it
  for (const AccessUnit& packet : test::PictureStream(3, 0).packets)
    pes.insert(pes.end(), packet.data.begin(), packet.data.end());
  for (size_t at = 0, count = 0; at < pes.size(); ++count) {
    const size_t size = std::min(pes.size() - at, size_t{184});
    const size_t stuffing = 184 - size;
    Bytes packet = {0x47, static_cast<uint8_t>(at == 0 ? 0x41 : 0x01), 0x01,
                    static_cast<uint8_t>((stuffing != 0 ? 0x30 : 0x10) | (count & 15))};
    if (stuffing != 0) packet.push_back(static_cast<uint8_t>(stuffing - 1));
    if (stuffing > 1) packet.push_back(0);
    packet.resize(188 - size, 0xFF);
    packet.insert(packet.end(), pes.begin() + static_cast<std::ptrdiff_t>(at),
                  pes.begin() + static_cast<std::ptrdiff_t>(at + size));
    qln::test::AppendBytes(stream, packet);
    at += size;
  }
  return stream;
}

class Joiner : public testing::Test {
 protected:
  PacketHandle Packet(const char* bytes, int64_t time, int stream = 0) {
    const Bytes data = qln::test::Hex(bytes);
    PacketHandle packet(av_packet_alloc());
    EXPECT_EQ(av_new_packet(packet.get(), static_cast<int>(data.size())), 0);
    std::memcpy(packet->data, data.data(), data.size());
    packet->pts = packet->dts = time;
    packet->duration = 1800;
    packet->stream_index = stream;
    return packet;
  }
  static std::string Bytes16(const PacketHandle& packet) {
    return packet == nullptr ? "none" : qln::test::ToHex(packet->data, static_cast<size_t>(packet->size));
  }
  test::Files files_;
};

TEST_F(Joiner, FieldsWithoutTimesGoBehindTheOneInFront) {
  const MediaFile file(files_.Put("a.ts", TransportStream()));
  ASSERT_TRUE(file.isTransportStream());
  ASSERT_EQ(file.streams().at(0).coded.codec, VideoCodec::kH264);
  PacketJoiner joiner(file);
  EXPECT_EQ(joiner.Take(Packet("AA", 0).get()), nullptr);  // waits
  EXPECT_EQ(joiner.Take(Packet("BB", AV_NOPTS_VALUE).get()), nullptr);
  const PacketHandle joined = joiner.Take(Packet("CC", 3600).get());
  EXPECT_EQ(Bytes16(joined), "AA BB");
  EXPECT_EQ(joined->pts, 0);
  EXPECT_EQ(joined->duration, 3600);
  EXPECT_EQ(Bytes16(joiner.Finish()), "CC");
  EXPECT_EQ(joiner.Finish(), nullptr);
}

TEST_F(Joiner, OnlyAPacketWithoutAnyTimeIsJoined) {
  const MediaFile file(files_.Put("a.ts", TransportStream()));
  PacketJoiner joiner(file);
  EXPECT_EQ(joiner.Take(Packet("AA", AV_NOPTS_VALUE).get()), nullptr);  // nothing in front of it
  PacketHandle decoded = Packet("BB", AV_NOPTS_VALUE);
  decoded->dts = 5;
  EXPECT_EQ(Bytes16(joiner.Take(decoded.get())), "AA");
  // One of a stream that is not known passes.
  EXPECT_EQ(Bytes16(joiner.Take(Packet("DD", AV_NOPTS_VALUE, 7).get())), "DD");
  EXPECT_EQ(Bytes16(joiner.Finish()), "BB");
}

TEST_F(Joiner, OtherContainersPassAtOnce) {
  const MediaFile file(files_.Put("a.mp4", test::PictureFile(test::PictureStream())));
  PacketJoiner joiner(file);
  EXPECT_EQ(Bytes16(joiner.Take(Packet("AA", 0).get())), "AA");
  EXPECT_EQ(Bytes16(joiner.Take(Packet("BB", AV_NOPTS_VALUE).get())), "BB");
  EXPECT_EQ(joiner.Finish(), nullptr);
}

}  // namespace
}  // namespace qlnmedia
