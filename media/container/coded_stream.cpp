// Translates streams and packets of libavformat.

#include "container/coded_stream.h"

namespace qlnmedia {

std::optional<Codec> CodecOf(const AVStream& stream) {
  if (!MediaFile::IsVideo(stream)) return {};
  if (stream.codecpar->codec_id == AV_CODEC_ID_H264) return Codec::kH264;
  if (stream.codecpar->codec_id == AV_CODEC_ID_HEVC) return Codec::kHevc;
  return {};
}

StreamDescription DescribeStream(const AVStream& stream, bool raw) {
  StreamDescription described;
  const AVCodecParameters& parameters = *stream.codecpar;
  if (MediaFile::IsVideo(stream)) {
    if (parameters.codec_id == AV_CODEC_ID_H264) described.codec = VideoCodec::kH264;
    if (parameters.codec_id == AV_CODEC_ID_HEVC) described.codec = VideoCodec::kHevc;
    if (parameters.codec_id == AV_CODEC_ID_MPEG2VIDEO) described.codec = VideoCodec::kMpeg2;
  }
  if (parameters.extradata_size > 0)
    described.privateData.assign(parameters.extradata, parameters.extradata + parameters.extradata_size);
  described.timeBase = FromLibav(stream.time_base);
  described.averageRate = FromLibav(stream.avg_frame_rate);
  described.baseRate = FromLibav(stream.r_frame_rate);
  described.raw = raw;
  return described;
}

StreamDescription DescribeStream(const MediaFile& file, unsigned index) {
  StreamDescription described = DescribeStream(*file.context()->streams[index], file.isRawStream());
  // Readers of transport streams and raw streams find their marks in the stream itself.
  described.ownMarks = !described.raw && file.formatName() != "mpegts";
  const ContainerColour& container = file.containerColour(index);
  if (container.height > 0) described.height = static_cast<uint32_t>(container.height);
  described.bottomFirst =
      container.fieldOrder == kBottomFirst || container.fieldOrder == kTopCodedBottomShownFirst;
  return described;
}

PacketView ViewOf(const AVPacket& packet) {
  return {ByteSpan(packet.data, static_cast<size_t>(packet.size)), packet.pts, packet.dts,
          (packet.flags & AV_PKT_FLAG_KEY) != 0, packet.pos};
}

ConfigRecord ConfigOf(const AVStream& stream) {
  const std::optional<Codec> codec = CodecOf(stream);
  const AVCodecParameters& parameters = *stream.codecpar;
  if (!codec || parameters.extradata_size <= 0) return {};
  return ReadConfigRecord(*codec,
                          ByteSpan(parameters.extradata, static_cast<size_t>(parameters.extradata_size)));
}

}  // namespace qlnmedia
