// Takes apart what is said of a stream.

#include "units/coded_stream.h"

namespace qlnmedia {

std::optional<Codec> UnitCodecOf(VideoCodec codec) {
  if (codec == VideoCodec::kH264) return Codec::kH264;
  if (codec == VideoCodec::kHevc) return Codec::kHevc;
  return {};
}

ConfigRecord ConfigOf(const StreamDescription& stream) {
  const std::optional<Codec> codec = UnitCodecOf(stream.codec);
  if (!codec) return {};
  ConfigRecord config;
  if (!stream.privateData.empty()) config = ReadConfigRecord(*codec, stream.privateData);
  config.codec = *codec;
  if (stream.lengthBytes) config.framing.lengthBytes = *stream.lengthBytes;
  return config;
}

}  // namespace qlnmedia
