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

// What must not change of a packet: its times, and its slices or, where it is no coded video, its bytes.
struct Kept {
  int64_t pts;
  int64_t dts;
  uint64_t hash;
};

// FNV-1a, which tells a changed byte from an unchanged one; nobody forges slices against us.
void Mix(uint64_t& hash, ByteSpan bytes) {
  for (const uint8_t byte : bytes) hash = (hash ^ byte) * 0x100000001B3u;
  hash = (hash ^ bytes.size()) * 0x100000001B3u;
}

// The packets of one file, stream by stream, as they are read.
class KeptReader {
 public:
  explicit KeptReader(const std::string& path) : file_(path), packet_(av_packet_alloc()) {
    if (packet_ == nullptr) throw std::bad_alloc();
    for (unsigned i = 0; i < file_.context()->nb_streams; ++i) {
      const AVStream& stream = *file_.context()->streams[i];
      codecs_.push_back(CodecOf(stream));
      ConfigRecord config;
      if (codecs_.back() && stream.codecpar->extradata_size > 0)
        config = ReadConfigRecord(
            *codecs_.back(),
            ByteSpan(stream.codecpar->extradata, static_cast<size_t>(stream.codecpar->extradata_size)));
      framings_.push_back(config.framing);
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
    const ByteSpan data(packet_->data, static_cast<size_t>(packet_->size));
    const AVRational base = file_.context()->streams[index]->time_base;
    Kept kept{Time(packet_->pts, base), Time(packet_->dts, base), 0xCBF29CE484222325u};
    if (file_.context()->streams[index]->codecpar->codec_id == AV_CODEC_ID_MPEG2VIDEO) {
      for (const Mpeg2Unit& unit : Mpeg2Units(data)) {
        if (unit.code != kMpeg2UserData) Mix(kept.hash, data.subspan(unit.at, unit.size));
      }
    } else if (!codecs_[index]) {
      Mix(kept.hash, data);
    } else {
      for (const Unit& unit : TakeApart(data, framings_[index]).units) {
        if (IsSlice(*codecs_[index], UnitType(*codecs_[index], unit.bytes))) Mix(kept.hash, unit.bytes);
      }
    }
    queues_[index].push_back(kept);
    return true;
  }

 private:
  static int64_t Time(int64_t timestamp, AVRational base) {
    if (timestamp == AV_NOPTS_VALUE) return timestamp;
    return av_rescale_q(timestamp, base, AVRational{1, 1000000});
  }

  MediaFile file_;
  PacketHandle packet_;
  std::vector<std::optional<Codec>> codecs_;
  std::vector<Framing> framings_;
  std::vector<std::deque<Kept>> queues_;
};

}  // namespace

std::string VerifyPatched(const std::string& in, const std::string& out, const std::string& name) {
  KeptReader before(in);
  KeptReader after(out);
  if (before.streams() != after.streams())
    throw Error(name, fmt::format("has {} streams, the input {}", after.streams(), before.streams()));
  const bool timed = !before.file().isRawStream();
  std::vector<int64_t> counts(before.streams());
  bool more = true;
  while (more) {
    const bool beforeMore = before.Next();
    const bool afterMore = after.Next();
    more = beforeMore || afterMore;
    for (size_t i = 0; i < counts.size(); ++i) {
      auto& was = before.queues()[i];
      auto& is = after.queues()[i];
      for (; !was.empty() && !is.empty(); was.pop_front(), is.pop_front(), ++counts[i]) {
        if (was.front().hash != is.front().hash)
          throw Error(name,
                      fmt::format("stream {}, packet {}: its coded data is not the input's", i, counts[i]));
        if (timed && (was.front().pts != is.front().pts || was.front().dts != is.front().dts))
          throw Error(name, fmt::format("stream {}, packet {}: its time is not the input's", i, counts[i]));
      }
    }
  }
  for (size_t i = 0; i < counts.size(); ++i) {
    if (!before.queues()[i].empty() || !after.queues()[i].empty())
      throw Error(name, fmt::format("stream {} has not as many packets as the input", i));
  }
  return "verified: slices, times and other streams are the input's";
}

}  // namespace qlnmedia
