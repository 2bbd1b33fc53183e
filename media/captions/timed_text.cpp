// Writes WebVTT (W3C) and TTML (W3C TTML1, IMSC 1.1 text profile).

#include "captions/timed_text.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <utility>

#include "captions/line21_characters.h"
#include "captions/line21_look.h"

namespace qlnmedia::captions {

namespace {

constexpr double kRowHeight = kSafeSize / kLine21Rows;
constexpr double kColumnWidth = kSafeSize / kLine21Columns;

double TopOf(int row) { return kSafeBegin + (row - 1) * kRowHeight; }
double LeftOf(int column) { return kSafeBegin + column * kColumnWidth; }

std::string TimeOf(double seconds) {
  // By way of microseconds, so that halves of a millisecond are not lost to binary fractions.
  const int64_t ms = (std::llround(seconds * 1e6) + 500) / 1000;
  return fmt::format("{:02}:{:02}:{:02}.{:03}", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60, ms % 1000);
}

// Named colours of CSS and TTML; both call the full green lime.
constexpr const char* kCssNames[] = {"white", "lime", "blue", "cyan", "red", "yellow", "magenta"};
const char* CssNameOf(Line21Colour colour) { return kCssNames[static_cast<size_t>(colour)]; }

// Text that may stand in XML and in WebVTT; what no file can hold is replaced.
std::string Escaped(const std::string& text) {
  const std::optional<std::u32string> characters = FromUtf8(text);
  if (!characters) return "\xEF\xBF\xBD";
  std::string escaped;
  for (const char32_t character : *characters) {
    if (character == U'&')
      escaped += "&amp;";
    else if (character == U'<')
      escaped += "&lt;";
    else if (character == U'>')
      escaped += "&gt;";
    else if (character < 0x20 || character == 0xFFFE || character == 0xFFFF)
      escaped += "\xEF\xBF\xBD";
    else
      AppendUtf8(character, &escaped);
  }
  return escaped;
}

// Rows that follow each other and begin in one column.
using Block = std::vector<const StyledRow*>;

std::vector<Block> BlocksOf(const StyledCaption& caption) {
  std::vector<Block> blocks;
  for (const StyledRow& row : caption.rows) {
    const StyledRow* const before = blocks.empty() ? nullptr : blocks.back().back();
    const bool goesOn =
        before != nullptr && before->column == row.column && (row.row == 0 || before->row + 1 == row.row);
    if (goesOn)
      blocks.back().push_back(&row);
    else
      blocks.push_back({&row});
  }
  return blocks;
}

std::string VttOf(const StyledRow& row) {
  std::string text;
  for (const StyledRun& run : row.runs) {
    std::string piece = Escaped(run.text);
    if (run.look.underline) piece = "<u>" + piece + "</u>";
    if (run.look.italic) piece = "<i>" + piece + "</i>";
    if (run.look.colour != Line21Colour::kWhite)
      piece = fmt::format("<c.{}>{}</c>", CssNameOf(run.look.colour), piece);
    text += piece;
  }
  return text;
}

std::string TtmlOf(const StyledRow& row) {
  std::string text;
  for (const StyledRun& run : row.runs) {
    std::string looks;
    if (run.look.colour != Line21Colour::kWhite)
      looks += fmt::format(" tts:color=\"{}\"", CssNameOf(run.look.colour));
    if (run.look.italic) looks += " tts:fontStyle=\"italic\"";
    if (run.look.underline) looks += " tts:textDecoration=\"underline\"";
    const std::string piece = Escaped(run.text);
    text += looks.empty() ? piece : fmt::format("<span{}>{}</span>", looks, piece);
  }
  return text;
}

// The regions of a file by their places.
class Regions {
 public:
  const std::string& Of(const Block& block) {
    const int row = block.front()->row;
    const int column = row == 0 ? 0 : block.front()->column;
    const int rows = row == 0 ? 0 : static_cast<int>(block.size());
    const auto [place, isNew] = names_.try_emplace({row, column, rows});
    if (!isNew) return place->second;
    if (row == 0) {
      place->second = "bottom";
      text_ += fmt::format(
          "      <region xml:id=\"bottom\" tts:origin=\"{0}% {0}%\" tts:extent=\"{1}% {1}%\" "
          "tts:displayAlign=\"after\" tts:textAlign=\"center\"/>\n",
          kSafeBegin, kSafeSize);
      return place->second;
    }
    place->second = fmt::format("row{}column{}x{}", row, column + 1, rows);
    text_ += fmt::format(
        "      <region xml:id=\"{}\" tts:origin=\"{:.2f}% {:.2f}%\" tts:extent=\"{:.2f}% {:.2f}%\" "
        "tts:displayAlign=\"before\" tts:textAlign=\"start\"/>\n",
        place->second, LeftOf(column), TopOf(row), kSafeBegin + kSafeSize - LeftOf(column),
        rows * kRowHeight);
    return place->second;
  }
  const std::string& text() const { return text_; }

 private:
  std::map<std::array<int, 3>, std::string> names_;
  std::string text_;
};

}  // namespace

std::string WriteVtt(const std::vector<StyledCaption>& captions) {
  std::string text = "WEBVTT\n";
  for (const StyledCaption& caption : captions) {
    for (const Block& block : BlocksOf(caption)) {
      text += fmt::format("\n{} --> {}", TimeOf(caption.begin), TimeOf(caption.end));
      const StyledRow& first = *block.front();
      if (first.row != 0)
        text += fmt::format(" line:{:.2f}% position:{:.2f}% size:{:.2f}% align:start", TopOf(first.row),
                            LeftOf(first.column), kSafeBegin + kSafeSize - LeftOf(first.column));
      text += '\n';
      for (const StyledRow* row : block) text += VttOf(*row) + '\n';
    }
  }
  return text;
}

std::string WriteTtml(const std::vector<StyledCaption>& captions) {
  Regions regions;
  std::string body;
  for (const StyledCaption& caption : captions) {
    for (const Block& block : BlocksOf(caption)) {
      std::string rows;
      for (const StyledRow* row : block) rows += (rows.empty() ? "" : "<br/>") + TtmlOf(*row);
      body += fmt::format("      <p begin=\"{}\" end=\"{}\" region=\"{}\">{}</p>\n", TimeOf(caption.begin),
                          TimeOf(caption.end), regions.Of(block), rows);
    }
  }
  return fmt::format(
      R"(<?xml version="1.0" encoding="UTF-8"?>
<tt xmlns="http://www.w3.org/ns/ttml" xmlns:ttp="http://www.w3.org/ns/ttml#parameter"
    xmlns:tts="http://www.w3.org/ns/ttml#styling" ttp:profile="http://www.w3.org/ns/ttml/profile/imsc1/text"
    ttp:cellResolution="{} {}" xml:space="preserve" xml:lang="">
  <head>
    <styling>
      <style xml:id="caption" tts:color="white" tts:backgroundColor="black" tts:fontFamily="monospaceSansSerif"
             tts:fontSize="80%" tts:lineHeight="100%"/>
    </styling>
    <layout>
{}    </layout>
  </head>
  <body style="caption">
    <div>
{}    </div>
  </body>
</tt>
)",
      kLine21Columns, kLine21Rows, regions.text(), body);
}

}  // namespace qlnmedia::captions
