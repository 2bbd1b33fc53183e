// What the container says of a file and of each of its streams.

#include "inspect/stream.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "inspect/dolby_vision.h"
#include "inspect/format.h"
#include "inspect/hdr_section.h"
#include "sets/names.h"

namespace qlnmedia {

namespace {

Json RationalJson(Rational value) {
  return Json{{"numerator", value.numerator}, {"denominator", value.denominator}};
}

// A codec tag that is no text, as the stream types and descriptors of transport streams.
bool IsText(uint32_t tag) {
  for (int shift = 0; shift < 32; shift += 8) {
    const uint32_t c = tag >> shift & 0xFF;
    if (c < 0x20 || c > 0x7E) return false;
  }
  return true;
}

// Whether bytes are text in UTF-8 that can be seen.
bool IsVisibleText(const std::string& bytes) {
  if (Json(bytes).dump(-1, ' ', false, Json::error_handler_t::ignore) !=
      Json(bytes).dump(-1, ' ', false, Json::error_handler_t::replace))
    return false;
  return std::none_of(bytes.begin(), bytes.end(), [](char c) {
    return (c >= 0 && c < 0x20 && c != '\n' && c != '\t' && c != '\r') || c == 0x7F;
  });
}

// Text as it stands; what is none, as some descriptors of transport streams, as a number, and in hexadecimal
// digits where it has more than eight bytes.
void AddText(Section& section, const std::string& key, const std::string& label, const std::string& bytes) {
  if (IsVisibleText(bytes)) return section.Add(key, label, bytes);
  std::string digits;
  uint64_t number = 0;
  for (const char c : bytes) {
    digits += fmt::format("{:02X}", static_cast<uint8_t>(c));
    number = number << 8 | static_cast<uint8_t>(c);
  }
  if (bytes.size() > 8) return section.Add(key, label, digits);
  section.Add(key, label, number, "0x" + digits);
}

void AddTags(Section& section, const std::vector<Tag>& tags) {
  if (tags.empty()) return;
  Section& list = section.AddSection("tags", "Tags");
  for (const Tag& tag : tags) AddText(list, tag.name, tag.name, tag.text);
}

void AddChapters(Section& container, const std::vector<Chapter>& chapters) {
  for (size_t i = 0; i < chapters.size(); ++i) {
    Section& chapter = container.AddToList("chapters", fmt::format("Chapter {}", i));
    chapter.Add("start", "Start", chapters[i].start, DurationText(chapters[i].start));
    chapter.Add("end", "End", chapters[i].end, DurationText(chapters[i].end));
    AddTags(chapter, chapters[i].tags);
  }
}

// How pictures are to be turned, and what else a player should know of a stream.
void AddPresentation(Section& section, const MediaStream& stream) {
  if (!stream.language.empty()) AddText(section, "language", "Language", stream.language);
  if (!stream.dispositions.empty())
    section.Add("dispositions", "Dispositions", stream.dispositions,
                fmt::format("{}", fmt::join(stream.dispositions, ", ")));
  if (stream.encrypted) section.Add("encrypted", "Encrypted", true, "yes", "its samples need a key");
  if (!stream.stereo.empty()) section.Add("stereo", "Stereo", stream.stereo);
  if (stream.rotation)
    section.Add("rotation", "Rotation", *stream.rotation + 0.0,  // no negative zero
                fmt::format("{:g} degrees counter-clockwise", *stream.rotation + 0.0));
  if (stream.displayMatrix)
    section.Add("display_matrix", "Display matrix",
                std::vector<int32_t>(stream.displayMatrix->begin(), stream.displayMatrix->end()));
}

void AddTag(Section& section, uint32_t tag) {
  if (!IsText(tag)) {
    section.Add("tag", "Tag", tag, fmt::format("0x{:02X}", tag));
    return;
  }
  std::string text;
  for (int shift = 0; shift < 32; shift += 8) text += static_cast<char>(tag >> shift & 0xFF);
  section.Add("tag", "Tag", text);
}

// What the container and the stream's headers say of the raster; a field order that is not told counts as
// progressive.
Raster RasterOf(const MediaStream& stream) {
  return {.width = static_cast<uint32_t>(stream.width),
          .height = stream.height,
          .rate = static_cast<uint32_t>(stream.coded.averageRate.numerator),
          .scale = static_cast<uint32_t>(stream.coded.averageRate.denominator),
          .progressive = stream.fieldOrder <= kProgressive};
}

// The colour and the static HDR metadata that the container itself describes; raw and transport streams have
// no place for them.
void AddContainerColour(Section& section, const MediaStream& stream) {
  if (!stream.hasColourDescription) return;
  const ContainerColour& colour = stream.container;
  const auto code = [](int value) { return static_cast<uint32_t>(value); };
  constexpr int kUnspecified = 2;
  if (colour.primaries != kUnspecified || colour.transfer != kUnspecified || colour.matrix != kUnspecified)
    section.Add(
        "container_colour", "Container colour",
        Json{{"primaries", colour.primaries}, {"transfer", colour.transfer}, {"matrix", colour.matrix}},
        fmt::format("{}, {}, {}", ColourPrimariesName(code(colour.primaries)),
                    TransferName(code(colour.transfer)), MatrixName(code(colour.matrix))));
  if (colour.range != kRangeUnknown)
    section.Add("container_range", "Container range", colour.range == kFullRange ? "full" : "limited");
  AddHdr(section, {stream.mastering, stream.lightLevel});
}

}  // namespace

void AddContainer(Section& report, const MediaFile& file) {
  Section& container = report.AddSection("container", "Container");
  container.Add("path", "File", file.path());
  container.Add("format", "Container", std::string(file.formatName()),
                fmt::format("{} ({})", file.formatLongName(), file.formatName()));
  container.Add("size", "Size", file.isPipe() ? Json(nullptr) : Json(file.sizeBytes()),
                file.isPipe() ? "not known" : SizeText(file.sizeBytes()));
  if (file.seconds() > 0) container.Add("duration", "Duration", file.seconds(), DurationText(file.seconds()));
  if (file.bitRate() > 0)
    container.Add("bit_rate", "Bit rate", file.bitRate(), fmt::format("{} kbit/s", file.bitRate() / 1000));
  container.Add("streams", "Streams", file.streams().size());
  AddTags(container, file.tags());
  AddChapters(container, file.chapters());
}

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

Section& AddStream(Section& report, const MediaStream& stream) {
  const std::string kind = StreamKindName(stream.kind);
  Section& section =
      report.AddToList("streams", fmt::format("Stream {}: {}, {}", stream.index, kind, stream.codecName));
  section.Add("index", "Index", stream.index);
  section.Add("type", "Type", kind);
  section.Add("codec", "Codec", stream.codecName);
  if (stream.tag != 0) AddTag(section, stream.tag);
  if (stream.kind == StreamKind::kVideo) {
    section.Add("width", "Width", stream.width);
    section.Add("height", "Height", stream.height);
    const Rational rate = stream.coded.averageRate;
    if (rate.numerator > 0 && rate.denominator > 0) {
      section.Add("average_frame_rate", "Frame rate", RationalJson(rate),
                  fmt::format("{:.5g}", rate.value()));
      AddSignalFormat(section, RasterOf(stream));
    }
    AddContainerColour(section, stream);
  }
  if (stream.kind == StreamKind::kAudio) {
    section.Add("sample_rate", "Sample rate", stream.sampleRate, fmt::format("{} Hz", stream.sampleRate));
    section.Add("channels", "Channels", stream.channels);
  }
  const Rational timeBase = stream.coded.timeBase;
  section.Add("time_base", "Time base", RationalJson(timeBase),
              fmt::format("{}/{}", timeBase.numerator, timeBase.denominator));
  if (stream.duration > 0) {
    const double seconds = SecondsOf(stream.duration, timeBase);
    section.Add("duration", "Duration", seconds, DurationText(seconds));
  }
  AddPresentation(section, stream);
  AddTags(section, stream.tags);
  if (stream.dolbyVision) AddDolbyVisionConfiguration(section, *stream.dolbyVision);
  return section;
}

}  // namespace qlnmedia
