// Patches one coded video stream.

#include "qlnmedia/stream_patcher.h"

#include <fmt/format.h>

#include <cstring>
#include <new>

#include "qlnmedia/access_unit.h"
#include "qlnmedia/tool_error.h"

extern "C" {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#include <libavutil/mastering_display_metadata.h>
#pragma GCC diagnostic pop
}

namespace qlnmedia {

namespace {

constexpr int kMasteringDisplay = 137;
constexpr int kContentLightLevel = 144;

void Append(Bytes& out, uint32_t value, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) out.push_back(static_cast<uint8_t>(value >> 8 * i));
}

// The SEI unit with the values (ITU-T H.264 clauses D.1.29 and D.1.31, H.265 D.2.28 and D.2.35).
Bytes MakeHdrUnit(Codec codec, const std::optional<MasteringDisplay>& display,
                  const std::optional<LightLevel>& level) {
  std::vector<SeiMessage> messages;
  if (display) {
    SeiMessage message{kMasteringDisplay, {}};
    for (const MasteringDisplay::Point& point :
         {display->green, display->blue, display->red, display->white}) {
      Append(message.payload, point.x, 2);
      Append(message.payload, point.y, 2);
    }
    Append(message.payload, display->maxLuminance, 4);
    Append(message.payload, display->minLuminance, 4);
    messages.push_back(std::move(message));
  }
  if (level) {
    SeiMessage message{kContentLightLevel, {}};
    Append(message.payload, level->maxContent, 2);
    Append(message.payload, level->maxAverage, 2);
    messages.push_back(std::move(message));
  }
  const Bytes header = codec == Codec::kH264 ? Bytes{6} : Bytes{0x4E, 1};
  return messages.empty() ? Bytes{} : MakeSeiUnit(header, messages);
}

template <class Data>
Data* NewSideData(AVStream* stream, AVPacketSideDataType type, Data* made, size_t size) {
  if (made == nullptr || av_stream_add_side_data(stream, type, reinterpret_cast<uint8_t*>(made), size) < 0) {
    av_free(made);
    throw std::bad_alloc();
  }
  return made;
}

void SetContainerMastering(AVStream* stream, const MasteringDisplay& display) {
  size_t size = sizeof(AVMasteringDisplayMetadata);
  auto* const data = static_cast<AVMasteringDisplayMetadata*>(av_mallocz(size));
  NewSideData(stream, AV_PKT_DATA_MASTERING_DISPLAY_METADATA, data, size);
  const MasteringDisplay::Point points[3] = {display.red, display.green, display.blue};
  for (int i = 0; i < 3; ++i) {
    data->display_primaries[i][0] = {points[i].x, 50000};
    data->display_primaries[i][1] = {points[i].y, 50000};
  }
  data->white_point[0] = {display.white.x, 50000};
  data->white_point[1] = {display.white.y, 50000};
  data->max_luminance = {static_cast<int>(display.maxLuminance), 10000};
  data->min_luminance = {static_cast<int>(display.minLuminance), 10000};
  data->has_primaries = data->has_luminance = 1;
}

void SetContainerLightLevel(AVStream* stream, const LightLevel& level) {
  size_t size = 0;
  AVContentLightMetadata* const data = av_content_light_metadata_alloc(&size);
  NewSideData(stream, AV_PKT_DATA_CONTENT_LIGHT_LEVEL, data, size);
  data->MaxCLL = level.maxContent;
  data->MaxFALL = level.maxAverage;
}

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
  hdrUnit_ = MakeHdrUnit(codec, options.mastering, options.lightLevel);
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
    if (IsSps(codec_, UnitType(codec_, unit.bytes)) && PatchSet(unit.bytes)) {
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
  if (!PatchUnits(run.units, randomAccess)) return;
  const int lengthBytes = config_.framing.lengthBytes;
  for (const Unit& unit : run.units) {
    if (lengthBytes > 0 && lengthBytes < 4 && unit.bytes.size() >> 8 * lengthBytes != 0)
      Fail(fmt::format("a unit of {} bytes does not fit its length field of {} bytes", unit.bytes.size(),
                       lengthBytes));
  }
  ReplacePacketData(packet, PutTogether(run, config_.framing));
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
