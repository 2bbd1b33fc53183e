// Remuxes with libavformat and rewrites what is told.

#include "remake.h"

#include <gtest/gtest.h>

#include <cstring>

namespace qln::test {

namespace {

std::vector<Bytes> SplitLengths(const AVPacket& packet) {
  std::vector<Bytes> units;
  for (int at = 0; at + 4 <= packet.size;) {
    const uint8_t* const head = packet.data + at;
    const int size = head[0] << 24 | head[1] << 16 | head[2] << 8 | head[3];
    units.emplace_back(head + 4, head + 4 + size);
    at += 4 + size;
  }
  return units;
}

Bytes JoinLengths(const std::vector<Bytes>& units, int lengthBytes) {
  Bytes joined;
  for (const Bytes& unit : units) {
    EXPECT_TRUE(lengthBytes == 4 || unit.size() >> 8 * lengthBytes == 0) << unit.size();
    for (int i = lengthBytes - 1; i >= 0; --i) joined.push_back(static_cast<uint8_t>(unit.size() >> 8 * i));
    joined.insert(joined.end(), unit.begin(), unit.end());
  }
  return joined;
}

void ReplacePrivateData(AVCodecParameters& parameters, const Bytes& bytes) {
  av_freep(&parameters.extradata);
  parameters.extradata = static_cast<uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  std::memcpy(parameters.extradata, bytes.data(), bytes.size());
  parameters.extradata_size = static_cast<int>(bytes.size());
}

void DescribeStream(AVStream& stream, const Remake& remake) {
  AVCodecParameters& parameters = *stream.codecpar;
  Bytes data(parameters.extradata, parameters.extradata + parameters.extradata_size);
  // lengthSizeMinusOne: byte 4 of an avcC, byte 21 of an hvcC.
  uint8_t& lengths = data.at(parameters.codec_id == AV_CODEC_ID_H264 ? 4 : 21);
  lengths = static_cast<uint8_t>((lengths & ~3) | (remake.lengthBytes - 1));
  if (remake.privateData) remake.privateData(data);
  ReplacePrivateData(parameters, data);
  if (remake.description) remake.description(stream);
}

}  // namespace

void RemakeFile(const std::string& in, const std::string& out, const Remake& remake) {
  AVFormatContext* from = nullptr;
  ASSERT_GE(avformat_open_input(&from, in.c_str(), nullptr, nullptr), 0) << in;
  ASSERT_GE(avformat_find_stream_info(from, nullptr), 0);
  AVFormatContext* to = nullptr;
  ASSERT_GE(avformat_alloc_output_context2(&to, nullptr, nullptr, out.c_str()), 0);
  const int video = av_find_best_stream(from, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  to->avoid_negative_ts = AVFMT_AVOID_NEG_TS_DISABLED;
  for (unsigned i = 0; i < from->nb_streams; ++i) {
    AVStream* const stream = avformat_new_stream(to, nullptr);
    avcodec_parameters_copy(stream->codecpar, from->streams[i]->codecpar);
    stream->codecpar->codec_tag = 0;
    stream->time_base = from->streams[i]->time_base;
    if (static_cast<int>(i) == video) DescribeStream(*stream, remake);
  }
  ASSERT_GE(avio_open(&to->pb, out.c_str(), AVIO_FLAG_WRITE), 0) << out;
  ASSERT_GE(avformat_write_header(to, nullptr), 0) << out;
  AVPacket* packet = av_packet_alloc();
  for (int count = 0; av_read_frame(from, packet) >= 0;) {
    const int index = packet->stream_index;
    if (index == video) {
      std::vector<Bytes> units = SplitLengths(*packet);
      if (remake.units) remake.units(units, count);
      ++count;
      const Bytes bytes = JoinLengths(units, remake.lengthBytes);
      AVPacket* made = av_packet_alloc();
      av_new_packet(made, static_cast<int>(bytes.size()));
      std::memcpy(made->data, bytes.data(), bytes.size());
      av_packet_copy_props(made, packet);
      made->stream_index = index;
      av_packet_unref(packet);
      av_packet_move_ref(packet, made);
      av_packet_free(&made);
    }
    av_packet_rescale_ts(packet, from->streams[index]->time_base, to->streams[index]->time_base);
    packet->pos = -1;
    ASSERT_GE(av_write_frame(to, packet), 0);
    av_packet_unref(packet);
  }
  av_packet_free(&packet);
  ASSERT_GE(av_write_trailer(to), 0);
  avio_closep(&to->pb);
  avformat_free_context(to);
  avformat_close_input(&from);
}

}  // namespace qln::test
