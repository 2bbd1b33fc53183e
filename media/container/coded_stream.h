// The coded side of one video stream as a report needs it: its private data and its first packets.
#ifndef MEDIA_CONTAINER_CODED_STREAM_H
#define MEDIA_CONTAINER_CODED_STREAM_H

#include <optional>
#include <string>
#include <vector>

#include "base/library_messages.h"
#include "base/report.h"
#include "container/media_file.h"
#include "units/coded_stream.h"
#include "units/config_record.h"

namespace qlnmedia {

struct CodedPacket {
  Bytes data;
  int64_t pts = AV_NOPTS_VALUE;
  int64_t dts = AV_NOPTS_VALUE;
  bool key = false;
};

struct CodedStream {
  unsigned index = 0;
  Codec codec = Codec::kH264;
  AVRational timeBase{1, 1};
  uint32_t width = 0;  // as libavformat tells it
  uint32_t height = 0;
  ConfigRecord config;
  Bytes privateData;
  std::vector<CodedPacket> packets;

  // Where the parameter sets of the private data stand, as people call it.
  std::string configName() const;
};

// The codec of a stream that the library parses; nothing for all others.
std::optional<Codec> CodecOf(const AVStream& stream);

// A stream in plain types; `raw` as MediaFile::isRawStream tells it.
StreamDescription DescribeStream(const AVStream& stream, bool raw);
// The same with all that the container says of it.
StreamDescription DescribeStream(const MediaFile& file, unsigned index);
// A packet in plain types, valid as long as the packet.
PacketView ViewOf(const AVPacket& packet);

// The configuration record of a stream; an empty one where the library does not parse it.
ConfigRecord ConfigOf(const AVStream& stream);

// All streams that the library parses, each with its first `frames` packets. Reads the file from where it
// stands.
std::vector<CodedStream> ReadCodedStreams(MediaFile& file, int frames);

// One parameter set as found: equal bytes count once, wherever they stand.
struct FoundSet {
  Bytes bytes;
  int type = 0;
  std::vector<std::string> places;  // "avcC", "frame 0"
  std::string Places() const;
};

// Collects the parameter sets of a stream in the order in which a decoder meets them.
class SetCollector {
 public:
  explicit SetCollector(const CodedStream& stream);
  const std::vector<FoundSet>& sets() const { return sets_; }

 private:
  void Add(Codec codec, const Bytes& unit, const std::string& place);
  std::vector<FoundSet> sets_;
};

// Adds what the library said meanwhile as notes of the section.
void AddMessages(Section& section, MessageSink& messages);

// "PTS 0.040 s" in seconds, or "-".
std::string TimeText(int64_t timestamp, AVRational timeBase);
Json TimeJson(int64_t timestamp, AVRational timeBase);

}  // namespace qlnmedia

#endif
