// Lays the names out.

#include "value_lists.h"

#include <fmt/format.h>

#include <vector>

#include "output.h"
#include "qlnmedia/value_names.h"

namespace qlnmedia {

namespace {

std::string CodesText(const ColourCodes& codes) {
  return fmt::format("{}:{}:{}", codes.primaries, codes.transfer, codes.matrix);
}

std::string PointText(const MasteringDisplay::Point& point) {
  return fmt::format("{:g},{:g}", point.x / 50000.0, point.y / 50000.0);
}

std::string RangeText(const MasteringDisplay& display) {
  return fmt::format("{:g} to {:g} cd/m2", display.minLuminance / 10000.0, display.maxLuminance / 10000.0);
}

}  // namespace

std::string ColourTable() {
  const Style style = Style::ForStream(stdout);
  std::vector<std::vector<std::string>> rows;
  std::string text;
  for (const NamedColour& colour : NamedColours()) {
    rows.push_back({colour.name, CodesText(colour.codes), colour.primaries, colour.transfer, colour.matrix});
    text += fmt::format("{} {}\n  {}, {}, {}\n", style.Name(colour.name), CodesText(colour.codes),
                        colour.primaries, colour.transfer, colour.matrix);
  }
  constexpr size_t kTableWidth = 98;
  if (OutputWidth(stdout) < kTableWidth) return text;
  return FormatTable({"Name", "P:T:M", "Primaries", "Transfer", "Matrix"}, rows, {}, 0, style);
}

std::string DisplayTable() {
  const Style style = Style::ForStream(stdout);
  std::vector<std::vector<std::string>> rows;
  std::string written;
  for (const auto& [name, display, text] : NamedDisplays()) {
    rows.push_back({name, PointText(display.red), PointText(display.green), PointText(display.blue),
                    PointText(display.white), RangeText(display)});
    written += fmt::format("{} is {}\n", style.Name(name), text);
  }
  return FormatTable({"Name", "Red", "Green", "Blue", "White", "Luminance"}, rows, {}, 0, style) + written;
}

std::string ColourNames() {
  std::string text;
  for (const NamedColour& colour : NamedColours())
    text += fmt::format("{}{} ({})", text.empty() ? "" : ", ", colour.name, CodesText(colour.codes));
  return text;
}

std::string DisplayNames() {
  std::string text;
  for (const NamedDisplay& named : NamedDisplays())
    text += fmt::format("{}{} ({})", text.empty() ? "" : ", ", named.name, RangeText(named.display));
  return text;
}

}  // namespace qlnmedia
