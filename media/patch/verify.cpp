// Compares a patched file with its source, packet by packet.

#include "patch/verify.h"

#include <fmt/format.h>

#include <deque>
#include <new>
#include <vector>

#include "base/error.h"
#include "container/coded_stream.h"
#include "container/media_file.h"
#include "units/mpeg2.h"

namespace qlnmedia {

namespace {

// Of one packet, as KeptOf tells.
struct Kept {
  int64_t pts = 0;
  int64_t dts = 0;
  int64_t duration = 0;  // 0 where durations do not count
  uint64_t hash = 0xCBF29CE484222325u;
};

// FNV-1a, which tells a changed byte from an unchanged one; nobody forges slices against us.
void Mix(uint64_t& hash, ByteSpan bytes) {
  for (const uint8_t byte : bytes) hash = (hash ^ byte) * 0x100000001B3u;
  hash = (hash ^ bytes.size()) * 0x100000001B3u;
}

void Mix(uint64_t& hash, int64_t number) {
  for (int shift = 0; shift < 64; shift += 8)
    hash = (hash ^ (static_cast<uint64_t>(number) >> shift & 0xFF)) * 0x100000001B3u;
}

// The packets of one file, stream by stream, as they are read.
class KeptReader {
 public:
  // `bytes`: whether those of MP4 and MOV count as well.
  KeptReader(const std::string& path, const StreamChanges& changes, bool bytes)
      : file_(path), packet_(av_packet_alloc()), changes_(changes) {
    bytes_ = bytes || !file_.isIso();
    if (packet_ == nullptr) throw std::bad_alloc();
    for (unsigned i = 0; i < file_.context()->nb_streams; ++i) {
      const AVStream& stream = *file_.context()->streams[i];
      codecs_.push_back(CodecOf(stream));
      framings_.emplace_back();
      if (codecs_.back() && stream.codecpar->extradata_size > 0)
        SetFraming(i, stream.codecpar->extradata, static_cast<size_t>(stream.codecpar->extradata_size));
    }
    queues_.resize(codecs_.size());
  }

  size_t streams() const { return codecs_.size(); }
  const MediaFile& file() const { return file_; }
  std::vector<std::deque<Kept>>& queues() { return queues_; }

  bool Next() {
    do {
      if (!file_.Read(packet_.get())) return false;
    } while (static_cast<size_t>(packet_->stream_index) >= codecs_.size());
    const auto index = static_cast<size_t>(packet_->stream_index);
    const AVRational base = file_.context()->streams[index]->time_base;
    Kept kept{Time(packet_->pts, base), Time(packet_->dts, base)};
    if (file_.isIso()) {
      // Where timing goes into parameter sets, libavformat tells H.264 durations from there, whatever tables
      // say.
      if (!changes_.timing) kept.duration = packet_->duration;
      TakeSideData(index, kept.hash);
    }
    if (bytes_) MixBytes(index, kept.hash);
    queues_[index].push_back(kept);
    return true;
  }

 private:
  void SetFraming(size_t index, const uint8_t* data, size_t size) {
    framings_[index] = ReadConfigRecord(*codecs_[index], ByteSpan(data, size)).framing;
  }

  // A new configuration record changes with the patch; what else stands beside a packet stays.
  void TakeSideData(size_t index, uint64_t& hash) {
    for (int i = 0; i < packet_->side_data_elems; ++i) {
      const AVPacketSideData& side = packet_->side_data[i];
      if (side.type == AV_PKT_DATA_NEW_EXTRADATA) {
        if (codecs_[index]) SetFraming(index, side.data, side.size);
        continue;
      }
      Mix(hash, static_cast<int64_t>(side.type));
      Mix(hash, ByteSpan(side.data, side.size));
    }
  }

  void MixBytes(size_t index, uint64_t& hash) const {
    const ByteSpan data(packet_->data, static_cast<size_t>(packet_->size));
    if (file_.context()->streams[index]->codecpar->codec_id == AV_CODEC_ID_MPEG2VIDEO) {
      for (const Mpeg2Unit& unit : Mpeg2Units(data)) {
        if (unit.code != kMpeg2UserData) Mix(hash, data.subspan(unit.at, unit.size));
      }
    } else if (!codecs_[index]) {
      Mix(hash, data);
    } else {
      const Codec codec = *codecs_[index];
      for (const Unit& unit : TakeApart(data, framings_[index]).units) {
        const int type = UnitType(codec, unit.bytes);
        if (!MayChange(codec, type, changes_)) Mix(hash, unit.bytes);
      }
    }
  }

  // Muxers have their own units of time.
  int64_t Time(int64_t timestamp, AVRational base) const {
    if (timestamp == AV_NOPTS_VALUE || file_.isIso()) return timestamp;
    return av_rescale_q(timestamp, base, AVRational{1, 1000000});
  }

  MediaFile file_;
  PacketHandle packet_;
  const StreamChanges& changes_;
  bool bytes_ = true;
  std::vector<std::optional<Codec>> codecs_;
  std::vector<Framing> framings_;
  std::vector<std::deque<Kept>> queues_;
};

std::string Compared(uint64_t packets, size_t streams, bool carried, bool boxes) {
  return fmt::format(
      "verified: {} packets of {} streams have the input's {} and bytes, but for what a patch changes{}",
      packets, streams,
      carried ? "presentation and decoding times, durations, side data" : "presentation and decoding times",
      boxes ? "; boxes, edit lists and sync samples are the input's" : "");
}

}  // namespace

bool MayChange(Codec codec, int type, const StreamChanges& changes) {
  if (changes.remove.unspecified && IsUnspecified(codec, type)) return true;
  if (codec == Codec::kH264)
    return type == h264::kSei || type == h264::kSps || type == h264::kSubsetSps || type == h264::kDelimiter ||
           type == h264::kFiller;
  return type == hevc::kVps || type == hevc::kSps || type == hevc::kDelimiter || type == hevc::kFiller ||
         type == hevc::kPrefixSei || type == hevc::kSuffixSei;
}

std::vector<StreamKept> KeptOf(const std::string& file, const StreamChanges& changes) {
  KeptReader reader(file, changes, true);
  std::vector<StreamKept> kept(reader.streams());
  while (reader.Next()) {
    for (size_t i = 0; i < kept.size(); ++i) {
      for (auto& queue = reader.queues()[i]; !queue.empty(); queue.pop_front()) {
        const Kept& packet = queue.front();
        for (const int64_t number :
             {packet.pts, packet.dts, packet.duration, static_cast<int64_t>(packet.hash)})
          Mix(kept[i].digest, number);
        ++kept[i].packets;
      }
    }
  }
  return kept;
}

std::string RequireKept(const std::vector<StreamKept>& before, const std::vector<StreamKept>& after,
                        const std::string& name) {
  if (before.size() != after.size())
    throw Error(name, fmt::format("has {} streams, and had {}", after.size(), before.size()));
  uint64_t packets = 0;
  for (size_t i = 0; i < before.size(); ++i) {
    if (before[i].packets != after[i].packets || before[i].digest != after[i].digest)
      throw Error(name, fmt::format("stream {}: its packets are not what they were", i));
    packets += before[i].packets;
  }
  return Compared(packets, before.size(), true, false);
}

std::string VerifyPatched(const std::string& in, const std::string& out, const StreamChanges& changes,
                          const std::string& name, bool timecodeTrack) {
  KeptReader before(in, changes, false);
  KeptReader after(out, changes, false);
  const auto isTimecode = [](const KeptReader& reader, size_t index) {
    return reader.file().context()->streams[index]->codecpar->codec_tag == MKTAG('t', 'm', 'c', 'd');
  };
  const bool cameIn =
      timecodeTrack && after.streams() == before.streams() + 1 && isTimecode(after, before.streams());
  if (before.streams() != after.streams() && !cameIn)
    throw Error(name, fmt::format("has {} streams, the input {}", after.streams(), before.streams()));
  const bool timed = !before.file().isRawStream();
  std::vector<int64_t> counts(before.streams());
  uint64_t packets = 0;
  bool more = true;
  while (more) {
    const bool beforeMore = before.Next();
    const bool afterMore = after.Next();
    more = beforeMore || afterMore;
    for (size_t i = 0; i < counts.size(); ++i) {
      auto& was = before.queues()[i];
      auto& is = after.queues()[i];
      if (timecodeTrack && isTimecode(before, i)) {
        was.clear();
        is.clear();
      }
      for (; !was.empty() && !is.empty(); was.pop_front(), is.pop_front(), ++counts[i], ++packets) {
        const Kept& a = was.front();
        const Kept& b = is.front();
        if (a.hash != b.hash)
          throw Error(name,
                      fmt::format("stream {}, packet {}: its coded data is not the input's", i, counts[i]));
        if (timed && (a.pts != b.pts || a.dts != b.dts || a.duration != b.duration))
          throw Error(name, fmt::format("stream {}, packet {}: its time is not the input's", i, counts[i]));
      }
    }
  }
  for (size_t i = 0; i < counts.size(); ++i) {
    if (!before.queues()[i].empty() || !after.queues()[i].empty())
      throw Error(name, fmt::format("stream {} has not as many packets as the input", i));
  }
  return Compared(packets, counts.size(), before.file().isIso(), before.file().isIso());
}

std::string VerifiedText(uint64_t samples, uint64_t tracks) {
  return fmt::format(
      "verified: {} samples of {} tracks have the input's times, durations and sync marks; boxes are the "
      "input's",
      samples, tracks);
}

}  // namespace qlnmedia
