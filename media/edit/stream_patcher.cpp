// Patches one coded video stream.

#include "edit/stream_patcher.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "base/error.h"
#include "container/hdr_side_data.h"
#include "units/access_unit.h"

namespace qlnmedia {

namespace {

constexpr int kMasteringDisplay = 137;
constexpr int kContentLightLevel = 144;

}  // namespace

StreamPatcher::StreamPatcher(const MediaFile& in, unsigned index, Codec codec, const EditOptions& options)
    : in_(in),
      index_(index),
      codec_(codec),
      options_(options),
      adder_(codec, options.delimiters, options.recoveryPoints) {
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
  if (options.interlaced) {
    if (*options.interlaced && !options.timecode.empty())
      Fail("fields must be told before they can be given timecodes",
           "run --interlaced first and --timecode on its output");
    interlace_.emplace(in.path(), index, codec, *options.interlaced, options.progress);
    interlace_->AddTo(edit_);
  }
  for (const Bytes& unit : config_.units()) adder_.TakeSet(unit);
  if (!options.timecode.empty()) {
    timecodes_ = std::make_unique<TimecodePatcher>(in, index, codec, config_, options);
    if (codec == Codec::kH264) edit_.picStruct = true;
  }
  hdrUnit_ = MakeHdrUnit(codec, {options.mastering, options.lightLevel});
}

void StreamPatcher::Fail(const std::string& what, const std::string& advice) const {
  throw Error(in_.path(), fmt::format("stream {}: {}", index_, what), advice);
}

void StreamPatcher::PatchParameters(AVStream* out) {
  const auto patch = [this](Bytes& unit) {
    if (IsSps(codec_, UnitType(codec_, unit)) && PatchSet(unit)) ++configSetsChanged_;
    if (interlace_) interlace_->PatchVps(unit);
  };
  const auto unwanted = [this](const SeiMessage& message) {
    return (options_.mastering && message.type == kMasteringDisplay) ||
           (options_.lightLevel && message.type == kContentLightLevel);
  };
  for (ConfigRecord::List& list : config_.lists) {
    for (Bytes& unit : list.units) {
      patch(unit);
      if (unit.size() > 0xFFFF) Fail("a parameter set outgrows the configuration record");
    }
    std::erase_if(list.units, [&](Bytes& unit) {
      return IsSei(codec_, UnitType(codec_, unit)) &&
             RemoveSeiMessages(codec_, unit, unwanted, &seiRemoved_) == SeiRemoval::kEmptied;
    });
  }
  for (Unit& unit : config_.startCodeUnits.units) patch(unit.bytes);
  RemoveSei(codec_, config_.startCodeUnits.units, unwanted);

  AVCodecParameters& parameters = *out->codecpar;
  // The muxer counts what it writes. An older count would stay as the highest rate, and go in the next run.
  parameters.bit_rate = 0;
  if (interlace_) {
    interlace_->PatchHead(config_);
    parameters.field_order = interlace_->fieldOrder();
  }
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

bool StreamPatcher::AddUnits(std::vector<Unit>& units, AVPacket* packet) {
  // Readers of transport streams and raw streams find their marks in the stream itself.
  const bool byContainer = !in_.isRawStream() && in_.formatName() != "mpegts";
  const int before = adder_.added();
  if (adder_.Add(units, {(packet->flags & AV_PKT_FLAG_KEY) != 0, byContainer}))
    packet->flags |= AV_PKT_FLAG_KEY;
  return adder_.added() != before;
}

bool StreamPatcher::PatchUnits(std::vector<Unit>& units, bool randomAccess) {
  bool changed = false;
  for (Unit& unit : units) {
    if (!IsSps(codec_, UnitType(codec_, unit.bytes))) continue;
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
  // Timecodes know the pictures of a packet by the places of its units, so they go in while these are as they
  // came.
  bool changed = timecodes_ != nullptr && timecodes_->Patch(run.units);
  changed = AddUnits(run.units, packet) || changed;
  const bool randomAccess = (packet->flags & AV_PKT_FLAG_KEY) != 0 || IsRandomAccess(codec_, run.units);
  // Picture timing is laid out as the sets of the source say, so it comes in front of them.
  if (interlace_) changed = interlace_->PatchPacket(run.units) || changed;
  changed = PatchUnits(run.units, randomAccess) || changed;
  if (!changed) return;
  const size_t outgrown = OutgrownUnit(run, config_.framing);
  if (outgrown != 0)
    Fail(fmt::format("a unit of {} bytes does not fit its {}-byte length field", outgrown,
                     config_.framing.lengthBytes));
  ReplacePacketData(packet, PutTogether(run, config_.framing));
}

std::string StreamPatcher::Summary() const {
  std::string text;
  const auto add = [&text](const std::string& piece) { text += (text.empty() ? "" : ", ") + piece; };
  if (setsChanged_ != 0) add(fmt::format("{} sequence parameter sets in the stream changed", setsChanged_));
  if (configSetsChanged_ != 0)
    add(fmt::format("{} sequence parameter sets in the {} changed", configSetsChanged_,
                    !config_.box             ? "private data"
                    : codec_ == Codec::kH264 ? "avcC"
                                             : "hvcC"));
  if (containerColour_) add("container colour set");
  if (seiRemoved_ != 0) add(fmt::format("{} SEI messages taken out", seiRemoved_));
  if (seiAdded_ != 0) add(fmt::format("{} SEI units put in", seiAdded_));
  if (interlace_) {
    for (const std::string& piece : interlace_->Summary()) add(piece);
  }
  for (const std::string& piece : adder_.Summary()) add(piece);
  if (timecodes_ != nullptr && timecodes_->count() != 0)
    add(fmt::format("{} pictures got their timecode", timecodes_->count()));
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
