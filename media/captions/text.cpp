// Writes captions as text.

#include "captions/text.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdint>

#include "base/text.h"

namespace qlnmedia {

namespace {

std::string TimeOf(double seconds, char separator) {
  // By way of microseconds, so that halves of a millisecond are not lost to binary fractions.
  const int64_t ms = (std::llround(seconds * 1e6) + 500) / 1000;
  return fmt::format("{:02}:{:02}:{:02}{}{:03}", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60, separator,
                     ms % 1000);
}

}  // namespace

std::string NamesOf(const std::vector<CaptionService>& services) {
  std::string names;
  for (const CaptionService& service : services) names += (names.empty() ? "" : ", ") + service.name;
  return names;
}

std::string WriteSrt(const std::vector<CaptionLine>& lines) {
  std::string text;
  for (size_t i = 0; i < lines.size(); ++i)
    text += fmt::format("{}\n{} --> {}\n{}\n\n", i + 1, TimeOf(lines[i].begin, ','),
                        TimeOf(lines[i].end, ','), lines[i].text);
  return text;
}

std::string WriteCaptionText(const std::vector<CaptionLine>& lines) {
  std::string text;
  for (const CaptionLine& line : lines) {
    std::string oneLine = line.text;
    for (char& c : oneLine) {
      if (c == '\n') c = ' ';
    }
    text += fmt::format("{} - {}  {}\n", TimeOf(line.begin, '.'), TimeOf(line.end, '.'), Printable(oneLine));
  }
  return text;
}

}  // namespace qlnmedia
