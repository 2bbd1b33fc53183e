// Muxes with libavformat, since no command line takes times for raw fields.

#include "qlnmedia/media/field_mux.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "container/libav_handles.h"
#include "support/media.h"

namespace qln::test {

namespace {

constexpr int kReorder = 2;  // frames

// Times in fields.
struct Times {
  int64_t pts;
  int64_t dts;
};

std::vector<Times> TimesOf(const std::vector<CodedFrame>& frames) {
  std::vector<Times> times;
  int64_t first = 0;  // place of the last IDR picture
  for (size_t i = 0; i < frames.size(); ++i) {
    if (frames[i].idr) first = static_cast<int64_t>(i);
    times.push_back({2 * (first + frames[i].place), 2 * (static_cast<int64_t>(i) - kReorder)});
  }
  return times;
}

void Write(AVFormatContext* context, const Bytes& data, Times times, int64_t fields, bool key) {
  const qlnmedia::PacketHandle packet(av_packet_alloc());
  ASSERT_EQ(av_new_packet(packet.get(), static_cast<int>(data.size())), 0);
  std::memcpy(packet->data, data.data(), data.size());
  packet->pts = times.pts + 2 * kReorder;
  packet->dts = times.dts + 2 * kReorder;
  packet->duration = fields;
  packet->flags = key ? AV_PKT_FLAG_KEY : 0;
  av_packet_rescale_ts(packet.get(), {1, 50}, context->streams[0]->time_base);
  ASSERT_GE(av_interleaved_write_frame(context, packet.get()), 0);
}

}  // namespace

void MuxFields(const std::string& path, const std::vector<CodedFrame>& frames, bool bothInOnePacket,
               const FieldStreamOptions& options) {
  AVFormatContext* context = nullptr;
  ASSERT_GE(avformat_alloc_output_context2(&context, nullptr, nullptr, path.c_str()), 0);
  AVStream* const stream = avformat_new_stream(context, nullptr);
  stream->time_base = {1, 50};
  stream->avg_frame_rate = {25, 1};
  AVCodecParameters& parameters = *stream->codecpar;
  parameters.codec_type = AVMEDIA_TYPE_VIDEO;
  parameters.codec_id = AV_CODEC_ID_H264;
  parameters.width = parameters.height = kFieldStreamSize;
  const std::vector<Bytes> pictures = MakeFieldPictures(frames, options);
  Bytes sets;
  for (const Bytes& unit : SplitByteStream(pictures[0])) {
    if ((unit[0] & 31) == 7 || (unit[0] & 31) == 8) sets = Join({sets, WithStartCode(unit)});
  }
  parameters.extradata = static_cast<uint8_t*>(av_mallocz(sets.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  parameters.extradata_size = static_cast<int>(sets.size());
  std::memcpy(parameters.extradata, sets.data(), sets.size());
  ASSERT_GE(avio_open(&context->pb, path.c_str(), AVIO_FLAG_WRITE), 0);
  ASSERT_GE(avformat_write_header(context, nullptr), 0);
  const std::vector<Times> times = TimesOf(frames);
  size_t next = 0;
  for (size_t i = 0; i < frames.size(); ++i) {
    const Bytes& first = pictures[next++];
    if (!frames[i].fields) {
      Write(context, first, times[i], 2, frames[i].idr);
      continue;
    }
    const Bytes& second = pictures[next++];
    if (bothInOnePacket) {
      Write(context, Join({first, second}), times[i], 2, frames[i].idr);
    } else {
      Write(context, first, times[i], 1, frames[i].idr);
      Write(context, second, {times[i].pts + 1, times[i].dts + 1}, 1, false);
    }
  }
  ASSERT_EQ(av_write_trailer(context), 0);
  avio_closep(&context->pb);
  avformat_free_context(context);
}

std::vector<CodedFrame> FieldGroups(int groups, bool bottomFirst) {
  std::vector<CodedFrame> frames;
  for (int group = 0; group < groups; ++group) {
    frames.push_back({.place = 0, .idr = true});
    for (int place = 1; place + 2 < 13; place += 3) {
      frames.push_back({.place = place + 2});
      frames.push_back({.place = place, .fields = place % 2 == 0, .reference = false});
      frames.push_back({.place = place + 1, .reference = false});
    }
  }
  for (CodedFrame& frame : frames) frame.bottomFirst = bottomFirst;
  return frames;
}

}  // namespace qln::test
