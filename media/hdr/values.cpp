// Parses what people write for colour and HDR metadata.

#include "hdr/values.h"

#include <fmt/format.h>

#include <charconv>
#include <string_view>

#include "base/error.h"
#include "sets/names.h"

namespace qlnmedia {

namespace {

// Takes numbers and fixed text off the front of a text.
class TextCursor {
 public:
  explicit TextCursor(std::string_view text) : left_(text) {}
  bool Literal(std::string_view text) {
    if (left_.substr(0, text.size()) != text) return false;
    left_.remove_prefix(text.size());
    return true;
  }
  template <class Number>
  bool Take(Number& number) {
    const auto [end, error] = std::from_chars(left_.data(), left_.data() + left_.size(), number);
    if (error != std::errc{}) return false;
    left_.remove_prefix(static_cast<size_t>(end - left_.data()));
    return true;
  }
  bool done() const { return left_.empty(); }

 private:
  std::string_view left_;
};

bool TakePoint(TextCursor& in, std::string_view name, MasteringDisplay::Point& point) {
  return in.Literal(name) && in.Literal("(") && in.Take(point.x) && in.Literal(",") && in.Take(point.y) &&
         in.Literal(")");
}

struct NamedColour {
  const char* name;
  ColourCodes codes;
};

constexpr NamedColour kColours[] = {
    {"bt709", {1, 1, 1}},      {"bt601-525", {6, 6, 6}},   {"bt601-625", {5, 6, 5}},
    {"bt2020-pq", {9, 16, 9}}, {"bt2020-hlg", {9, 18, 9}}, {"p3-pq", {12, 16, 9}},
};

}  // namespace

MasteringDisplay ParseMasteringDisplay(const std::string& text) {
  MasteringDisplay display;
  display.white = {15635, 16450};  // D65
  display.maxLuminance = 10000000;
  display.minLuminance = 1;
  if (text == "p3") {
    display.red = {34000, 16000};
    display.green = {13250, 34500};
    display.blue = {7500, 3000};
    return display;
  }
  if (text == "bt2020") {
    display.red = {35400, 14600};
    display.green = {8500, 39850};
    display.blue = {6550, 2300};
    return display;
  }
  TextCursor in(text);
  if (!TakePoint(in, "G", display.green) || !TakePoint(in, "B", display.blue) ||
      !TakePoint(in, "R", display.red) || !TakePoint(in, "WP", display.white) || !in.Literal("L(") ||
      !in.Take(display.maxLuminance) || !in.Literal(",") || !in.Take(display.minLuminance) ||
      !in.Literal(")") || !in.done())
    throw Error(
        "--hdr " + text, "is no mastering display",
        "write p3, bt2020 or G(x,y)B(x,y)R(x,y)WP(x,y)L(max,min) in units of 0.00002 and 0.0001 cd/m2");
  if (display.maxLuminance <= display.minLuminance)
    throw Error("--hdr " + text, "has a maximum luminance that is not above its minimum");
  for (const MasteringDisplay::Point& point : {display.red, display.green, display.blue, display.white}) {
    if (point.x > 50000 || point.y > 50000)
      throw Error("--hdr " + text, "has a chromaticity above 1", "50000 stands for 1");
  }
  return display;
}

LightLevel ParseLightLevel(const std::string& text) {
  LightLevel level;
  TextCursor in(text);
  if (!in.Take(level.maxContent) || !in.Literal(",") || !in.Take(level.maxAverage) || !in.done())
    throw Error("--light-level " + text, "is no light level", "write MAX,AVERAGE in cd/m2, as 1000,400");
  return level;
}

ColourCodes ParseColour(const std::string& text) {
  for (const NamedColour& named : kColours) {
    if (text == named.name) return named.codes;
  }
  ColourCodes codes;
  TextCursor in(text);
  if (!in.Take(codes.primaries) || !in.Literal(":") || !in.Take(codes.transfer) || !in.Literal(":") ||
      !in.Take(codes.matrix) || !in.done()) {
    std::string names;
    for (const NamedColour& named : kColours) names += std::string(named.name) + ", ";
    throw Error("--colour " + text, "is no colour",
                "write " + names + "or PRIMARIES:TRANSFER:MATRIX in numbers");
  }
  return codes;
}

std::string MasteringDisplayText(const MasteringDisplay& d) {
  return fmt::format("G({},{})B({},{})R({},{})WP({},{})L({},{})", d.green.x, d.green.y, d.blue.x, d.blue.y,
                     d.red.x, d.red.y, d.white.x, d.white.y, d.maxLuminance, d.minLuminance);
}

std::string ColourText(const ColourCodes& codes) {
  return fmt::format("{}:{}:{} ({}, {}, {})", codes.primaries, codes.transfer, codes.matrix,
                     ColourPrimariesName(codes.primaries), TransferName(codes.transfer),
                     MatrixName(codes.matrix));
}

}  // namespace qlnmedia
