// Reading and writing .scc text.

#include "captions/scc_file.h"

#include <algorithm>
#include <cstdio>

#include "captions/text_lines.h"

namespace qlnmedia::captions {
namespace {

constexpr std::string_view kHeading = "Scenarist_SCC V1.0";
constexpr int kNominal = 30;
constexpr int64_t kFramesOfADay = int64_t{kNominal} * 24 * 3600;

// Groups of four digits, apart by white space.
bool ParsePairs(std::string_view text, std::vector<Pair>* pairs) {
  for (text = TextLines::Trimmed(text); !text.empty(); text = TextLines::Trimmed(text)) {
    if (text.size() < 4 || (text.size() > 4 && text[4] != ' ' && text[4] != '\t')) return false;
    int value = 0;
    for (const char c : text.substr(0, 4)) {
      const int digit = HexDigit(c);
      if (digit < 0) return false;
      value = value << 4 | digit;
    }
    pairs->push_back(static_cast<Pair>(value));
    text.remove_prefix(4);
  }
  return true;
}

}  // namespace

std::optional<SccFile> ReadScc(std::string_view text, std::string* reason) {
  TextLines lines(text);
  std::string_view line;
  const auto refuse = [&](const char* what) {
    *reason = lines.Place(what);
    return std::nullopt;
  };
  while (lines.Next(&line) && TextLines::SaysNothing(line)) {
  }
  if (line != kHeading) return refuse("not the heading of a Scenarist file");
  SccFile file;
  int64_t last = -1;
  while (lines.Next(&line)) {
    if (TextLines::SaysNothing(line)) continue;
    const bool goesOn = !file.lines.empty() && line.find(':') == std::string_view::npos;
    if (goesOn && ParsePairs(line, &file.lines.back().pairs)) continue;
    const size_t end = line.find_first_of(" \t");
    bool dropFrame = false;
    const std::optional<Timecode> at = ParseTimecode(line.substr(0, end), &dropFrame);
    if (!at) return refuse("no timecode");
    if (file.lines.empty()) file.dropFrame = dropFrame;
    if (dropFrame != file.dropFrame) return refuse("drop-frame and other timecode in one file");
    const std::optional<int64_t> frame = PictureOf(*at, kNominal, dropFrame);
    if (!frame) return refuse("a timecode that does not exist");
    if (*frame < last) return refuse("the time goes back");
    last = *frame;
    SccLine entry{*at, {}};
    if (end != std::string_view::npos && !ParsePairs(line.substr(end), &entry.pairs)) {
      return refuse("not groups of four hexadecimal digits");
    }
    file.lines.push_back(std::move(entry));
  }
  return file;
}

std::string WriteScc(const SccFile& file) {
  std::string text(kHeading);
  text += '\n';
  for (const SccLine& line : file.lines) {
    text += "\n" + FormatTimecode(line.at, file.dropFrame);
    char separator = '\t';
    for (const Pair pair : line.pairs) {
      char digits[8];
      std::snprintf(digits, sizeof digits, "%c%04x", separator, unsigned{pair});
      text += digits;
      separator = ' ';
    }
    text += "\n";
  }
  return text;
}

int64_t FirstFrame(const SccFile& file) {
  if (file.lines.empty()) return 0;
  return PictureOf(file.lines.front().at, kNominal, file.dropFrame).value_or(0);
}

std::vector<Pair> PairsByFrame(const SccFile& file) {
  std::vector<Pair> pairs;
  const int64_t first = FirstFrame(file);
  for (const SccLine& line : file.lines) {
    const int64_t place = PictureOf(line.at, kNominal, file.dropFrame).value_or(0) - first;
    const auto size = static_cast<int64_t>(pairs.size());
    if (std::max(place, size) + static_cast<int64_t>(line.pairs.size()) > kFramesOfADay) return {};
    if (place > size) pairs.resize(static_cast<size_t>(place), kNullPair);
    pairs.insert(pairs.end(), line.pairs.begin(), line.pairs.end());
  }
  return pairs;
}

}  // namespace qlnmedia::captions
