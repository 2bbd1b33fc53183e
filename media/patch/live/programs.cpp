// Follows the tables to the streams, and the streams to their first picture.

#include "patch/live/programs.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "base/error.h"
#include "base/rational.h"
#include "container/ts/program_map.h"
#include "container/ts/row_reader.h"
#include "patch/live/head.h"
#include "patch/live/program_tables.h"
#include "timing/timecode_rate.h"
#include "units/config_record.h"

namespace qlnmedia {

namespace {

constexpr int32_t kClock = 90000;

VideoCodec CodecOfType(uint8_t type) {
  if (type == kAvcStreamType) return VideoCodec::kH264;
  return type == kHevcStreamType ? VideoCodec::kHevc : VideoCodec::kOther;
}

// Packets a second by the parameter sets; 0/1 where they say nothing.
Rational RateOfSetsIn(const StreamDescription& stream) {
  StreamDescription raw = stream;
  raw.raw = true;
  const Codec codec = *UnitCodecOf(stream.codec);
  const KnownRates known = RatesOf(raw, codec, ConfigOf(stream).units());
  const bool fields = codec == Codec::kHevc && known.halves;  // each in a packet of its own
  if (!fields || known.stream.numerator <= 0) return known.stream;
  return Reduced(static_cast<uint64_t>(known.stream.numerator) * 2,
                 static_cast<uint64_t>(known.stream.denominator));
}

class ProgramReader {
 public:
  explicit ProgramReader(const mp4::Source& source) : source_(source), rows_(source) {}

  LivePrograms Run() {
    for (ts::Row row; !Done() && rows_.at() < kMostBeforeSets && rows_.Next(row);) {
      if (row.isPacket && row.hasPayload()) Take(row);
    }
    if (!mapped_) throw Error(source_.name(), "has no program map where it begins");
    LivePrograms programs;
    for (auto& [identifier, stream] : streams_) {
      if (!stream.described) {
        programs.without.push_back(identifier);
      } else {
        programs.streams.push_back({stream.index, identifier, std::move(stream.stream)});
      }
    }
    if (streams_.empty()) throw Error(source_.name(), "has no H.264 or HEVC stream");
    if (programs.streams.empty())
      throw Error(source_.name(), "has no parameter sets of its pictures where it begins");
    std::sort(programs.streams.begin(), programs.streams.end(),
              [](const auto& a, const auto& b) { return a.index < b.index; });
    return programs;
  }

 private:
  struct Stream {
    unsigned index = 0;
    StreamDescription stream;
    Bytes bytes;  // of the PES packet that is open
    bool described = false;
  };

  bool Done() const {
    return !tables_.maps().empty() && tables_.maps().size() == mapsRead_.size() &&
           std::all_of(streams_.begin(), streams_.end(),
                       [](const auto& one) { return one.second.described; });
  }

  void Take(const ts::Row& row) {
    const uint16_t identifier = row.identifier();
    tables_.Take(row, [this](uint16_t map, const Bytes& section) { TakeMap(map, section); });
    const auto found = streams_.find(identifier);
    if (found == streams_.end() || found->second.described) return;
    Stream& stream = found->second;
    if (row.scrambled()) throw Error(source_.name(), "has scrambled pictures", "descramble it first");
    if (row.startsUnit()) stream.bytes.clear();
    const ts::ByteSpan payload = row.payload();
    stream.bytes.insert(stream.bytes.end(), payload.begin(), payload.end());
    Describe(stream);
  }

  // Sets stand in front of the first picture of a PES packet; its head holds no start code but its own.
  static void Describe(Stream& stream) {
    LiveHead head = ReadLiveHead(stream.bytes, stream.stream.codec);
    if (!head.whole) return;
    stream.described = true;
    stream.stream.privateData = std::move(head.sets);
    stream.stream.averageRate = RateOfSetsIn(stream.stream);
    stream.bytes = {};
  }

  void TakeMap(uint16_t map, const Bytes& section) {
    mapped_ = true;
    if (!mapsRead_.insert(map).second) return;
    for (const ts::MapStream& one : ts::TypedStreamsOf(section)) {
      const unsigned index = count_++;
      const VideoCodec codec = CodecOfType(one.type);
      if (codec == VideoCodec::kOther) continue;
      Stream& stream = streams_[one.identifier];
      stream.index = index;
      stream.stream.codec = codec;
      stream.stream.timeBase = {1, kClock};
      stream.stream.ownMarks = false;
    }
  }

  const mp4::Source& source_;
  ts::RowReader rows_;
  ProgramTables tables_;
  std::set<uint16_t> mapsRead_;
  std::map<uint16_t, Stream> streams_;
  unsigned count_ = 0;
  bool mapped_ = false;
};

}  // namespace

LivePrograms ReadLivePrograms(const mp4::Source& source) { return ProgramReader(source).Run(); }

}  // namespace qlnmedia
