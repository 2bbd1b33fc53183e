// Breaks, places and codes the text of cues.

#include "captions/pop_on.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "base/text.h"
#include "captions/line21_characters.h"

namespace qlnmedia::captions {

namespace {

// Control codes of channel 1.
constexpr uint8_t kControl = 0x14;
constexpr uint8_t kResumeLoading = 0x20;
constexpr uint8_t kEraseNotDisplayed = 0x2E;
constexpr uint8_t kTabOffset = 0x17;
constexpr uint8_t kFirstTab = 0x20;  // and the number of columns
constexpr int kIndent = 4;           // columns from one preamble address code to the next

// First byte of the preamble address code of a row, and whether the second is the higher of its two.
constexpr uint8_t kRowCode[kLine21Rows + 1] = {0,    0x11, 0x11, 0x12, 0x12, 0x15, 0x15, 0x16,
                                               0x16, 0x17, 0x17, 0x10, 0x13, 0x13, 0x14, 0x14};
constexpr bool kRowIsSecond[kLine21Rows + 1] = {false, false, true, false, true,  false, true,  false,
                                                true,  false, true, false, false, true,  false, true};
constexpr uint8_t kWhiteIndent = 0x50;
constexpr uint8_t kSecondRow = 0x20;

// The safe area of captions: the middle eight tenths of the picture.
constexpr double kSafeBegin = 10;
constexpr double kSafeSize = 80;

using Row = std::u32string;

class Coder {
 public:
  void Control(uint8_t first, uint8_t second) {
    Flush();
    const Pair pair = MakePair(first, second);
    // A code that is sent again on purpose would be taken for the repetition of the one before it.
    if (!units_.empty() && units_.back() == CodeUnit{pair, true}) units_.push_back({kNullPair, false});
    units_.push_back({pair, true});
  }
  void Character(char32_t character) {
    const std::optional<Line21Code> code = Line21CodeOf(character);
    if (!code) return;
    if (code->set == 0) return Basic(code->code);
    if (code->instead != 0) Basic(code->instead);
    Control(code->set, code->code);
  }
  std::vector<CodeUnit> Take() {
    Flush();
    return std::move(units_);
  }

 private:
  void Basic(uint8_t code) {
    if (pending_ == 0) {
      pending_ = code;
      return;
    }
    units_.push_back({MakePair(pending_, code), false});
    pending_ = 0;
  }
  void Flush() {
    if (pending_ != 0) units_.push_back({MakePair(pending_, 0), false});
    pending_ = 0;
  }

  std::vector<CodeUnit> units_;
  uint8_t pending_ = 0;
};

Row Trimmed(const Row& text) {
  const size_t begin = text.find_first_not_of(U' ');
  if (begin == Row::npos) return {};
  return text.substr(begin, text.find_last_not_of(U' ') + 1 - begin);
}

std::string Quoted(const Row& text) { return "\"" + Printable(ToUtf8(text)) + "\""; }

// Breaks a line into rows at its spaces, a word that is longer than a row where the row ends.
std::vector<Row> Broken(Row text) {
  std::vector<Row> rows;
  while (text.size() > kLine21Columns) {
    const size_t space = text.rfind(U' ', kLine21Columns);
    const size_t end = space == Row::npos || space == 0 ? size_t{kLine21Columns} : space;
    rows.push_back(Trimmed(text.substr(0, end)));
    text = Trimmed(text.substr(end));
  }
  if (!text.empty()) rows.push_back(std::move(text));
  return rows;
}

class Layout {
 public:
  Layout(const MakingOptions& options, std::vector<CueProblem>* problems)
      : options_(options), problems_(problems) {}

  // Cues of one begin and one end.
  void Take(const std::vector<const Cue*>& group) {
    std::vector<std::vector<Row>> blocks;
    size_t count = 0;
    for (const Cue* cue : group) {
      blocks.push_back(RowsOf(*cue));
      count += blocks.back().size();
    }
    if (count == 0) return;
    if (count <= kMostCaptionRows) return Keep(group, blocks, group[0]->begin, group[0]->end);
    Tell(group[0]->line, fmt::format("a caption of {} rows, and line 21 shows {}", count, kMostCaptionRows),
         options_.fit);
    Split(group, blocks, count);
  }
  std::vector<LoadedCaption> Result() { return std::move(captions_); }

 private:
  void Tell(int line, std::string what, bool solved) {
    problems_->push_back({line, std::move(what), solved});
  }

  // A line in characters that line 21 has.
  Row Spelt(const CueLine& line) {
    Row spelt;
    for (const char32_t character : line.text) {
      if (Line21CodeOf(character)) {
        spelt += character;
        continue;
      }
      const Row instead = options_.transliterate ? Transliterated(character) : Row();
      // What has no shape of its own is no loss.
      const bool unseen = Transliterated(character).empty() || character == U'\t';
      if (!unseen) Tell(line.number, Missing(character, instead), options_.transliterate);
      spelt += unseen ? Transliterated(character) : instead;
    }
    return Trimmed(spelt);
  }
  static std::string Missing(char32_t character, const Row& instead) {
    const std::string text =
        fmt::format("U+{:04X} {} is no character of line 21", unsigned{character}, Quoted({character}));
    return instead.empty() ? text : text + ", " + Quoted(instead) + " stands for it";
  }

  std::vector<Row> RowsOf(const Cue& cue) {
    std::vector<Row> rows;
    for (const CueLine& line : cue.lines) {
      Row text = Spelt(line);
      if (text.empty()) continue;
      if (text.size() > kLine21Columns) {
        Tell(line.number,
             fmt::format("{} has {} characters, and a row {}", Quoted(text), text.size(), kLine21Columns),
             options_.fit);
        for (Row& row : Broken(std::move(text))) rows.push_back(std::move(row));
      } else {
        rows.push_back(std::move(text));
      }
    }
    return rows;
  }

  // Captions of four rows after each other, which share the time by their rows.
  void Split(const std::vector<const Cue*>& group, const std::vector<std::vector<Row>>& blocks,
             size_t count) {
    const int64_t begin = group[0]->begin;
    const int64_t length = group[0]->end - begin;
    const auto total = static_cast<int64_t>(count);
    int64_t done = 0;
    for (size_t i = 0; i < blocks.size(); ++i) {
      for (size_t at = 0; at < blocks[i].size(); at += kMostCaptionRows) {
        const size_t size = std::min(size_t{kMostCaptionRows}, blocks[i].size() - at);
        const auto first = blocks[i].begin() + static_cast<std::ptrdiff_t>(at);
        const int64_t from = begin + length * done / total;
        done += static_cast<int64_t>(size);
        Keep({group[i]}, {{first, first + static_cast<std::ptrdiff_t>(size)}}, from,
             begin + length * done / total);
      }
    }
  }

  void Keep(const std::vector<const Cue*>& group, const std::vector<std::vector<Row>>& blocks, int64_t begin,
            int64_t end) {
    std::vector<CaptionRow> rows;
    std::string text;
    for (size_t i = 0; i < blocks.size(); ++i) {
      int row = FirstRow(*group[i], static_cast<int>(blocks[i].size()));
      for (const Row& line : blocks[i]) {
        rows.push_back(Free(rows, {row++, Column(*group[i], static_cast<int>(line.size())), line}));
        text += (text.empty() ? "" : " ") + ToUtf8(line);
      }
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [](const CaptionRow& a, const CaptionRow& b) { return a.row < b.row; });
    captions_.push_back({group[0]->line, std::move(text), begin, end, LoadCodes(rows)});
  }

  static int FirstRow(const Cue& cue, int count) {
    const int last = kLine21Rows - count + 1;
    if (!cue.top) return last;
    const double row = cue.topIsRow ? (*cue.top < 0 ? kLine21Rows + 1 + *cue.top : *cue.top + 1)
                                    : 1 + std::round((*cue.top - kSafeBegin) * kLine21Rows / kSafeSize);
    return std::clamp(static_cast<int>(row), 1, last);
  }

  static int Column(const Cue& cue, int size) {
    double left = (kLine21Columns - size) / 2;
    if (cue.left || cue.align != CueAlign::kCentre) {
      const double edge = cue.left ? *cue.left : cue.align == CueAlign::kLeft ? 0 : kSafeBegin + kSafeSize;
      left = std::round((edge - kSafeBegin) * kLine21Columns / kSafeSize);
      if (cue.align == CueAlign::kCentre) left -= size / 2;
      if (cue.align == CueAlign::kRight) left -= size;
    }
    return std::clamp(static_cast<int>(left), 0, kLine21Columns - size);
  }

  // The row nearest to the one that is asked for, downwards first, where none of `rows` is in its way.
  static CaptionRow Free(const std::vector<CaptionRow>& rows, CaptionRow wanted) {
    const auto fits = [&](int row) {
      return row >= 1 && row <= kLine21Rows &&
             std::none_of(rows.begin(), rows.end(), [row](const CaptionRow& r) { return r.row == row; });
    };
    for (int away = 0; away < kLine21Rows; ++away) {
      for (const int row : {wanted.row + away, wanted.row - away}) {
        if (!fits(row)) continue;
        wanted.row = row;
        return wanted;
      }
    }
    return wanted;
  }

  MakingOptions options_;
  std::vector<CueProblem>* problems_;
  std::vector<LoadedCaption> captions_;
};

}  // namespace

std::vector<CodeUnit> LoadCodes(const std::vector<CaptionRow>& rows) {
  Coder coder;
  coder.Control(kControl, kEraseNotDisplayed);
  coder.Control(kControl, kResumeLoading);
  for (const CaptionRow& row : rows) {
    const int indents = row.column / kIndent;
    const int high = kRowIsSecond[row.row] ? kSecondRow : 0;
    coder.Control(kRowCode[row.row], static_cast<uint8_t>((kWhiteIndent | high) + 2 * indents));
    const int tab = row.column % kIndent;
    if (tab != 0) coder.Control(kTabOffset, static_cast<uint8_t>(kFirstTab + tab));
    for (const char32_t character : row.text) coder.Character(character);
  }
  return coder.Take();
}

std::vector<LoadedCaption> LayOut(const std::vector<Cue>& cues, const MakingOptions& options,
                                  std::vector<CueProblem>* problems) {
  Layout layout(options, problems);
  for (size_t i = 0; i < cues.size();) {
    std::vector<const Cue*> group;
    for (const size_t first = i;
         i < cues.size() && cues[i].begin == cues[first].begin && cues[i].end == cues[first].end; ++i)
      group.push_back(&cues[i]);
    layout.Take(group);
  }
  return layout.Result();
}

}  // namespace qlnmedia::captions
