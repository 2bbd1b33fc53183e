// Lines and hexadecimal digits of caption files.
#ifndef CAPTIONS_TEXT_LINES_H
#define CAPTIONS_TEXT_LINES_H

#include <algorithm>
#include <string>
#include <string_view>

namespace qlnmedia::captions {

// Takes a text line by line: a byte order mark and white space at a line's ends left out. Lines end in LF, CR
// LF, or CR.
class TextLines {
 public:
  explicit TextLines(std::string_view text) : rest_(text) {
    if (rest_.substr(0, 3) == "\xEF\xBB\xBF") rest_.remove_prefix(3);
  }

  bool Next(std::string_view* line) {
    if (rest_.empty()) return false;
    ++number_;
    const size_t end = std::min(rest_.find_first_of("\r\n"), rest_.size());
    *line = Trimmed(rest_.substr(0, end));
    rest_.remove_prefix(end);
    rest_.remove_prefix(rest_.substr(0, 2) == "\r\n" ? 2 : rest_.empty() ? 0 : 1);
    return true;
  }

  // True for a line that is empty or a comment.
  static bool SaysNothing(std::string_view line) { return line.empty() || line.substr(0, 2) == "//"; }

  // The number of the last line, from 1.
  int number() const { return number_; }

  // The place of the last line, for a message.
  std::string Place(std::string_view what) const { return PlaceOf(number_, what); }
  static std::string PlaceOf(int number, std::string_view what) {
    return "line " + std::to_string(number) + ": " + std::string(what);
  }

  static std::string_view Trimmed(std::string_view text) {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
  }

 private:
  std::string_view rest_;
  int number_ = 0;
};

// The value of a hexadecimal digit, -1 for another character.
inline int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace qlnmedia::captions

#endif
