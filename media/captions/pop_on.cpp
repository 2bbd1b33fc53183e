// Breaks and places the text of cues.

#include "captions/pop_on.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "base/text.h"
#include "captions/line21_characters.h"
#include "captions/line21_look.h"

namespace qlnmedia::captions {

namespace {

using Row = StyledText;

std::string Quoted(std::u32string_view text) { return "\"" + Printable(ToUtf8(text)) + "\""; }

// Letters and digits, of any alphabet.
bool IsOfWord(char32_t c) {
  return (c >= U'0' && c <= U'9') || (c >= U'A' && c <= U'Z') || (c >= U'a' && c <= U'z') || c >= 0xC0;
}

// Calls `take` with begin and end of each word.
template <class Take>
void ForWords(const Row& row, const Take& take) {
  for (size_t i = 0; i < row.size();) {
    if (row.text()[i] == U' ') {
      ++i;
      continue;
    }
    const size_t end = std::min(row.text().find(U' ', i), row.size());
    take(i, end);
    i = end;
  }
}

// Gives each word the look of its first letter; false where others had another.
bool EvenOut(Row& row) {
  bool same = true;
  ForWords(row, [&](size_t begin, size_t end) {
    size_t first = begin;
    while (first < end && !IsOfWord(row.text()[first])) ++first;
    const Look look = row.looks()[first < end ? first : begin];
    for (size_t i = begin; i < end; ++i) {
      same = same && (row.looks()[i] == look || !IsOfWord(row.text()[i]));
      row.SetLook(i, look);
    }
  });
  return same;
}

// Puts a second space in front of words whose look takes two codes; false where that would be too long for a
// row, and their italics went instead.
bool MakeRoom(Row& row) {
  bool all = true;
  Look now = row.empty() ? Look() : row.looks().front();
  for (size_t i = 1; i < row.size(); ++i) {
    if (row.text()[i] == U' ') continue;
    Look look = row.looks()[i];
    if (CodesNeeded(now, look) == 2 && (i < 2 || row.text()[i - 2] != U' ')) {
      if (row.size() < kLine21Columns) {
        row.Insert(i++, U' ', look);
      } else {
        look.italic = false;
        all = false;
        for (size_t k = i; k < row.size() && row.text()[k] != U' '; ++k) row.SetLook(k, look);
      }
    }
    now = look;
  }
  return all;
}

bool IsColouredItalic(const Look& look) { return look.italic && look.colour != Line21Colour::kWhite; }

// Breaks a line into rows at its spaces, a word that is longer than a row where the row ends.
std::vector<Row> Broken(Row text) {
  std::vector<Row> rows;
  while (text.size() > kLine21Columns) {
    const size_t space = text.text().rfind(U' ', kLine21Columns);
    const size_t end = space == std::u32string::npos || space == 0 ? size_t{kLine21Columns} : space;
    rows.push_back(text.Part(0, end).Trimmed());
    text = text.Part(end).Trimmed();
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
    const Row styled(line.text, line.looks);
    for (size_t i = 0; i < styled.size(); ++i) {
      const char32_t character = styled.text()[i];
      const Look& look = styled.looks()[i];
      if (Line21CodeOf(character)) {
        spelt.Add(character, look);
        continue;
      }
      const std::u32string instead = options_.transliterate ? Transliterated(character) : std::u32string();
      // What has no shape of its own is no loss.
      const bool unseen = Transliterated(character).empty() || character == U'\t';
      if (!unseen) Tell(line.number, Missing(character, instead), options_.transliterate);
      for (const char32_t other : unseen ? Transliterated(character) : instead) spelt.Add(other, look);
    }
    return spelt.Trimmed();
  }
  static std::string Missing(char32_t character, const std::u32string& instead) {
    const std::string text = fmt::format("U+{:04X} {} is no character of line 21", unsigned{character},
                                         Quoted(std::u32string(1, character)));
    return instead.empty() ? text : text + ", " + Quoted(instead) + " stands for it";
  }

  std::vector<Row> RowsOf(const Cue& cue) {
    std::vector<Row> rows;
    for (const std::string& loss : cue.losses) Tell(cue.line, loss, true);
    for (const CueLine& line : cue.lines) {
      for (const std::string& loss : line.losses) Tell(line.number, loss, true);
      Row text = Spelt(line);
      if (text.empty()) continue;
      if (!EvenOut(text)) Tell(line.number, "the look of parts of words is left out", true);
      if (text.size() > kLine21Columns) {
        Tell(line.number,
             fmt::format("{} has {} characters, and a row {}", Quoted(text.text()), text.size(),
                         kLine21Columns),
             options_.fit);
        for (Row& row : Broken(std::move(text))) rows.push_back(std::move(row));
      } else {
        rows.push_back(std::move(text));
      }
      bool all = true;
      for (Row& row : rows) all = MakeRoom(row) && all;
      if (!all)
        Tell(line.number, "coloured italics are upright, since the row has no room for their codes", true);
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
        rows.push_back(Free(rows, Placed(*group[i], line, row++)));
        text += (text.empty() ? "" : " ") + ToUtf8(line.text());
      }
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [](const CaptionRow& a, const CaptionRow& b) { return a.row < b.row; });
    captions_.push_back({group[0]->line, std::move(text), begin, end, LoadCodes(rows)});
  }

  CaptionRow Placed(const Cue& cue, Row line, int row) {
    const auto size = static_cast<int>(line.size());
    int column = Column(cue, size);
    // Their codes take a column in front of them.
    if (column == 0 && IsColouredItalic(line.looks().front())) {
      if (size < kLine21Columns) {
        column = 1;
      } else {
        Tell(cue.line, "coloured italics are upright, since the row has no room for their codes", true);
        const size_t end = std::min(line.text().find(U' '), line.size());
        for (size_t i = 0; i < end; ++i)
          line.SetLook(i, {line.looks()[i].colour, false, line.looks()[i].underline});
      }
    }
    return {row, column, line.text(), line.looks()};
  }

  static int FirstRow(const Cue& cue, int count) {
    const int last = kLine21Rows - count + 1;
    if (!cue.top) return last;
    const double row = cue.topIsRow ? (*cue.top < 0 ? kLine21Rows + 1 + *cue.top : *cue.top + 1)
                                    : 1 + std::round((*cue.top - kSafeBegin) * kLine21Rows / kSafeSize);
    const int above = cue.anchor == CueAnchor::kEnd      ? count
                      : cue.anchor == CueAnchor::kCentre ? count / 2
                                                         : 0;
    return std::clamp(static_cast<int>(row) - above, 1, last);
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
