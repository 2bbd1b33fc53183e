// What the container says of a file and of each of its streams.

#include "inspect/stream.h"

#include "base/text.h"

#include <fmt/format.h>

#include "container/hdr_side_data.h"
#include "inspect/codec.h"
#include "inspect/dolby_vision.h"
#include "inspect/format.h"
#include "sets/names.h"

namespace qlnmedia {

namespace {

std::string SizeText(int64_t bytes) {
  if (bytes < 10000) return fmt::format("{} bytes", bytes);
  if (bytes < 10000000) return fmt::format("{:.1f} kB", static_cast<double>(bytes) / 1e3);
  if (bytes < 10000000000) return fmt::format("{:.1f} MB", static_cast<double>(bytes) / 1e6);
  return fmt::format("{:.1f} GB", static_cast<double>(bytes) / 1e9);
}

std::string DurationText(double seconds) {
  const int64_t ms = static_cast<int64_t>(seconds * 1000 + 0.5);
  return fmt::format("{}:{:02}:{:02}.{:03}", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60, ms % 1000);
}

Json FractionJson(AVRational value) { return Json{{"numerator", value.num}, {"denominator", value.den}}; }

std::string FourccText(uint32_t tag) {
  std::string text;
  for (int i = 0; i < 4; ++i) text += static_cast<char>(tag >> 8 * i & 0xFF);
  return Printable(text);
}

// What the container and the stream's headers say of the raster; a field order that is not told counts as
// progressive.
Raster RasterOf(const AVStream& stream) {
  const AVCodecParameters& parameters = *stream.codecpar;
  return {.width = static_cast<uint32_t>(parameters.width),
          .height = parameters.height,
          .rate = static_cast<uint32_t>(stream.avg_frame_rate.num),
          .scale = static_cast<uint32_t>(stream.avg_frame_rate.den),
          .progressive = parameters.field_order <= AV_FIELD_PROGRESSIVE};
}

// The colour and the static HDR metadata that the container itself describes; raw and transport streams have
// no place for them.
void AddContainerColour(Section& section, const MediaFile& file, unsigned index) {
  if (file.isRawStream() || file.formatName() == "mpegts") return;
  const ContainerColour& colour = file.containerColour(index);
  const auto code = [](int value) { return static_cast<uint32_t>(value); };
  constexpr int kUnspecified = 2;
  if (colour.primaries != kUnspecified || colour.transfer != kUnspecified || colour.matrix != kUnspecified)
    section.Add(
        "container_colour", "Container colour",
        Json{{"primaries", colour.primaries}, {"transfer", colour.transfer}, {"matrix", colour.matrix}},
        fmt::format("{}, {}, {}", ColourPrimariesName(code(colour.primaries)),
                    TransferName(code(colour.transfer)), MatrixName(code(colour.matrix))));
  if (colour.range != AVCOL_RANGE_UNSPECIFIED)
    section.Add("container_range", "Container range", colour.range == AVCOL_RANGE_JPEG ? "full" : "limited");
  AddHdr(section, ContainerHdr(*file.context()->streams[index]));
}

}  // namespace

void AddContainer(Section& report, const MediaFile& file) {
  const AVFormatContext& context = *file.context();
  Section& container = report.AddSection("container", file.path());
  container.Add("path", "File", file.path());
  container.Add("format", "Container", std::string(file.formatName()),
                fmt::format("{} ({})", context.iformat->long_name, file.formatName()));
  container.Add("size", "Size", file.sizeBytes(), SizeText(file.sizeBytes()));
  if (context.duration > 0) {
    const double seconds = static_cast<double>(context.duration) / AV_TIME_BASE;
    container.Add("duration", "Duration", seconds, DurationText(seconds));
  }
  if (context.bit_rate > 0)
    container.Add("bit_rate", "Bit rate", context.bit_rate,
                  fmt::format("{} kbit/s", context.bit_rate / 1000));
  container.Add("streams", "Streams", context.nb_streams);
}

Section& AddStream(Section& report, const MediaFile& file, unsigned index) {
  const AVStream& stream = *file.context()->streams[index];
  const AVCodecParameters& parameters = *stream.codecpar;
  const char* const type = av_get_media_type_string(parameters.codec_type);
  const std::string typeName = type != nullptr ? type : "unknown";
  const char* const codec = avcodec_get_name(parameters.codec_id);
  Section& section = report.AddToList("streams", fmt::format("Stream {}: {}, {}", index, typeName, codec));
  section.Add("index", "Index", index);
  section.Add("type", "Type", typeName);
  section.Add("codec", "Codec", codec);
  if (parameters.codec_tag != 0) section.Add("tag", "Tag", FourccText(parameters.codec_tag));
  if (parameters.codec_type == AVMEDIA_TYPE_VIDEO) {
    section.Add("width", "Width", parameters.width);
    section.Add("height", "Height", parameters.height);
    if (stream.avg_frame_rate.num > 0 && stream.avg_frame_rate.den > 0) {
      section.Add("average_frame_rate", "Frame rate", FractionJson(stream.avg_frame_rate),
                  fmt::format("{:.5g}", av_q2d(stream.avg_frame_rate)));
      AddSignalFormat(section, RasterOf(stream));
    }
    AddContainerColour(section, file, index);
  }
  if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) {
    section.Add("sample_rate", "Sample rate", parameters.sample_rate,
                fmt::format("{} Hz", parameters.sample_rate));
    section.Add("channels", "Channels", parameters.ch_layout.nb_channels);
  }
  section.Add("time_base", "Time base", FractionJson(stream.time_base),
              fmt::format("{}/{}", stream.time_base.num, stream.time_base.den));
  if (stream.duration > 0)
    section.Add("duration", "Duration", static_cast<double>(stream.duration) * av_q2d(stream.time_base),
                DurationText(static_cast<double>(stream.duration) * av_q2d(stream.time_base)));
  AddDolbyVisionConfiguration(section, stream);
  return section;
}

}  // namespace qlnmedia
