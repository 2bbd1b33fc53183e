// Translates what libavformat says of a stream.

#include "container/describe_stream.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <cstring>
#include <iterator>

#include "container/coded_stream.h"
#include "container/hdr_side_data.h"
#include "container/media_file.h"

namespace qlnmedia {

namespace {

static_assert(kProgressive == static_cast<int>(AV_FIELD_PROGRESSIVE) &&
              kTopFirst == static_cast<int>(AV_FIELD_TT) && kBottomFirst == static_cast<int>(AV_FIELD_BB) &&
              kTopCodedBottomShownFirst == static_cast<int>(AV_FIELD_TB) &&
              kBottomCodedTopShownFirst == static_cast<int>(AV_FIELD_BT));
static_assert(kLimitedRange == static_cast<int>(AVCOL_RANGE_MPEG) &&
              kFullRange == static_cast<int>(AVCOL_RANGE_JPEG));

StreamKind KindOf(AVMediaType type) {
  switch (type) {
    case AVMEDIA_TYPE_VIDEO:
      return StreamKind::kVideo;
    case AVMEDIA_TYPE_AUDIO:
      return StreamKind::kAudio;
    case AVMEDIA_TYPE_DATA:
      return StreamKind::kData;
    case AVMEDIA_TYPE_SUBTITLE:
      return StreamKind::kSubtitle;
    case AVMEDIA_TYPE_ATTACHMENT:
      return StreamKind::kAttachment;
    default:
      return StreamKind::kUnknown;
  }
}

std::vector<std::string> DispositionsOf(int flags) {
  std::vector<std::string> names;
  for (int bit = 0; bit < 31; ++bit) {
    const char* const name = (flags >> bit & 1) != 0 ? av_disposition_to_string(1 << bit) : nullptr;
    if (name != nullptr) names.emplace_back(name);
  }
  return names;
}

// Side data of a type; null where the stream has none of at least that size.
template <class Data>
const Data* SideData(const AVStream& stream, AVPacketSideDataType type) {
  size_t size = 0;
  const uint8_t* const data = av_stream_get_side_data(&stream, type, &size);
  return data == nullptr || size < sizeof(Data) ? nullptr : reinterpret_cast<const Data*>(data);
}

std::optional<DolbyVisionConfiguration> DolbyVisionOf(const AVStream& stream) {
  const auto* const record = SideData<AVDOVIDecoderConfigurationRecord>(stream, AV_PKT_DATA_DOVI_CONF);
  if (record == nullptr) return {};
  return DolbyVisionConfiguration{.dv_version_major = record->dv_version_major,
                                  .dv_version_minor = record->dv_version_minor,
                                  .dv_profile = record->dv_profile,
                                  .dv_level = record->dv_level,
                                  .rpu_present_flag = record->rpu_present_flag,
                                  .el_present_flag = record->el_present_flag,
                                  .bl_present_flag = record->bl_present_flag,
                                  .dv_bl_signal_compatibility_id = record->dv_bl_signal_compatibility_id};
}

std::optional<std::array<int32_t, 9>> DisplayMatrixOf(const AVStream& stream) {
  using Matrix = std::array<int32_t, 9>;
  const auto* const matrix = SideData<Matrix>(stream, AV_PKT_DATA_DISPLAYMATRIX);
  return matrix == nullptr ? std::nullopt : std::optional<Matrix>(*matrix);
}

// As ISO/IEC 14496-12 (st3d), Matroska (StereoMode) and the messages of the streams have the arrangements.
std::string StereoOf(const AVStream& stream) {
  static constexpr const char* kNames[] = {
      "one view",     "side by side",           "top and bottom",    "alternating frames",
      "checkerboard", "side by side, quincunx", "alternating lines", "alternating columns"};
  const auto* const stereo = SideData<AVStereo3D>(stream, AV_PKT_DATA_STEREO3D);
  if (stereo == nullptr || static_cast<size_t>(stereo->type) >= std::size(kNames)) return {};
  const std::string name = kNames[static_cast<size_t>(stereo->type)];
  return (stereo->flags & AV_STEREO3D_FLAG_INVERT) != 0 ? name + ", right view first" : name;
}

std::optional<double> RotationOf(const std::optional<std::array<int32_t, 9>>& matrix) {
  if (!matrix) return {};
  const double degrees = av_display_rotation_get(matrix->data());
  return std::isnan(degrees) ? std::nullopt : std::optional<double>(degrees);
}

PictureForm FormOf(const AVCodecParameters& parameters) {
  if (parameters.codec_type != AVMEDIA_TYPE_VIDEO) return {};
  const AVPixFmtDescriptor* const format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(parameters.format));
  if (format == nullptr || format->nb_components == 0) return {};
  PictureForm form;
  form.depth = format->comp[0].depth;
  const int across = format->log2_chroma_w;
  const int down = format->log2_chroma_h;
  if ((format->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)) != 0) {
    form.chroma = "RGB";
  } else if (format->nb_components < 3) {
    form.chroma = "monochrome";
  } else {
    form.chroma = across == 0   ? down == 0 ? "4:4:4" : "4:4:0"
                  : across == 2 ? "4:1:1"
                  : down == 0   ? "4:2:2"
                                : "4:2:0";
  }
  return form;
}

std::string LayoutOf(const AVChannelLayout& layout) {
  if (layout.nb_channels == 0 || layout.order == AV_CHANNEL_ORDER_UNSPEC) return {};
  std::array<char, 256> text{};
  return av_channel_layout_describe(&layout, text.data(), text.size()) < 0 ? std::string() : text.data();
}

void DescribeSound(const AVCodecParameters& parameters, MediaStream& out) {
  out.sampleRate = parameters.sample_rate;
  out.channels = parameters.ch_layout.nb_channels;
  if (parameters.codec_type != AVMEDIA_TYPE_AUDIO) return;
  out.channelLayout = LayoutOf(parameters.ch_layout);
  const int width = av_get_bits_per_sample(parameters.codec_id);
  out.sampleBits = parameters.bits_per_raw_sample > 0 ? parameters.bits_per_raw_sample : width;
}

uint8_t ColourCode(int code) { return static_cast<uint8_t>(code < 0 || code > 255 ? 2 : code); }

}  // namespace

const char* StreamKindName(StreamKind kind) {
  static constexpr const char* kNames[] = {"unknown", "video", "audio", "data", "subtitle", "attachment"};
  return kNames[static_cast<size_t>(kind)];
}

std::string StreamText(const AVStream& stream) {
  const AVCodecParameters& parameters = *stream.codecpar;
  const char* const codec =
      parameters.codec_id == AV_CODEC_ID_NONE ? "unknown codec" : avcodec_get_name(parameters.codec_id);
  return fmt::format("stream {} ({}, {})", stream.index, StreamKindName(KindOf(parameters.codec_type)),
                     codec);
}

std::vector<Tag> DescribeTags(const AVDictionary* dictionary) {
  std::vector<Tag> tags;
  const AVDictionaryEntry* entry = nullptr;
  while ((entry = av_dict_get(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr)
    tags.push_back({entry->key, entry->value});
  return tags;
}

// A code as libav has it, which may be any number of the file's: its enumerations hold them unchecked.
template <typename Code>
int Unchecked(const Code& code) {
  static_assert(sizeof(Code) == sizeof(int));
  int number = 0;
  std::memcpy(&number, &code, sizeof number);
  return number;
}

ContainerColour DescribeContainerColour(const AVStream& stream) {
  const AVCodecParameters& parameters = *stream.codecpar;
  return {Unchecked(parameters.color_primaries),
          Unchecked(parameters.color_trc),
          Unchecked(parameters.color_space),
          Unchecked(parameters.color_range),
          parameters.width,
          parameters.height,
          Unchecked(parameters.field_order),
          FromLibav(stream.sample_aspect_ratio)};
}

MediaStream DescribeMediaStream(const AVStream& stream, const ContainerColour& colour, bool raw,
                                bool described) {
  const AVCodecParameters& parameters = *stream.codecpar;
  MediaStream out;
  out.index = static_cast<unsigned>(stream.index);
  out.id = stream.id;
  out.kind = KindOf(parameters.codec_type);
  out.movingPictures = MediaFile::IsVideo(stream);
  out.codecName = avcodec_get_name(parameters.codec_id);
  out.tag = parameters.codec_tag;
  const AVDictionaryEntry* const language = av_dict_get(stream.metadata, "language", nullptr, 0);
  if (language != nullptr) out.language = language->value;
  out.dispositions = DispositionsOf(stream.disposition);
  out.tags = DescribeTags(stream.metadata);
  out.coded = DescribeStream(stream, raw);
  // The fourcc of encrypted pictures (ISO/IEC 14496-12 clause 8.12), or what a header says of keys.
  out.encrypted = parameters.codec_tag == MKTAG('e', 'n', 'c', 'v') ||
                  av_stream_get_side_data(&stream, AV_PKT_DATA_ENCRYPTION_INIT_INFO, nullptr) != nullptr;
  out.hasColourDescription = described;
  out.container = colour;
  out.width = parameters.width;
  out.height = parameters.height;
  out.fieldOrder = static_cast<FieldOrder>(Unchecked(parameters.field_order));
  out.sampleAspect = FromLibav(stream.sample_aspect_ratio);
  out.stereo = StereoOf(stream);
  out.displayMatrix = DisplayMatrixOf(stream);
  out.rotation = RotationOf(out.displayMatrix);
  out.duration = stream.duration > 0 ? stream.duration : 0;
  out.bitRate = parameters.bit_rate;
  const char* const profile = avcodec_profile_name(parameters.codec_id, parameters.profile);
  if (profile != nullptr) out.profile = profile;
  out.pictures = FormOf(parameters);
  out.codedAspect = FromLibav(parameters.sample_aspect_ratio);
  out.colour = {ColourCode(Unchecked(parameters.color_primaries)),
                ColourCode(Unchecked(parameters.color_trc)), ColourCode(Unchecked(parameters.color_space))};
  out.range = Unchecked(parameters.color_range);
  DescribeSound(parameters, out);
  const StreamHdr hdr = ContainerHdr(stream);
  out.mastering = hdr.mastering;
  out.lightLevel = hdr.lightLevel;
  out.dolbyVision = DolbyVisionOf(stream);
  return out;
}

}  // namespace qlnmedia
