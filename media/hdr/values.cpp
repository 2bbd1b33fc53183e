// Parses what people write for colour and HDR metadata.

#include "hdr/values.h"

#include <fmt/format.h>

#include <charconv>
#include <string_view>
#include <utility>

#include "base/error.h"
#include "qlnmedia/value_names.h"
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

struct ColourEntry {
  const char* name;
  ColourCodes codes;
};

constexpr ColourEntry kColours[] = {
    {"bt709", {1, 1, 1}},      {"bt601-525", {6, 6, 6}},   {"bt601-625", {5, 6, 5}},
    {"bt2020-pq", {9, 16, 9}}, {"bt2020-hlg", {9, 18, 9}}, {"p3-pq", {12, 16, 9}},
};

struct DisplayEntry {
  const char* name;
  MasteringDisplay display;
};

constexpr MasteringDisplay::Point kD65 = {15635, 16450};
constexpr uint32_t kThousand = 10000000;  // cd/m2
constexpr DisplayEntry kDisplays[] = {
    {"p3", {{34000, 16000}, {13250, 34500}, {7500, 3000}, kD65, kThousand, 1}},
    {"bt2020", {{35400, 14600}, {8500, 39850}, {6550, 2300}, kD65, kThousand, 1}},
};

void RequireTrue(const std::string& where, const MasteringDisplay& display) {
  if (display.maxLuminance <= display.minLuminance)
    throw Error(where, "has a maximum luminance that is not above its minimum");
  if (display.maxLuminance > 10 * kThousand)
    throw Error(where, "has a maximum luminance above 10000 cd/m2",
                "luminances are in units of 0.0001 cd/m2");
  const std::pair<const char*, MasteringDisplay::Point> points[] = {
      {"green", display.green}, {"blue", display.blue}, {"red", display.red}, {"white", display.white}};
  for (const auto& [name, point] : points) {
    if (!IsOnChart(point))
      throw Error(where, fmt::format("has {} at ({},{}), outside of the chart", name, point.x, point.y),
                  "x is 5 to 37000, y 5 to 42000, and both together 50000 at most, which stands for 1");
  }
}

}  // namespace

bool IsOnChart(const MasteringDisplay::Point& point) {
  return point.x >= 5 && point.x <= 37000 && point.y >= 5 && point.y <= 42000 && point.x + point.y <= 50000;
}

std::string LuminanceText(uint32_t luminance) {
  std::string text = fmt::format("{}.{:04}", luminance / 10000, luminance % 10000);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.ends_with('.')) text.pop_back();
  return text;
}

std::vector<NamedDisplay> NamedDisplays() {
  std::vector<NamedDisplay> all;
  for (const DisplayEntry& entry : kDisplays)
    all.push_back({entry.name, entry.display, MasteringDisplayText(entry.display)});
  return all;
}

std::vector<NamedColour> NamedColours() {
  std::vector<NamedColour> all;
  for (const auto& [name, codes] : kColours)
    all.push_back({name, codes, ColourPrimariesName(codes.primaries), TransferName(codes.transfer),
                   MatrixName(codes.matrix)});
  return all;
}

MasteringDisplay ParseMasteringDisplay(const std::string& text) {
  for (const DisplayEntry& entry : kDisplays) {
    if (text == entry.name) return entry.display;
  }
  MasteringDisplay display;
  TextCursor in(text);
  if (!TakePoint(in, "G", display.green) || !TakePoint(in, "B", display.blue) ||
      !TakePoint(in, "R", display.red) || !TakePoint(in, "WP", display.white) || !in.Literal("L(") ||
      !in.Take(display.maxLuminance) || !in.Literal(",") || !in.Take(display.minLuminance) ||
      !in.Literal(")") || !in.done())
    throw Error(
        "--hdr " + text, "is no mastering display",
        "write p3, bt2020 or G(x,y)B(x,y)R(x,y)WP(x,y)L(max,min) in units of 0.00002 and 0.0001 cd/m2");
  RequireTrue("--hdr " + text, display);
  return display;
}

LightLevel ParseLightLevel(const std::string& text) {
  LightLevel level;
  TextCursor in(text);
  if (!in.Take(level.maxContent) || !in.Literal(",") || !in.Take(level.maxAverage) || !in.done())
    throw Error("--light-level " + text, "is no light level", "write MAX,AVERAGE in cd/m2, as 1000,400");
  if (level.maxContent != 0 && level.maxAverage > level.maxContent)
    throw Error("--light-level " + text, "has an average above its maximum",
                "write MAX,AVERAGE in cd/m2, as 1000,400");
  return level;
}

ColourCodes ParseColour(const std::string& text) {
  for (const ColourEntry& named : kColours) {
    if (text == named.name) return named.codes;
  }
  ColourCodes codes;
  TextCursor in(text);
  if (!in.Take(codes.primaries) || !in.Literal(":") || !in.Take(codes.transfer) || !in.Literal(":") ||
      !in.Take(codes.matrix) || !in.done()) {
    std::string names;
    for (const ColourEntry& named : kColours) names += std::string(named.name) + ", ";
    throw Error("--colour " + text, "is no colour",
                "write " + names + "or PRIMARIES:TRANSFER:MATRIX in numbers; --colour list shows them");
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
