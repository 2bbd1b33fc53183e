// Streams and changes out of dicts.

#include "changes.h"

#include <pybind11/stl.h>

#include "byte_view.h"

namespace qlnpython {

namespace py = pybind11;
using qlnmedia::Rational;
using qlnmedia::StreamChanges;
using qlnmedia::StreamDescription;
using qlnmedia::VideoCodec;

namespace {

VideoCodec CodecOf(const std::string& name) {
  if (name == "h264") return VideoCodec::kH264;
  if (name == "hevc") return VideoCodec::kHevc;
  if (name == "mpeg2") return VideoCodec::kMpeg2;
  throw py::value_error("the codec is h264, hevc or mpeg2, not " + name);
}

// Fractions that can be divided by, and 0 for a rate that is not known.
void Fraction(const py::dict& values, const char* key, bool mayBeZero, Rational& out) {
  Given<std::pair<int32_t, int32_t>>(values, key, [&](std::pair<int32_t, int32_t> value) {
    if (value.second <= 0 || value.first < (mayBeZero ? 0 : 1))
      throw py::value_error(std::string(key) + " is no fraction above 0");
    out = {value.first, value.second};
  });
}

template <class Target>
auto Into(Target& target) {
  return [&target](auto value) { target = std::move(value); };
}

}  // namespace

const char* const kChangeKeys =
    " colour full_range sample_aspect level tier timing chroma_location cropping remove mastering "
    "light_level "
    "timecode timecode_type rate interlaced delimiters recovery_points replace_captions ";

void CheckKeys(const py::dict& values, const std::string& known) {
  for (const auto& [key, value] : values)
    if (known.find(" " + std::string(py::str(key)) + " ") == std::string::npos)
      throw py::type_error("there is no option " + std::string(py::str(key)));
}

void ReadChanges(const py::dict& values, StreamChanges& changes) {
  using Text = std::string;
  using namespace qlnmedia;  // NOLINT: the readers of its texts
  Given<Text>(values, "colour", [&](const Text& text) { changes.colour = ParseColour(text); });
  Given<bool>(values, "full_range", Into(changes.fullRange));
  Given<Text>(values, "sample_aspect",
              [&](const Text& text) { changes.sampleAspect = ParseSampleAspect(text); });
  Given<Text>(values, "level", [&](const Text& text) { changes.level = ParseLevel(text); });
  Given<Text>(values, "tier", [&](const Text& text) { changes.highTier = ParseTier(text); });
  Given<Text>(values, "timing", [&](const Text& text) { changes.timing = ParseVuiTiming(text); });
  Given<Text>(values, "chroma_location",
              [&](const Text& text) { changes.chromaLocation = ParseChromaLocation(text); });
  Given<Text>(values, "cropping", [&](const Text& text) { changes.cropping = ParseCropping(text); });
  Given<Text>(values, "remove", [&](const Text& text) { changes.remove = ParseRemoval(text); });
  Given<Text>(values, "mastering",
              [&](const Text& text) { changes.mastering = ParseMasteringDisplay(text); });
  Given<Text>(values, "light_level", [&](const Text& text) { changes.lightLevel = ParseLightLevel(text); });
  Given<Text>(values, "timecode", Into(changes.timecode));
  Given<Text>(values, "timecode_type", Into(changes.timecodeType));
  Given<Text>(values, "rate", Into(changes.rate));
  Given<bool>(values, "interlaced", Into(changes.interlaced));
  Given<bool>(values, "delimiters", Into(changes.delimiters));
  Given<bool>(values, "recovery_points", Into(changes.recoveryPoints));
  Given<bool>(values, "replace_captions", Into(changes.replaceCaptions));
}

StreamDescription ReadDescription(const py::dict& values) {
  CheckKeys(
      values,
      " codec private_data length_bytes time_base average_rate base_rate raw own_marks height bottom_first ");
  StreamDescription stream;
  Given<std::string>(values, "codec", [&](const std::string& name) { stream.codec = CodecOf(name); });
  Given<py::object>(values, "private_data", [&](const py::object& data) {
    const ByteView view(data);
    stream.privateData.assign(view.data(), view.data() + view.size());
  });
  Given<int>(values, "length_bytes", [&](int bytes) {
    if (bytes != 0 && bytes != 1 && bytes != 2 && bytes != 4)
      throw py::value_error("lengths have 1, 2 or 4 bytes, or 0 for start codes");
    stream.lengthBytes = bytes;
  });
  Fraction(values, "time_base", false, stream.timeBase);
  Fraction(values, "average_rate", true, stream.averageRate);
  Fraction(values, "base_rate", true, stream.baseRate);
  Given<bool>(values, "raw", Into(stream.raw));
  Given<bool>(values, "own_marks", Into(stream.ownMarks));
  Given<uint32_t>(values, "height", Into(stream.height));
  Given<bool>(values, "bottom_first", Into(stream.bottomFirst));
  return stream;
}

}  // namespace qlnpython
