// Line 21 pairs: parity, control codes and characters of CTA-608.

#include "captions/line21.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "captions/line21_codes.h"

namespace qlnmedia::captions {
namespace {

constexpr size_t kLongestLine = 32;

class Pairs {
 public:
  void Control(uint8_t first, uint8_t second) {
    Flush();
    pairs_.insert(pairs_.end(), 2, MakePair(first, second));
  }
  void Character(uint8_t code) {
    if (pending_ == 0) {
      pending_ = code;
      return;
    }
    pairs_.push_back(MakePair(pending_, code));
    pending_ = 0;
  }
  void Flush() {
    if (pending_ != 0) pairs_.push_back(MakePair(pending_, 0));
    pending_ = 0;
  }
  std::vector<Pair> Take() {
    Flush();
    return std::move(pairs_);
  }

 private:
  std::vector<Pair> pairs_;
  uint8_t pending_ = 0;
};

// The standard characters are ASCII but for ten places, which are left out here.
bool IsStandardCharacter(char c) {
  return c >= 0x20 && c < 0x7B && c != '*' && c != '\\' && c != '^' && c != '_' && c != '`';
}

}  // namespace

uint8_t WithOddParity(uint8_t byte) {
  const auto low = static_cast<uint8_t>(byte & 0x7F);
  return static_cast<uint8_t>(std::popcount(low) % 2 == 0 ? low | 0x80 : low);
}

Pair MakePair(uint8_t first, uint8_t second) {
  return static_cast<Pair>(WithOddParity(first) << 8 | WithOddParity(second));
}

std::vector<Pair> PopOnCaption(std::string_view text, int row) {
  std::vector<std::string_view> lines;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  Pairs pairs;
  pairs.Control(kControl, kEraseNotDisplayed);
  pairs.Control(kControl, kResumeLoading);
  int place = row - static_cast<int>(lines.size()) + 1;
  for (const std::string_view line : lines) {
    if (place >= 1 && place <= kLastRow && !line.empty()) {
      // White, indent 0.
      pairs.Control(kRowCode[place], kRowIsSecond[place] ? 0x70 : 0x50);
      for (const char c : line.substr(0, kLongestLine)) {
        if (IsStandardCharacter(c)) pairs.Character(static_cast<uint8_t>(c));
      }
      pairs.Flush();
    }
    ++place;
  }
  pairs.Control(kControl, kEndOfCaption);
  return pairs.Take();
}

std::vector<Pair> EraseCaption() {
  Pairs pairs;
  pairs.Control(kControl, kEraseDisplayed);
  return pairs.Take();
}

}  // namespace qlnmedia::captions
