// The coded side of one video stream as a report needs it: its private data and its first packets.
#ifndef MEDIA_INSPECT_CODED_FRAMES_H
#define MEDIA_INSPECT_CODED_FRAMES_H

#include <functional>
#include <map>
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
  int64_t pts = kNoTime;
  int64_t dts = kNoTime;
  bool key = false;
  size_t size = 0;  // bytes, of which `data` may leave some out
};

struct CodedStream {
  unsigned index = 0;
  Codec codec = Codec::kH264;
  Rational timeBase{1, 1};
  uint32_t width = 0;  // as the container tells it
  uint32_t height = 0;
  ConfigRecord config;
  Bytes privateData;
  std::vector<Bytes> layeredUnits;   // of an lhvC, which describes the higher layers
  std::vector<CodedPacket> packets;  // that are laid out
  std::vector<CodedPacket> more;     // behind them, for the summary: of longer slices their heads
  bool joined = false;               // one length covers several units with start codes between them

  // Where the parameter sets of the private data stand, as people call it.
  std::string configName() const;
};

// A stream without packets; its codec is H.264 or HEVC.
CodedStream MakeCodedStream(const MediaStream& stream);

// The first packets of a file's video streams.
struct FirstPictures {
  std::vector<CodedStream> coded;                // all that the library parses
  std::map<unsigned, std::vector<Bytes>> mpeg2;  // packets of MPEG-2 by their stream
};

// Each stream with its first `frames` packets, and some more where they come without much reading. Reads the
// file from where it stands, and hands each packet of it to `also`, where that is given.
FirstPictures ReadFirstPictures(MediaFile& file, int frames,
                                const std::function<void(const MediaPacket&)>& also = {});

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
std::string TimeText(int64_t timestamp, Rational timeBase);
Json TimeJson(int64_t timestamp, Rational timeBase);

}  // namespace qlnmedia

#endif
