// Patches one coded video stream.

#include "qlnmedia/stream_patcher.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "qlnmedia/access_unit.h"
#include "qlnmedia/stream_hdr.h"
#include "qlnmedia/tool_error.h"
#include "qlnutil/qlnbits.h"

namespace qlnmedia {

namespace {

constexpr int kMasteringDisplay = 137;
constexpr int kContentLightLevel = 144;
constexpr int kPictureTiming = 1;
constexpr int kTimeCode = 136;

}  // namespace

StreamPatcher::StreamPatcher(const MediaFile& in, unsigned index, Codec codec, const PatchOptions& options)
    : in_(in), index_(index), codec_(codec), options_(options) {
  edit_.colour = options.colour;
  edit_.fullRange = options.fullRange;
  const AVStream& stream = *in.context()->streams[index];
  if (av_stream_get_side_data(&stream, AV_PKT_DATA_DOVI_CONF, nullptr) != nullptr)
    Fail("is a Dolby Vision track, whose metadata would no longer fit", "patch the base layer alone");
  const AVCodecParameters& parameters = *stream.codecpar;
  if (parameters.extradata_size > 0)
    config_ = ReadConfigRecord(
        codec, ByteSpan(parameters.extradata, static_cast<size_t>(parameters.extradata_size)));
  config_.codec = codec;
  if (!config_.problem.empty()) Fail(config_.problem);
  for (const Bytes& unit : config_.units()) {
    if (!IsSps(codec, UnitType(codec, unit))) continue;
    const std::optional<SpsSummary> summary = ReadSpsSummary(codec, unit);
    if (summary) TakeSps(*summary);
  }
  if (!options.timecode.empty()) {
    if (in.isRawStream())
      Fail("a raw stream has no times to order its pictures by", "put it into MP4, MOV, MKV or TS first");
    timecode_ = ParseTimecode(options.timecode, options.timecodeType, stream.avg_frame_rate);
    if (codec == Codec::kH264) edit_.picStruct = true;
  }
  hdrUnit_ = MakeHdrUnit(codec, {options.mastering, options.lightLevel});
}

void StreamPatcher::Fail(const std::string& what, const std::string& advice) const {
  throw ToolError(in_.path(), fmt::format("stream {}: {}", index_, what), advice);
}

void StreamPatcher::PatchParameters(AVStream* out) {
  const auto patch = [this](Bytes& unit) {
    if (IsSps(codec_, UnitType(codec_, unit)) && PatchSet(unit)) ++configSetsChanged_;
  };
  const auto unwanted = [this](const SeiMessage& message) {
    return (options_.mastering && message.type == kMasteringDisplay) ||
           (options_.lightLevel && message.type == kContentLightLevel);
  };
  for (ConfigRecord::List& list : config_.lists) {
    for (Bytes& unit : list.units) patch(unit);
    std::erase_if(list.units, [&](Bytes& unit) {
      return IsSei(codec_, UnitType(codec_, unit)) &&
             RemoveSeiMessages(codec_, unit, unwanted, &seiRemoved_) == SeiRemoval::kEmptied;
    });
  }
  for (Unit& unit : config_.startCodeUnits.units) patch(unit.bytes);
  RemoveSei(codec_, config_.startCodeUnits.units, unwanted);

  AVCodecParameters& parameters = *out->codecpar;
  if (!config_.empty()) {
    const Bytes data = WriteConfigRecord(config_);
    auto* const copy = static_cast<uint8_t*>(av_mallocz(data.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (copy == nullptr) throw std::bad_alloc();
    std::memcpy(copy, data.data(), data.size());
    av_freep(&parameters.extradata);
    parameters.extradata = copy;
    parameters.extradata_size = static_cast<int>(data.size());
  }
  if (options_.colour) {
    parameters.color_primaries = static_cast<AVColorPrimaries>(options_.colour->primaries);
    parameters.color_trc = static_cast<AVColorTransferCharacteristic>(options_.colour->transfer);
    parameters.color_space = static_cast<AVColorSpace>(options_.colour->matrix);
    containerColour_ = true;
  }
  if (options_.fullRange) {
    parameters.color_range = *options_.fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    containerColour_ = true;
  }
  if (options_.mastering) SetContainerMastering(out, *options_.mastering);
  if (options_.lightLevel) SetContainerLightLevel(out, *options_.lightLevel);
}

bool StreamPatcher::PatchSet(Bytes& unit) {
  if (!edit_.any()) return false;
  const auto known = rewritten_.find(unit);
  if (known != rewritten_.end()) {
    const bool changed = known->second != unit;
    unit = known->second;
    return changed;
  }
  std::optional<Bytes> edited = EditSps(codec_, unit, edit_);
  if (!edited) Fail("a sequence parameter set breaks off and cannot be changed");
  const bool changed = *edited != unit;
  rewritten_[unit] = *edited;
  unit = std::move(*edited);
  return changed;
}

bool StreamPatcher::PatchUnits(std::vector<Unit>& units, bool randomAccess) {
  bool changed = false;
  for (Unit& unit : units) {
    if (!IsSps(codec_, UnitType(codec_, unit.bytes))) continue;
    const std::optional<SpsSummary> summary = ReadSpsSummary(codec_, unit.bytes);
    if (summary) TakeSps(*summary);
    if (PatchSet(unit.bytes)) {
      ++setsChanged_;
      changed = true;
    }
  }
  if (!hdrUnit_.empty()) {
    const int removed = RemoveSei(codec_, units, [this](const SeiMessage& message) {
      return (options_.mastering && message.type == kMasteringDisplay) ||
             (options_.lightLevel && message.type == kContentLightLevel);
    });
    seiRemoved_ += removed;
    changed = changed || removed != 0;
    if (randomAccess && FirstPictureUnit(codec_, units) < units.size()) {
      InsertSei(codec_, units, hdrUnit_);
      ++seiAdded_;
      changed = true;
    }
  }
  return changed;
}

void StreamPatcher::PatchPacket(AVPacket* packet) {
  if (av_packet_get_side_data(packet, AV_PKT_DATA_NEW_EXTRADATA, nullptr) != nullptr)
    Fail("has several sample descriptions", "split the file where they change");
  UnitRun run = TakeApart(ByteSpan(packet->data, static_cast<size_t>(packet->size)), config_.framing);
  const bool randomAccess = (packet->flags & AV_PKT_FLAG_KEY) != 0 || IsRandomAccess(codec_, run.units);
  bool changed = PatchUnits(run.units, randomAccess);
  if (timecode_) {
    const uint32_t place = order_.Take();
    if (FirstPictureUnit(codec_, run.units) < run.units.size()) {
      PutTimecode(run.units, timecode_->count + place);
      changed = true;
    }
  }
  if (!changed) return;
  const int lengthBytes = config_.framing.lengthBytes;
  for (const Unit& unit : run.units) {
    if (lengthBytes > 0 && lengthBytes < 4 && unit.bytes.size() >> 8 * lengthBytes != 0)
      Fail(fmt::format("a unit of {} bytes does not fit its length field of {} bytes", unit.bytes.size(),
                       lengthBytes));
  }
  ReplacePacketData(packet, PutTogether(run, config_.framing));
}

void StreamPatcher::TakeSps(const SpsSummary& sps) {
  if (sps_ && sps_->id != sps.id && !options_.timecode.empty() &&
      (sps_->hrd != sps.hrd || sps_->picStruct != sps.picStruct ||
       sps_->timeOffsetLength != sps.timeOffsetLength ||
       sps_->cpbRemovalDelayLength != sps.cpbRemovalDelayLength ||
       sps_->dpbOutputDelayLength != sps.dpbOutputDelayLength))
    Fail("has sequence parameter sets that lay out picture timing in different ways", "leave --timecode out");
  sps_ = sps;
}

void StreamPatcher::Announce(const AVPacket& packet) {
  if (!timecode_) return;
  if (packet.pts == AV_NOPTS_VALUE)
    Fail("has a picture without a presentation time", "remux it with times first");
  order_.Add(packet.pts);
}

// Timecodes go into frames: where single fields are coded, two pictures would share one.
void StreamPatcher::RequireFrame(const std::vector<Unit>& units) const {
  if (codec_ == Codec::kHevc) {
    if (sps_ && sps_->interlace[2]) Fail("codes single fields, which timecodes are not put into");
    return;
  }
  if (sps_->frameMbsOnly) return;
  for (const Unit& unit : units) {
    const int type = UnitType(codec_, unit.bytes);
    if (type != 1 && type != 5) continue;
    Bytes head = Unescape(ByteSpan(unit.bytes).first(std::min<size_t>(unit.bytes.size(), 64)));
    head.push_back(0);
    const auto size = static_cast<uint32_t>(head.size() - 1);
    QLNBitState state{head.data(), static_cast<int32_t>(size), size * 8, 8};
    for (int i = 0; i < 3; ++i) ReadExponentialGolombCode(&state);  // first_mb_in_slice, slice_type, PPS
    if (sps_->separateColourPlanes) SkipBits(&state, 2);
    SkipBits(&state, sps_->log2MaxFrameNum);
    if (ReadBit(&state) == 1) Fail("codes single fields, which timecodes are not put into");
  }
}

void StreamPatcher::PutTimecode(std::vector<Unit>& units, uint32_t count) {
  if (!sps_) Fail("a picture comes before its sequence parameter set");
  RequireFrame(units);
  ++timecodes_;
  if (codec_ == Codec::kH264) {
    PutH264Timecode(units, count);
    return;
  }
  RemoveSei(codec_, units, [](const SeiMessage& message) { return message.type == kTimeCode; });
  InsertSei(codec_, units, MakeHevcTimecodeUnit(count, timecode_->type));
}

void StreamPatcher::PutH264Timecode(std::vector<Unit>& units, uint32_t count) {
  bool found = false;
  for (Unit& unit : units) {
    if (!IsSei(codec_, UnitType(codec_, unit.bytes))) continue;
    bool whole = false;
    std::vector<SeiMessage> messages = ReadSeiMessages(codec_, unit.bytes, &whole);
    bool here = false;
    for (SeiMessage& message : messages) {
      if (message.type != kPictureTiming) continue;
      const std::optional<PictureTiming> timing = ReadPictureTiming(message.payload, *sps_);
      if (!timing || !whole) Fail("a picture timing message breaks off");
      message.payload = MakePictureTiming(*timing, *sps_, count, timecode_->type);
      here = true;
    }
    if (here) unit.bytes = MakeSeiUnit(ByteSpan(unit.bytes).first(1), messages);
    found = found || here;
  }
  if (found) return;
  if (sps_->hrd) Fail("has HRD parameters but a picture without picture timing, whose delays nobody knows");
  const Bytes header{6};
  InsertSei(codec_, units,
            MakeSeiUnit(header, {{kPictureTiming, MakePictureTiming({}, *sps_, count, timecode_->type)}}));
}

std::string StreamPatcher::Summary() const {
  std::string text;
  const auto add = [&text](const std::string& piece) { text += (text.empty() ? "" : ", ") + piece; };
  if (setsChanged_ != 0) add(fmt::format("{} sequence parameter sets in the stream changed", setsChanged_));
  if (configSetsChanged_ != 0)
    add(fmt::format("{} in the {} changed", configSetsChanged_,
                    !config_.box             ? "private data"
                    : codec_ == Codec::kH264 ? "avcC"
                                             : "hvcC"));
  if (containerColour_) add("container colour set");
  if (seiRemoved_ != 0) add(fmt::format("{} SEI messages taken out", seiRemoved_));
  if (seiAdded_ != 0) add(fmt::format("{} SEI units put in", seiAdded_));
  if (timecodes_ != 0) add(fmt::format("{} pictures got their timecode", timecodes_));
  return fmt::format("stream {}: {}", index_, text.empty() ? "nothing to change" : text);
}

void ReplacePacketData(AVPacket* packet, const Bytes& data) {
  AVBufferRef* const buffer = av_buffer_alloc(data.size() + AV_INPUT_BUFFER_PADDING_SIZE);
  if (buffer == nullptr) throw std::bad_alloc();
  if (!data.empty()) std::memcpy(buffer->data, data.data(), data.size());
  std::memset(buffer->data + data.size(), 0, AV_INPUT_BUFFER_PADDING_SIZE);
  av_buffer_unref(&packet->buf);
  packet->buf = buffer;
  packet->data = buffer->data;
  packet->size = static_cast<int>(data.size());
}

}  // namespace qlnmedia
