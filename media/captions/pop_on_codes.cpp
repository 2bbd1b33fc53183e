// Puts rows into pairs: preamble address codes, tabs, mid-row codes, characters.

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>

#include "captions/line21_characters.h"
#include "captions/line21_codes.h"
#include "captions/pop_on.h"

namespace qlnmedia::captions {

namespace {

constexpr uint8_t kTabOffset = 0x17;
constexpr uint8_t kFirstTab = 0x20;  // and the number of columns
constexpr int kIndent = 4;           // columns from one preamble address code to the next

constexpr uint8_t kWhiteIndent = 0x50;
constexpr uint8_t kNoIndent = 0x40;  // and a colour or italics
constexpr uint8_t kSecondRow = 0x20;
constexpr uint8_t kMidRow = 0x11;
constexpr uint8_t kFirstMidRow = 0x20;
constexpr int kMostTab = 3;  // columns

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

// What a preamble address code or a mid-row code says of a look.
uint8_t Attributes(const Look& look, bool italics) {
  const int kind = italics ? kItalics : static_cast<int>(look.colour);
  return static_cast<uint8_t>(2 * kind + (look.underline ? 1 : 0));
}

// The mid-row codes that make one look another; each takes a column. Italics keep the colour, and a colour
// ends italics.
std::vector<uint8_t> CodesBetween(const Look& from, const Look& to) {
  std::vector<uint8_t> codes;
  if (!to.italic || to.colour != from.colour) codes.push_back(Attributes(to, false));
  if (to.italic) codes.push_back(Attributes(to, true));
  for (uint8_t& code : codes) code = static_cast<uint8_t>(code + kFirstMidRow);
  return codes;
}

// The mid-row codes in the places of spaces.
std::vector<uint8_t> CodesWithin(const CaptionRow& row, const std::vector<Look>& looks) {
  std::vector<uint8_t> codes(row.text.size(), 0);
  Look now = looks.empty() ? Look() : looks.front();
  for (size_t i = 1; i < row.text.size(); ++i) {
    if (row.text[i] == U' ' || looks[i] == now) continue;
    const std::vector<uint8_t> needed = CodesBetween(now, looks[i]);
    const size_t spaces = std::min(i, needed.size());
    if (spaces < needed.size() || row.text.substr(i - spaces, spaces) != std::u32string(spaces, U' '))
      continue;
    std::copy(needed.begin(), needed.end(), codes.begin() + static_cast<std::ptrdiff_t>(i - spaces));
    now = looks[i];
  }
  return codes;
}

void Tab(Coder& coder, int columns) {
  if (columns != 0) coder.Control(kTabOffset, static_cast<uint8_t>(kFirstTab + columns));
}

// To the row and its column, in the look of its first character.
void Begin(Coder& coder, const CaptionRow& row, const Look& look) {
  const uint8_t first = kRowCode[row.row];
  const int high = kRowIsSecond[row.row] ? kSecondRow : 0;
  const bool coloured = look.colour != Line21Colour::kWhite;
  const auto indent = [&](int column) {
    const int underline = look.underline && !coloured && !look.italic ? 1 : 0;
    coder.Control(first, static_cast<uint8_t>((kWhiteIndent | high) + 2 * (column / kIndent) + underline));
    Tab(coder, column % kIndent);
  };
  if (!coloured && !look.italic) return indent(row.column);
  // A mid-row code of its own for each, where the preamble has no word for both.
  const int within = coloured && look.italic ? 1 : 0;
  if (row.column - within <= kMostTab && row.column >= within) {
    coder.Control(first,
                  static_cast<uint8_t>((kNoIndent | high) + Attributes(look, look.italic && !coloured)));
    Tab(coder, row.column - within);
    if (within != 0) coder.Control(kMidRow, static_cast<uint8_t>(kFirstMidRow + Attributes(look, true)));
    return;
  }
  const std::vector<uint8_t> codes = CodesBetween(Look(), look);
  indent(std::max(row.column - static_cast<int>(codes.size()), 0));
  for (const uint8_t code : codes) coder.Control(kMidRow, code);
}

}  // namespace

size_t CodesNeeded(const Look& from, const Look& to) {
  return from == to ? 0 : CodesBetween(from, to).size();
}

std::vector<CodeUnit> LoadCodes(const std::vector<CaptionRow>& rows) {
  Coder coder;
  coder.Control(kControl, kEraseNotDisplayed);
  coder.Control(kControl, kResumeLoading);
  for (const CaptionRow& row : rows) {
    std::vector<Look> looks = row.looks;
    looks.resize(row.text.size());
    Begin(coder, row, looks.empty() ? Look() : looks.front());
    const std::vector<uint8_t> codes = CodesWithin(row, looks);
    for (size_t i = 0; i < row.text.size(); ++i) {
      if (codes[i] != 0)
        coder.Control(kMidRow, codes[i]);
      else
        coder.Character(row.text[i]);
    }
  }
  return coder.Take();
}

}  // namespace qlnmedia::captions
