// Reads a file's packets and keeps of each what a patch leaves alone.

#include "patch/kept_packets.h"

#include <new>

#include "container/coded_stream.h"
#include "container/container_rates.h"
#include "units/mpeg2.h"

namespace qlnmedia {

namespace {

// FNV-1a, which tells a changed byte from an unchanged one; nobody forges slices against us.
void Mix(uint64_t& hash, ByteSpan bytes) {
  for (const uint8_t byte : bytes) hash = (hash ^ byte) * 0x100000001B3u;
  hash = (hash ^ bytes.size()) * 0x100000001B3u;
}

bool ChangesSets(const EditOptions& changes) {
  return changes.ofSets() || changes.interlaced || !changes.timecode.empty();
}

bool ChangesMessages(const EditOptions& changes) {
  return changes.remove.filler || !changes.remove.messages.empty() || !changes.remove.providers.empty() ||
         changes.mastering || changes.lightLevel || !changes.timecode.empty() || changes.interlaced ||
         changes.recoveryPoints || changes.captionsIntoPictures();
}

}  // namespace

void MixNumber(uint64_t& hash, int64_t number) {
  for (int shift = 0; shift < 64; shift += 8)
    hash = (hash ^ (static_cast<uint64_t>(number) >> shift & 0xFF)) * 0x100000001B3u;
}

bool MayChange(Codec codec, int type, const EditOptions& changes) {
  if (IsUnspecified(codec, type)) return changes.remove.unspecified;
  const bool avc = codec == Codec::kH264;
  if (type == (avc ? h264::kDelimiter : hevc::kDelimiter))
    return changes.delimiters || changes.remove.delimiters;
  if (type == (avc ? h264::kFiller : hevc::kFiller)) return changes.remove.filler;
  if (avc ? type == h264::kSei : type == hevc::kPrefixSei || type == hevc::kSuffixSei)
    return ChangesMessages(changes);
  if (avc ? type == h264::kSps || type == h264::kSubsetSps : type == hevc::kVps || type == hevc::kSps)
    return ChangesSets(changes);
  return false;
}

KeptReader::KeptReader(const std::string& path, const EditOptions& changes, bool bytes,
                       std::string_view format)
    : file_(path, format), packet_(av_packet_alloc()), changes_(changes), bytes_(bytes || !file_.isIso()) {
  if (packet_ == nullptr) throw std::bad_alloc();
  streams_.resize(file_.context()->nb_streams);
  rates_ = ContainerRates(file_);
  for (size_t i = 0; i < streams_.size(); ++i) {
    const AVStream& stream = *file_.context()->streams[i];
    streams_[i].codec = CodecOf(stream);
    if (streams_[i].codec && stream.codecpar->extradata_size > 0)
      SetFraming(streams_[i], stream.codecpar->extradata,
                 static_cast<size_t>(stream.codecpar->extradata_size));
  }
}

bool KeptReader::HasDurations(size_t stream) const {
  // Where timing goes into parameter sets, libavformat tells H.264 durations from there, whatever the tables
  // of MP4 and MOV say.
  if (file_.isIso()) return !changes_.timing;
  if (file_.isRawStream()) return false;
  // Where the container tells none, they come from sets and picture timing.
  const bool told = rates_[stream].num != 0;
  const bool touched =
      changes_.timing || !changes_.timecode.empty() || changes_.interlaced || changes_.remove.any();
  return !streams_[stream].codec || told || !touched;
}

bool KeptReader::Next() {
  do {
    if (!file_.Read(packet_.get())) return false;
  } while (static_cast<size_t>(packet_->stream_index) >= streams_.size());
  const auto index = static_cast<size_t>(packet_->stream_index);
  Stream& stream = streams_[index];
  const AVRational base = file_.context()->streams[index]->time_base;
  KeptPacket kept;
  kept.pts = Time(packet_->pts, base);
  kept.dts = Time(packet_->dts, base);
  if (HasDurations(index)) kept.duration = Time(packet_->duration, base);
  kept.key = (packet_->flags & AV_PKT_FLAG_KEY) != 0;
  kept.sideData = SideData(stream);
  if (bytes_) kept.bytes = BytesOf(stream);
  stream.queue.push_back(kept);
  return true;
}

void KeptReader::SetFraming(Stream& stream, const uint8_t* data, size_t size) const {
  stream.framing = ReadConfigRecord(*stream.codec, ByteSpan(data, size)).framing;
}

// A new configuration record changes with the patch; what else stands beside a packet stays. Of the frames in
// a packet of a transport stream the first alone tells its stream_id, and how many stand in one is the
// writer's choice.
uint64_t KeptReader::SideData(Stream& stream) {
  uint64_t hash = kEmptyHash;
  for (int i = 0; i < packet_->side_data_elems; ++i) {
    const AVPacketSideData& side = packet_->side_data[i];
    const ByteSpan data(side.data, side.size);
    if (side.type == AV_PKT_DATA_NEW_EXTRADATA) {
      if (stream.codec) SetFraming(stream, side.data, side.size);
    } else if (side.type == AV_PKT_DATA_MPEGTS_STREAM_ID) {
      stream.streamId.assign(data.begin(), data.end());
    } else {
      MixNumber(hash, side.type);
      Mix(hash, data);
    }
  }
  Mix(hash, stream.streamId);
  return hash;
}

// Filler of MXF, where pictures may have to keep their size, gives way to what comes in.
uint64_t KeptReader::BytesOf(const Stream& stream) const {
  uint64_t hash = kEmptyHash;
  const ByteSpan data(packet_->data, static_cast<size_t>(packet_->size));
  const AVStream& of = *file_.context()->streams[packet_->stream_index];
  if (of.codecpar->codec_id == AV_CODEC_ID_MPEG2VIDEO && changes_.captionsIntoPictures()) {
    for (const Mpeg2Unit& unit : Mpeg2Units(data)) {
      if (unit.code == kMpeg2UserData) continue;
      ByteSpan bytes = data.subspan(unit.at, unit.size);
      while (file_.isMxf() && !bytes.empty() && bytes.back() == 0) bytes = bytes.first(bytes.size() - 1);
      Mix(hash, bytes);
    }
  } else if (!stream.codec) {
    Mix(hash, data);
  } else {
    const Codec codec = *stream.codec;
    const UnitRun run = TakeApart(data, stream.framing);
    for (const Unit& unit : run.units) {
      const int type = UnitType(codec, unit.bytes);
      if (file_.isMxf() && type == (codec == Codec::kH264 ? h264::kFiller : hevc::kFiller)) continue;
      if (!MayChange(codec, type, changes_)) Mix(hash, unit.bytes);
    }
    if (run.damaged()) Mix(hash, run.rest);
  }
  return hash;
}

// Muxers have their own units of time.
int64_t KeptReader::Time(int64_t timestamp, AVRational base) const {
  if (timestamp == AV_NOPTS_VALUE || file_.isIso()) return timestamp;
  return av_rescale_q(timestamp, base, AVRational{1, 1000000000});
}

}  // namespace qlnmedia
