// Takes signal formats apart for people and programs.

#include "inspect/format.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>

#include "inspect/inspect.h"
#include "qlnutil/format/rates.h"
#include "qlnutil/format/signal_format.h"
#include "qlnutil/format/tc_type.h"

namespace qlnmedia {

namespace {

std::string WordText(QLNSignalFormat format) { return fmt::format("0x{:08X}", format); }

std::string NameOf(QLNSignalFormat format) {
  char text[21];
  vidSignalFormatToStr20(format, text);
  return text;
}

std::string_view ScanName(QLNSignalFormat format) {
  switch (qln::ScanClass(format)) {
    case QLN_SCAN_CLASS_INTERLACED:
      return "interlaced";
    case QLN_SCAN_CLASS_PROGRESSIVE:
      return "progressive";
    case QLN_SCAN_CLASS_SEGMENTED:
      return "segmented frames";
    default:
      return "unknown";
  }
}

void AddToken(Section& report, const std::string& key, const std::string& label, uint32_t token) {
  const uint32_t size = vidGetSizeFromToken(token);
  const bool known = size != QLN_SIZE_UNKNOWN;
  report.Add(key, label, Json{{"token", token}, {"size", known ? Json(size) : Json(nullptr)}},
             known ? fmt::format("{}, which stands for {}", token, size)
                   : fmt::format("{}, which stands for no size", token));
}

void AddSize(Section& report, QLNSignalFormat format) {
  uint32_t width = 0;
  uint32_t height = 0;
  if (vidImageSize(format, &width, &height, 0) != 0) return;
  report.Add("width", "Width", width);
  report.Add("height", "Height", height);
  uint32_t fieldHeight = 0;
  vidImageSize(format, &width, &fieldHeight, 1);
  if (fieldHeight != height) report.Add("field_height", "Lines of a field", fieldHeight);

  QLNVid video = {};
  video.width = width;
  video.height = height;
  const uint32_t ratio = vidGetAspectRatio(&video);
  if (ratio != 0)
    report.Add("aspect_ratio", "Aspect ratio",
               Json{{"numerator", ratio >> 16}, {"denominator", ratio & 0xFFFF}},
               fmt::format("{}:{}", ratio >> 16, ratio & 0xFFFF));
}

void AddTcType(Section& report, const std::string& key, const std::string& label, uint32_t type) {
  const char* const text = qln::TcTypeText(type);
  report.Add(key, label, Json{{"type", type}, {"text", text}}, fmt::format("{} ({})", text, type));
}

void AddTiming(Section& report, QLNSignalFormat format) {
  uint32_t rate = 0;
  uint32_t scale = 0;
  if (vidRateScale(format, &rate, &scale) == 0 && rate != 0) {
    report.Add("rate", "Rate", Json{{"numerator", rate}, {"denominator", scale}},
               fmt::format("{}/{}, {:.6g} frames a second", rate, scale, vidFramesPerSecD(format, 0, 0)));
    report.Add("frame_time", "Frame time", vidMsPerFrameD(format, 0, 0),
               fmt::format("{:.6g} ms", vidMsPerFrameD(format, 0, 0)));
  }
  AddTcType(report, "timecode_type", "Timecode type", vidGetTCTypeSignalFormat(format));
  AddTcType(report, "timecode_type_full_rate", "At full rate", vidGetFPSTCTypeSignalFormat(format));
}

// Where and how the picture lies in the whole signal, for the formats whose place is known.
void AddActiveArea(Section& report, QLNSignalFormat format) {
  QLNVid video = {};
  video.activeTop = -1;
  if (vidSignalFormatToQLNVid(format, &video) != 0 || video.activeTop < 0) return;
  report.Add("active_area", "Active area",
             Json{{"left", video.activeLeft},
                  {"top", video.activeTop},
                  {"right", video.activeRight},
                  {"bottom", video.activeBottom}},
             fmt::format("columns {} to {}, lines {} to {}", video.activeLeft, video.activeRight - 1,
                         video.activeTop, video.activeBottom - 1));
}

bool SameRate(double a, double b) {
  // Rates that differ by 1000/1001 are not the same, nor are 29.98 and 30000/1001; 23.98 and 24000/1001 are.
  return std::abs(a - b) <= 0.0002 * std::max(a, b);
}

// Whether some rate field stands for a rate.
bool HasRateField(double framesPerSecond) {
  for (uint32_t field = 1; field <= qln::kRateFieldMask; ++field) {
    uint32_t rate = 0;
    uint32_t scale = 0;
    if (vidRateScale(field, &rate, &scale) == 0 &&
        SameRate(framesPerSecond, static_cast<double>(rate) / scale))
      return true;
  }
  return false;
}

std::string RasterText(const Raster& raster) {
  return fmt::format("{}x{} {}", raster.width, raster.height,
                     raster.progressive ? "progressive" : "interlaced");
}

// What the word says otherwise than the question did.
void AddDifferences(Section& report, const Raster& raster, QLNSignalFormat format) {
  const double asked = static_cast<double>(raster.rate) / raster.scale;
  uint32_t rate = 0;
  uint32_t scale = 0;
  if (vidRateScale(format, &rate, &scale) != 0) {
    report.AddNote(fmt::format("the format says no rate; {:.6g} was asked for", asked));
  } else if (!SameRate(asked, static_cast<double>(rate) / scale)) {
    report.AddNote(
        HasRateField(asked)
            ? fmt::format("the format is one of {}/{}; {:.6g} was asked for", rate, scale, asked)
            : fmt::format("no word holds {:.6g} frames a second; this one says {}/{}", asked, rate, scale));
  }
  uint32_t width = 0;
  uint32_t height = 0;
  vidImageSize(format, &width, &height, 0);
  if (width != raster.width || height != qln::AbsoluteHeight(raster.height))
    report.AddNote(fmt::format("the format is one of {}x{}; {}x{} was asked for", width, height, raster.width,
                               raster.height));
  const bool interlaced = qln::ScanClass(format) == QLN_SCAN_CLASS_INTERLACED;
  if (interlaced == raster.progressive)
    report.AddNote(fmt::format("the format is {}; {} was asked for", ScanName(format),
                               raster.progressive ? "progressive" : "interlaced"));
}

// Whether a word is one of just this raster, scan and rate; a raster without one of its own gets a word near
// to it.
bool Fits(const Raster& raster, QLNSignalFormat format) {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t rate = 0;
  uint32_t scale = 0;
  if (vidImageSize(format, &width, &height, 0) != 0 || vidRateScale(format, &rate, &scale) != 0) return false;
  const bool interlaced = qln::ScanClass(format) == QLN_SCAN_CLASS_INTERLACED;
  return width == raster.width && height == qln::AbsoluteHeight(raster.height) &&
         interlaced != raster.progressive && scale != 0 &&
         SameRate(static_cast<double>(raster.rate) / raster.scale, static_cast<double>(rate) / scale);
}

QLNSignalFormat FormatOf(const Raster& raster) {
  return vidGetSignalFormat(raster.rate, raster.scale, raster.width, raster.height,
                            raster.progressive ? 1 : 0);
}

}  // namespace

Section DescribeFormat(QLNSignalFormat format) {
  Section report("Signal format " + WordText(format));
  report.Add("word", "Word", WordText(format));
  if (format == QLN_SIGNAL_FORMAT_UNKNOWN) {
    report.AddNote("this is the word for an unknown format");
    return report;
  }
  report.Add("name", "Name", NameOf(format));
  report.Add("scan", "Scan", std::string(ScanName(format)));
  AddToken(report, "width_token", "Width token", qln::WidthToken(format));
  AddToken(report, "height_token", "Height token", qln::HeightToken(format));
  report.Add("rate_field", "Rate field", format & qln::kRateFieldMask);
  AddSize(report, format);
  AddTiming(report, format);
  AddActiveArea(report, format);
  return report;
}

Section DescribeRaster(const Raster& raster) {
  const QLNSignalFormat format = FormatOf(raster);
  if (format != QLN_SIGNAL_FORMAT_UNKNOWN) {
    Section report = DescribeFormat(format);
    AddDifferences(report, raster, format);
    return report;
  }
  Section report("Signal format " + WordText(format));
  report.Add("word", "Word", WordText(format));
  report.AddNote(
      fmt::format("there is no format for {} at {}/{}", RasterText(raster), raster.rate, raster.scale));
  return report;
}

void AddSignalFormat(Section& section, const Raster& raster) {
  const QLNSignalFormat format = FormatOf(raster);
  if (format == QLN_SIGNAL_FORMAT_UNKNOWN || !Fits(raster, format)) {
    section.Add("signal_format", "Signal format", nullptr, "none");
    return;
  }
  section.Add("signal_format", "Signal format", Json{{"word", WordText(format)}, {"name", NameOf(format)}},
              fmt::format("{} ({})", NameOf(format), WordText(format)));
}

Report ReportOnFormat(uint32_t word) { return ReportOf(DescribeFormat(word)); }

Report ReportOnRaster(const Raster& raster) { return ReportOf(DescribeRaster(raster)); }

}  // namespace qlnmedia
