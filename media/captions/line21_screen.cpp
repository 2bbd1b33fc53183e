// Carries out the codes of CTA-608, one pair after the other.

#include "captions/line21_screen.h"

#include <algorithm>
#include <utility>

#include "captions/line21.h"
#include "captions/line21_characters.h"
#include "captions/line21_codes.h"

namespace qlnmedia::captions {

namespace {

constexpr uint8_t kValue = 0x7F;
constexpr char32_t kSolidBlock = 0x2588;

// The rows of preamble address codes by the low bits of their first byte: with a second byte below 0x60, and
// from there on.
constexpr int kRows[8][2] = {{11, 11}, {1, 2}, {3, 4}, {12, 13}, {14, 15}, {5, 6}, {7, 8}, {9, 10}};

enum Code : uint8_t {
  kBackspace = 0x21,
  kDeleteToEnd = 0x24,
  kRollUp2 = 0x25,
  kRollUp4 = 0x27,
  kFlashOn = 0x28,
  kResumeDirect = 0x29,
  kReturn = 0x2D,
};

bool HasParity(uint8_t byte) { return WithOddParity(byte) == byte; }

}  // namespace

std::string TextOf(const StyledCaption& caption) {
  std::string text;
  for (const StyledRow& row : caption.rows) {
    if (!text.empty()) text += '\n';
    for (const StyledRun& run : row.runs) text += run.text;
  }
  return text;
}

StyledCaption PlainCaption(double begin, double end, const std::string& text) {
  StyledCaption caption{begin, end, CaptionStyle::kPopOn, {}};
  for (size_t at = 0; at <= text.size();) {
    const size_t line = std::min(text.find('\n', at), text.size());
    caption.rows.push_back({0, 0, 0, {{text.substr(at, line - at), Look()}}});
    at = line + 1;
  }
  return caption;
}

void Line21Screen::Add(uint8_t first, uint8_t second, double seconds) {
  const auto low = static_cast<uint8_t>(first & kValue);
  if (low >= 0x10 && low < 0x20) {
    if (!HasParity(first) || !HasParity(second)) return;
    const auto code = static_cast<uint16_t>(low << 8 | (second & kValue));
    // Control codes come twice, in case that one is lost.
    if (code == last_) {
      last_ = 0;
      return;
    }
    last_ = code;
    return Control(low, static_cast<uint8_t>(second & kValue), seconds);
  }
  last_ = 0;
  for (const uint8_t byte : {first, second}) {
    const auto character = static_cast<uint8_t>(byte & kValue);
    if (!HasParity(byte))
      Put(kSolidBlock, seconds);
    else if (character >= 0x20)
      Put(BasicCharacter(character), seconds);
  }
}

void Line21Screen::Control(uint8_t first, uint8_t second, double seconds) {
  if (second >= 0x40) return Preamble(kRows[first & 7][second >= 0x60 ? 1 : 0], second & 0x1F);
  if (second < 0x20) return;
  if (first == 0x14 || first == 0x15) return Miscellaneous(second, seconds);
  if (first == 0x17 && second >= 0x21 && second <= 0x23) {
    column_ = std::min(column_ + (second & 3), kLine21Columns - 1);
    return;
  }
  if (first == 0x11 && second < 0x30) return MidRow(second & 0x0F, seconds);
  const char32_t character = PairCharacter(first, second);
  if (character == 0) return;
  // An extended character takes the place of the one that was sent for decoders without it.
  if (first != 0x11) Back();
  Put(character, seconds);
}

void Line21Screen::Preamble(int row, uint8_t attributes) {
  if (mode_ == Mode::kRollUp && row != row_) {
    // The rows that roll up move along.
    Memory moved{};
    row = std::max(row, depth_);
    for (int i = 0; i < depth_ && row_ - i >= 1; ++i)
      moved[static_cast<size_t>(row - 1 - i)] = shown_[static_cast<size_t>(row_ - 1 - i)];
    shown_ = moved;
  }
  row_ = row;
  const int kind = attributes >> 1;
  look_ = {Line21Colour::kWhite, false, (attributes & 1) != 0};
  column_ = 0;
  if (kind >= 8)
    column_ = 4 * (kind - 8);
  else if (kind == kItalics)
    look_.italic = true;
  else
    look_.colour = static_cast<Line21Colour>(kind);
}

void Line21Screen::Miscellaneous(uint8_t code, double seconds) {
  switch (code) {
    case kResumeLoading:
      mode_ = Mode::kPopOn;
      break;
    case kBackspace:
      Back();
      break;
    case kDeleteToEnd: {
      auto& row = Written()[static_cast<size_t>(row_ - 1)];
      std::fill(row.begin() + column_, row.end(), Cell());
      break;
    }
    case kResumeDirect:
      mode_ = Mode::kPaintOn;
      break;
    case kEraseDisplayed:
      Break(seconds);
      shown_ = {};
      break;
    case kReturn:
      CarriageReturn(seconds);
      break;
    case kEraseNotDisplayed:
      hidden_ = {};
      break;
    case kEndOfCaption:
      Break(seconds);
      mode_ = Mode::kPopOn;
      std::swap(shown_, hidden_);
      style_ = CaptionStyle::kPopOn;
      begin_ = seconds;
      break;
    default:
      if (code >= kRollUp2 && code <= kRollUp4) RollUp(code - kRollUp2 + 2, seconds);
      break;
  }
}

void Line21Screen::RollUp(int rows, double seconds) {
  if (mode_ != Mode::kRollUp) {
    Break(seconds);
    shown_ = hidden_ = {};
    row_ = kLine21Rows;
    column_ = 0;
    look_ = {};
  }
  mode_ = Mode::kRollUp;
  depth_ = rows;
  row_ = std::max(row_, depth_);
}

void Line21Screen::CarriageReturn(double seconds) {
  if (mode_ != Mode::kRollUp) return;
  Break(seconds);
  const auto base = static_cast<size_t>(row_ - 1);
  const size_t top = base + 1 - static_cast<size_t>(depth_);
  for (size_t i = 0; i < top; ++i) shown_[i] = {};
  for (size_t i = top; i < base; ++i) shown_[i] = shown_[i + 1];
  shown_[base] = {};
  column_ = 0;
  look_ = {};
  begin_ = seconds;
}

void Line21Screen::MidRow(uint8_t attributes, double seconds) {
  const int kind = attributes >> 1;
  look_.underline = (attributes & 1) != 0;
  if (kind == kItalics) {
    look_.italic = true;
  } else {
    look_.italic = false;
    look_.colour = static_cast<Line21Colour>(kind);
  }
  Put(U' ', seconds);  // the code takes a column
}

void Line21Screen::Put(char32_t character, double seconds) {
  if (mode_ == Mode::kNone) return;
  if (mode_ != Mode::kPopOn && IsShownEmpty()) {
    begin_ = seconds;
    style_ = mode_ == Mode::kRollUp ? CaptionStyle::kRollUp : CaptionStyle::kPaintOn;
  }
  Written()[static_cast<size_t>(row_ - 1)][static_cast<size_t>(column_)] = {character, look_};
  column_ = std::min(column_ + 1, kLine21Columns - 1);
}

void Line21Screen::Back() {
  if (mode_ == Mode::kNone || column_ == 0) return;
  auto& row = Written()[static_cast<size_t>(row_ - 1)];
  // In the last column the cursor stays on what it has written.
  const bool onLast = column_ == kLine21Columns - 1 && row[static_cast<size_t>(column_)].character != 0;
  if (!onLast) --column_;
  row[static_cast<size_t>(column_)] = {};
}

bool Line21Screen::IsShownEmpty() const {
  return std::all_of(shown_.begin(), shown_.end(), [](const auto& row) {
    return std::all_of(row.begin(), row.end(), [](const Cell& cell) { return cell.character == 0; });
  });
}

std::vector<StyledRow> Line21Screen::Rows() const {
  std::vector<StyledRow> rows;
  for (int number = 1; number <= kLine21Rows; ++number) {
    const auto& cells = shown_[static_cast<size_t>(number - 1)];
    const auto seen = [](const Cell& cell) {
      return cell.character != 0 && cell.character != U' ' && cell.character != 0x00A0;
    };
    const auto first = std::find_if(cells.begin(), cells.end(), seen);
    if (first == cells.end()) continue;
    const auto last = std::find_if(cells.rbegin(), cells.rend(), seen).base();
    StyledRow row{number, static_cast<int>(first - cells.begin()), static_cast<int>(last - first), {}};
    for (auto cell = first; cell != last; ++cell) {
      // Gaps, and the spaces that change the look, have no look of their own.
      const bool blank = !seen(*cell);
      if (row.runs.empty() || (!blank && row.runs.back().look != cell->look))
        row.runs.push_back({{}, cell->look});
      AppendUtf8(cell->character == 0 ? U' ' : cell->character, &row.runs.back().text);
    }
    rows.push_back(std::move(row));
  }
  return rows;
}

void Line21Screen::Break(double seconds) {
  std::vector<StyledRow> rows = Rows();
  // What came and went with one picture was never seen.
  if (!rows.empty() && seconds > begin_) captions_.push_back({begin_, seconds, style_, std::move(rows)});
  begin_ = seconds;
}

}  // namespace qlnmedia::captions
