// Reads the first packets of each coded video stream and collects its parameter sets.

#include "container/coded_stream.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/error.h"

namespace qlnmedia {

std::string CodedStream::configName() const {
  if (!config.box) return "private data";
  return codec == Codec::kH264 ? "avcC" : "hvcC";
}

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
  described.bottomFirst = container.fieldOrder == AV_FIELD_BB || container.fieldOrder == AV_FIELD_TB;
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

std::vector<CodedStream> ReadCodedStreams(MediaFile& file, int frames) {
  std::vector<CodedStream> streams;
  for (unsigned i = 0; i < file.context()->nb_streams; ++i) {
    const AVStream& stream = *file.context()->streams[i];
    const std::optional<Codec> codec = CodecOf(stream);
    if (!codec) continue;
    CodedStream coded;
    coded.index = i;
    coded.codec = *codec;
    coded.timeBase = stream.time_base;
    const AVCodecParameters& parameters = *stream.codecpar;
    coded.width = static_cast<uint32_t>(parameters.width);
    coded.height = static_cast<uint32_t>(parameters.height);
    if (parameters.extradata_size > 0)
      coded.privateData.assign(parameters.extradata, parameters.extradata + parameters.extradata_size);
    coded.config = ReadConfigRecord(*codec, coded.privateData);
    streams.push_back(std::move(coded));
  }
  const PacketHandle packet(av_packet_alloc());
  if (packet == nullptr) throw std::bad_alloc();
  const auto wanted = static_cast<size_t>(frames);
  const auto missing = [&] {
    return std::any_of(streams.begin(), streams.end(),
                       [&](const CodedStream& coded) { return coded.packets.size() < wanted; });
  };
  while (missing() && file.Read(packet.get())) {
    for (CodedStream& coded : streams) {
      if (packet->stream_index != static_cast<int>(coded.index) || coded.packets.size() >= wanted) continue;
      coded.packets.push_back({Bytes(packet->data, packet->data + packet->size), packet->pts, packet->dts,
                               (packet->flags & AV_PKT_FLAG_KEY) != 0});
    }
  }
  return streams;
}

std::string FoundSet::Places() const { return fmt::format("{}", fmt::join(places, ", ")); }

SetCollector::SetCollector(const CodedStream& stream) {
  for (const Bytes& unit : stream.config.units()) Add(stream.codec, unit, stream.configName());
  for (size_t n = 0; n < stream.packets.size(); ++n) {
    for (const Unit& unit : TakeApart(stream.packets[n].data, stream.config.framing).units)
      Add(stream.codec, unit.bytes, fmt::format("frame {}", n));
  }
}

void SetCollector::Add(Codec codec, const Bytes& unit, const std::string& place) {
  const int type = UnitType(codec, unit);
  if (!IsParameterSet(codec, type)) return;
  for (FoundSet& set : sets_) {
    if (set.bytes != unit) continue;
    if (set.places.back() != place) set.places.push_back(place);
    return;
  }
  sets_.push_back({unit, type, {place}});
}

void AddMessages(Section& section, MessageSink& messages) {
  for (const LibraryMessage& message : messages.Take()) section.AddNote("the library says: " + message.text);
}

std::string TimeText(int64_t timestamp, AVRational timeBase) {
  if (timestamp == AV_NOPTS_VALUE) return "-";
  return fmt::format("{:.3f}", static_cast<double>(timestamp) * av_q2d(timeBase));
}

Json TimeJson(int64_t timestamp, AVRational timeBase) {
  if (timestamp == AV_NOPTS_VALUE) return nullptr;
  return static_cast<double>(timestamp) * av_q2d(timeBase);
}

}  // namespace qlnmedia
