// Facts that both codecs report alike.

#include "qlnmedia/inspect_codec.h"

#include <fmt/format.h>

#include "qlnmedia/names.h"
#include "qlnmedia/stream_hdr.h"

namespace qlnmedia {

void AddPictureSize(Section& section, const char* key, const char* label, PictureSize size) {
  section.Add(key, label, Json{{"width", size.width}, {"height", size.height}},
              fmt::format("{} x {}", size.width, size.height));
}

void AddSampleAspect(Section& section, uint32_t aspect_ratio_idc, uint32_t sar_width, uint32_t sar_height) {
  const SampleAspect aspect = SampleAspectRatio(aspect_ratio_idc, sar_width, sar_height);
  if (aspect.width == 0 || aspect.height == 0) {
    section.Add("sample_aspect_ratio", "Sample aspect", nullptr, "unspecified");
    return;
  }
  section.Add("sample_aspect_ratio", "Sample aspect",
              Json{{"width", aspect.width}, {"height", aspect.height}},
              fmt::format("{}:{}", aspect.width, aspect.height));
}

void AddFrameRate(Section& section, uint64_t numerator, uint64_t denominator, const char* note) {
  if (numerator == 0 || denominator == 0) return;
  section.Add("frame_rate", "Frame rate", Json{{"numerator", numerator}, {"denominator", denominator}},
              RateText(numerator, denominator), note);
}

void AddColour(Section& section, uint32_t primaries, uint32_t transfer, uint32_t matrix) {
  section.Add("colour_primaries_name", "Primaries", ColourPrimariesName(primaries));
  section.Add("transfer_characteristics_name", "Transfer", TransferName(transfer));
  section.Add("matrix_coefficients_name", "Matrix", MatrixName(matrix));
}

void AddRange(Section& section, bool full) { section.Add("range", "Range", full ? "full" : "limited"); }

void AddComparison(Section& section, const Bytes& source, const Bytes& written, const std::string& cause) {
  const bool same = source == written;
  section.Add("read_write_same", "Written back", same, same ? "the same bytes" : "other bytes",
              same || cause.empty() ? "" : cause);
}

void AddColourMessages(Section& frame, Codec codec, const UnitRun& run) {
  const StreamHdr hdr = HdrOf(codec, run.units);
  if (hdr.mastering)
    frame.Add("mastering_display", "Mastering display", MasteringDisplayText(*hdr.mastering));
  if (hdr.lightLevel)
    frame.Add(
        "content_light_level", "Light level",
        Json{{"max", hdr.lightLevel->maxContent}, {"average", hdr.lightLevel->maxAverage}},
        fmt::format("{} cd/m2, average {} cd/m2", hdr.lightLevel->maxContent, hdr.lightLevel->maxAverage));
}

std::string SeiSummary(Codec codec, const Bytes& unit) {
  bool whole = false;
  std::string text;
  for (const SeiMessage& message : ReadSeiMessages(codec, unit, &whole))
    text += (text.empty() ? "" : ", ") +
            fmt::format("{} ({} bytes)", SeiTypeName(message.type), message.payload.size());
  if (!whole) text += text.empty() ? "breaks off" : ", then breaks off";
  return text;
}

std::string UnitSummary(Codec codec, const std::vector<Unit>& units) {
  std::string text;
  for (size_t i = 0; i < units.size();) {
    const int type = UnitType(codec, units[i].bytes);
    size_t count = 1;
    while (i + count < units.size() && UnitType(codec, units[i + count].bytes) == type) ++count;
    if (!text.empty()) text += ", ";
    text += UnitTypeName(codec, type);
    if (count > 1) text += fmt::format(" x {}", count);
    i += count;
  }
  return text;
}

}  // namespace qlnmedia
