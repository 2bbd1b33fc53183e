// How characters of line 21 look (CTA-608).
#ifndef CAPTIONS_LINE21_LOOK_H
#define CAPTIONS_LINE21_LOOK_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qlnmedia::captions {

// The safe area that the rows and columns fill, in hundredths of the picture.
inline constexpr double kSafeBegin = 10;
inline constexpr double kSafeSize = 80;

// In the order of preamble address and mid-row codes.
enum class Line21Colour : uint8_t { kWhite, kGreen, kBlue, kCyan, kRed, kYellow, kMagenta };

struct Look {
  Line21Colour colour = Line21Colour::kWhite;
  bool italic = false;
  bool underline = false;

  friend bool operator==(const Look&, const Look&) = default;
};

// Characters with the look of each.
class StyledText {
 public:
  StyledText() = default;
  explicit StyledText(std::u32string text, const Look& look = {})
      : text_(std::move(text)), looks_(text_.size(), look) {}
  StyledText(std::u32string text, std::vector<Look> looks)
      : text_(std::move(text)), looks_(std::move(looks)) {
    looks_.resize(text_.size());
  }

  const std::u32string& text() const { return text_; }
  const std::vector<Look>& looks() const { return looks_; }
  size_t size() const { return text_.size(); }
  bool empty() const { return text_.empty(); }
  void Add(char32_t character, const Look& look) {
    text_ += character;
    looks_.push_back(look);
  }
  void Insert(size_t at, char32_t character, const Look& look) {
    text_.insert(at, 1, character);
    looks_.insert(looks_.begin() + static_cast<std::ptrdiff_t>(at), look);
  }
  void SetLook(size_t at, const Look& look) { looks_[at] = look; }
  StyledText Part(size_t begin, size_t count = std::u32string::npos) const {
    const size_t end = begin + (count < size() - begin ? count : size() - begin);
    return {text_.substr(begin, end - begin),
            {looks_.begin() + static_cast<std::ptrdiff_t>(begin),
             looks_.begin() + static_cast<std::ptrdiff_t>(end)}};
  }
  // Without spaces at either end.
  StyledText Trimmed() const {
    const size_t begin = text_.find_first_not_of(U' ');
    if (begin == std::u32string::npos) return {};
    return Part(begin, text_.find_last_not_of(U' ') + 1 - begin);
  }

  friend bool operator==(const StyledText&, const StyledText&) = default;

 private:
  std::u32string text_;
  std::vector<Look> looks_;
};

}  // namespace qlnmedia::captions

#endif
