// Reads .srt and .vtt text, line by line.

#include "captions/cue_file.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include "captions/cue_markup.h"
#include "captions/line21_characters.h"
#include "captions/text_lines.h"
#include "captions/what_it_is.h"

namespace qlnmedia::captions {

namespace {

constexpr std::string_view kArrow = "-->";
constexpr std::string_view kVttHeading = "WEBVTT";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr int64_t kDay = int64_t{24} * 3600 * 1000;

// Takes digits off the front; nothing for none or more than `most`.
std::optional<int64_t> TakeNumber(std::string_view* text, size_t most) {
  size_t digits = 0;
  while (digits < text->size() && (*text)[digits] >= '0' && (*text)[digits] <= '9') ++digits;
  if (digits == 0 || digits > most) return {};
  int64_t number = 0;
  std::from_chars(text->data(), text->data() + digits, number);
  text->remove_prefix(digits);
  return number;
}

bool TakeCharacter(std::string_view* text, char a, char b) {
  if (text->empty() || (text->front() != a && text->front() != b)) return false;
  text->remove_prefix(1);
  return true;
}

// Takes "HH:MM:SS,mmm" off the front, of .vtt also "MM:SS.mmm", in milliseconds.
std::optional<int64_t> TakeTime(std::string_view* text, bool vtt) {
  std::array<int64_t, 3> parts{};
  size_t count = 0;
  do {
    const std::optional<int64_t> part = TakeNumber(text, 2);
    if (!part || count == parts.size()) return {};
    parts[count++] = *part;
  } while (TakeCharacter(text, ':', ':'));
  if (count < (vtt ? 2 : 3)) return {};
  if (count == 2) parts = {0, parts[0], parts[1]};
  if (!TakeCharacter(text, '.', vtt ? '.' : ',')) return {};
  const size_t before = text->size();
  const std::optional<int64_t> ms = TakeNumber(text, 3);
  if (!ms || before - text->size() != 3 || parts[1] > 59 || parts[2] > 59) return {};
  return ((parts[0] * 60 + parts[1]) * 60 + parts[2]) * 1000 + *ms;
}

std::string_view TakeWord(std::string_view* text) {
  *text = TextLines::Trimmed(*text);
  const size_t end = std::min(text->find_first_of(" \t"), text->size());
  const std::string_view word = text->substr(0, end);
  text->remove_prefix(end);
  return word;
}

// A number with or without its percent sign.
std::optional<double> PlaceNumber(std::string_view text, bool* percent) {
  *percent = !text.empty() && text.back() == '%';
  if (*percent) text.remove_suffix(1);
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) return {};
  return value;
}

// The settings behind the times of a .vtt cue; those that are not known, or say nothing, are passed over, as
// WebVTT has it.
void TakeSettings(std::string_view text, Cue* cue) {
  while (!TextLines::Trimmed(text).empty()) {
    const std::string_view word = TakeWord(&text);
    const size_t colon = word.find(':');
    if (colon == std::string_view::npos) continue;
    const std::string_view name = word.substr(0, colon);
    const std::string_view value = word.substr(colon + 1);
    bool percent = false;
    if (name == "line") {
      const std::optional<double> top = PlaceNumber(value.substr(0, value.find(',')), &percent);
      if (!top || (percent && (*top < 0 || *top > 100)) || std::abs(*top) > 1000) continue;
      cue->top = top;
      cue->topIsRow = !percent;
      const std::string_view anchor = value.substr(std::min(value.find(','), value.size()));
      cue->anchor = anchor == ",end"      ? CueAnchor::kEnd
                    : anchor == ",center" ? CueAnchor::kCentre
                                          : CueAnchor::kStart;
    } else if (name == "position") {
      const std::optional<double> left = PlaceNumber(value.substr(0, value.find(',')), &percent);
      if (left && percent && *left >= 0 && *left <= 100) cue->left = left;
    } else if (name == "align") {
      if (value == "start" || value == "left") cue->align = CueAlign::kLeft;
      if (value == "end" || value == "right") cue->align = CueAlign::kRight;
    } else if (name == "vertical") {
      cue->losses.emplace_back("vertical text stands in rows");
    } else if (name == "region") {
      cue->losses.emplace_back("the region is left out");
    }
  }
}

// The place that .srt asks for by the digits of a keypad.
void TakePlace(int digit, Cue* cue) {
  if (digit == 0) return;
  const int row = (digit - 1) / 3;
  const int column = (digit - 1) % 3;
  if (row == 2) {
    cue->top = 0;
    cue->topIsRow = true;
  } else if (row == 1) {
    cue->top = 50;
    cue->anchor = CueAnchor::kCentre;
  }
  cue->align = column == 0 ? CueAlign::kLeft : column == 2 ? CueAlign::kRight : CueAlign::kCentre;
}

class CueReader {
 public:
  CueReader(std::string_view text, std::string* reason)
      : vtt_(IsWebVtt(text)), all_(text), lines_(text), reason_(reason) {}

  std::optional<std::vector<Cue>> Read() {
    if (vtt_) SkipHeader();
    while (NextLine()) {
      if (line_.empty()) continue;
      if (!TakeBlock()) return {};
    }
    if (cues_.empty() && !vtt_) {
      *reason_ = "holds no cues" + WhatItSeems(all_);
      return {};
    }
    return std::move(cues_);
  }

 private:
  bool NextLine() { return lines_.Next(&line_); }
  bool Refuse(const std::string& what) {
    *reason_ = lines_.Place(what);
    return false;
  }
  void SkipBlock() {
    while (NextLine() && !line_.empty()) {
    }
  }
  bool hasArrow() const { return line_.find(kArrow) != std::string_view::npos; }
  // Up to a blank line, or to the first cue, which may stand right behind.
  void SkipHeader() {
    for (TextLines before = lines_; NextLine() && !line_.empty(); before = lines_) {
      if (!hasArrow()) continue;
      lines_ = before;
      return;
    }
  }
  // Goes on to the next line of a cue's text. The times of the next .vtt cue end it, with or without a blank
  // line; a blank line does not end that of .srt where neither a number nor times follow.
  bool NextTextLine() {
    TextLines before = lines_;
    if (!NextLine()) return false;
    if (vtt_ && hasArrow()) {
      lines_ = before;
      return false;
    }
    if (!line_.empty() || vtt_) return !line_.empty();
    before = lines_;
    while (NextLine() && line_.empty()) {
    }
    std::string_view number = line_;
    if (!line_.empty() && !hasArrow() && !(TakeNumber(&number, 9) && number.empty())) return true;
    lines_ = before;
    return false;
  }

  bool TakeBlock() {
    const std::string_view word = line_.substr(0, line_.find_first_of(" \t"));
    if (vtt_ && (word == "NOTE" || word == "STYLE" || word == "REGION") && !hasArrow()) {
      SkipBlock();
      return true;
    }
    if (!hasArrow()) {
      std::string_view number = line_;
      if (!vtt_ && (!TakeNumber(&number, 9) || !number.empty()))
        return Refuse("neither the number nor the times of a cue" + (last_ < 0 ? WhatItSeems(all_) : ""));
      bool more = NextLine();
      while (more && line_.empty() && !vtt_) more = NextLine();
      if (!more || !hasArrow()) return Refuse("the times of a cue are missing");
    }
    Cue cue;
    if (!TakeTimes(&cue)) return false;
    CueMarkup markup(vtt_);
    while (NextTextLine()) {
      const std::optional<std::u32string> text = FromUtf8(line_);
      if (!text) return Refuse("no UTF-8; seems to be Windows-1252 or the like, and is to be saved as UTF-8");
      const StyledText styled = markup.Take(*text);
      if (styled.text().find_first_not_of(U" \t") == std::u32string::npos) continue;
      CueLine line{lines_.number(), styled.text()};
      const std::vector<Look>& looks = styled.looks();
      if (std::any_of(looks.begin(), looks.end(), [](const Look& look) { return look != Look(); }))
        line.looks = looks;
      line.losses = markup.TakeLosses();
      cue.lines.push_back(std::move(line));
    }
    if (!vtt_) TakePlace(markup.place(), &cue);
    Keep(std::move(cue));
    return true;
  }

  bool TakeTimes(Cue* cue) {
    cue->line = lines_.number();
    std::string_view rest = line_;
    const std::optional<int64_t> begin = TakeTime(&rest, vtt_);
    rest = TextLines::Trimmed(rest);
    const bool arrow = rest.substr(0, kArrow.size()) == kArrow;
    if (arrow) rest = TextLines::Trimmed(rest.substr(kArrow.size()));
    const std::optional<int64_t> end = arrow ? TakeTime(&rest, vtt_) : std::nullopt;
    if (!begin || !end || (!rest.empty() && rest.front() != ' ' && rest.front() != '\t'))
      return Refuse("no times of a cue");
    if (*end <= *begin) return Refuse("a cue that ends before it begins");
    if (*end >= kDay) return Refuse("a time of 24 hours or more");
    if (*begin < last_) return Refuse("the time goes back");
    last_ = cue->begin = *begin;
    cue->end = *end;
    if (vtt_) TakeSettings(rest, cue);
    return true;
  }

  void Keep(Cue cue) {
    if (cue.lines.empty()) return;
    if (!cues_.empty() && cues_.back().begin == cue.begin && cues_.back().end == cue.end && !cue.top &&
        !cues_.back().top) {
      for (CueLine& line : cue.lines) cues_.back().lines.push_back(std::move(line));
      return;
    }
    cues_.push_back(std::move(cue));
  }

  bool vtt_;
  std::string_view all_;
  TextLines lines_;
  std::string* reason_;
  std::string_view line_;
  std::vector<Cue> cues_;
  int64_t last_ = -1;  // when the last cue begins
};

}  // namespace

bool IsWebVtt(std::string_view text) {
  if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark) text.remove_prefix(kByteOrderMark.size());
  if (text.substr(0, kVttHeading.size()) != kVttHeading) return false;
  text.remove_prefix(kVttHeading.size());
  return text.empty() || std::string_view(" \t\r\n").find(text.front()) != std::string_view::npos;
}

std::optional<std::vector<Cue>> ReadCues(std::string_view text, std::string* reason) {
  return CueReader(text, reason).Read();
}

}  // namespace qlnmedia::captions
