// Formats, rates and timecodes: plain functions of the library.

#include <pybind11/stl.h>

#include <optional>
#include <string>
#include <utility>

#include "failure.h"
#include "module.h"
#include "qlnutil/qlnformat.h"
#include "qlnutil/qlntransport.h"
#include "timecode/kxtimecode.h"

namespace qlnpython {

namespace py = pybind11;

namespace {

using Pair = std::pair<uint32_t, uint32_t>;

std::optional<Pair> RateOfFormat(uint32_t format) {
  Pair pair{};
  if (vidRateScale(format, &pair.first, &pair.second) != 0) return std::nullopt;
  return pair;
}

Pair Normalized(uint32_t rate, uint32_t scale) {
  vidNormalizeRateScale(&rate, &scale);
  return {rate, scale};
}

std::optional<Pair> RateOfSize(uint32_t width, uint32_t height) {
  Pair pair{};
  vidRateScaleFromSize(width, height, &pair.first, &pair.second);
  if (pair.second == 0) return std::nullopt;
  return pair;
}

std::string NameOfFormat(uint32_t format) {
  char text[21] = {};
  vidSignalFormatToStr20(format, text);
  return text;
}

std::optional<Pair> SizeOfFormat(uint32_t format, bool field) {
  Pair pair{};
  if (vidImageSize(format, &pair.first, &pair.second, field ? 1 : 0) != 0) return std::nullopt;
  return pair;
}

// Nothing for a format without a rate or a size.
py::object VideoOfFormat(uint32_t format) {
  QLNVid video{};
  if (vidSignalFormatToQLNVid(format, &video) != 0) return py::none();
  using py::literals::operator""_a;
  return py::dict("width"_a = video.width, "height"_a = static_cast<int32_t>(video.height),
                  "rate"_a = video.rate, "scale"_a = video.scale, "active_left"_a = video.activeLeft,
                  "active_top"_a = video.activeTop, "active_right"_a = video.activeRight,
                  "active_bottom"_a = video.activeBottom, "scan_flags"_a = video.scanFlags);
}

uint32_t AspectOf(uint32_t width, int32_t height) {
  QLNVid video{};
  video.width = width;
  video.height = static_cast<uint32_t>(height);
  return vidGetAspectRatio(&video);
}

uint32_t Converted(uint32_t timecode, uint32_t type, uint32_t rate, uint32_t scale) {
  vidConvertTC(&timecode, type, rate, scale);
  return timecode;
}

std::string TimecodeText(uint32_t timecode, uint32_t type) {
  char text[16] = {};
  TimeCodeToString(timecode, type & 0xFF, text);
  return text;
}

uint32_t TimecodeOfText(const std::string& text, uint32_t type) {
  uint32_t timecode = 0;
  if (text.find('\0') != std::string::npos || TimeCodeFromString(text.c_str(), type & 0xFF, &timecode) != 0)
    throw StreamFailure("'" + text + "' is no timecode",
                        "write HH:MM:SS:FF, or ';' in front of drop-frame numbers");
  return timecode;
}

}  // namespace

void AddFormats(py::module_& module) {
  module.def("rate_of_format", &RateOfFormat);
  module.def("normalized_rate", &Normalized);
  module.def("rate_of_size", &RateOfSize);
  module.def("frames_per_second", &vidFramesPerSecD);
  module.def("ms_per_frame", &vidMsPerFrameD);
  module.def("timecode_frames_per_second", &vidTCFramesPerSecD);
  module.def("timecode_ms_per_frame", &vidTCMsPerFrameD);
  module.def("timecode_type_of_rate", &vidGetTCType);
  module.def("signal_format", &vidGetSignalFormat);
  module.def("name_of_format", &NameOfFormat);
  module.def("size_of_token", &vidGetSizeFromToken);
  module.def("token_of_size", &vidGetTokenFromSize);
  module.def("timecode_type_of_format", &vidGetTCTypeSignalFormat);
  module.def("full_rate_timecode_type_of_format", &vidGetFPSTCTypeSignalFormat);
  module.def("aspect_ratio", &AspectOf);
  module.def("size_of_format", &SizeOfFormat);
  module.def("video_of_format", &VideoOfFormat);
  module.def("matrix_of_size", &GetMatrixBySize);
  module.def("convert_timecode", &Converted);
  module.def("codec_name", [](uint32_t fourcc) { return std::string(qlnutilCodecTypeString(fourcc)); });
  module.def("file_type_name", [](int32_t type) { return std::string(qlnutilFileTypeString(type)); });
  module.def("timecode_text", &TimecodeText);
  module.def("timecode_of_text", &TimecodeOfText);
  module.def("speed_rate", &speedRate);
  module.def("total_channels", &totalChannels);
  module.def("isolate_channel", &isolateChannel);
  module.def("fourcc_to_lower", &fourccToLower);
  module.def("fourcc_to_upper", &fourccToUpper);
}

}  // namespace qlnpython
