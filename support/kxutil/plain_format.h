// What nearly all messages are made of, formatted without the C library's way of taking any format.
#ifndef KXUTIL_PLAIN_FORMAT_H
#define KXUTIL_PLAIN_FORMAT_H

#include <charconv>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qln {

// Appends to a block of `room` bytes, always with room left for a terminator.
class PlainText {
 public:
  PlainText(char* text, size_t room) : text_(text), room_(room) {}

  bool Append(const char* from, size_t count) {
    if (count >= room_ - size_) return false;
    std::memcpy(text_ + size_, from, count);
    size_ += count;
    return true;
  }

  template <class Integer>
  bool AppendDecimal(Integer value) {
    char digits[16];
    return Append(digits,
                  static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, value).ptr - digits));
  }

  // Eight hexadecimal digits, capital.
  bool AppendWord(uint32_t value) {
    char digits[8];
    for (int i = 7; i >= 0; --i, value >>= 4) digits[i] = "0123456789ABCDEF"[value & 15];
    return Append(digits, sizeof digits);
  }

  void Terminate() { text_[size_] = '\0'; }

 private:
  char* text_;
  size_t room_;
  size_t size_ = 0;
};

// Formats as vsnprintf does where a format has no other conversions than %d, %u, %s of a text that is there,
// and %08X, and the text fits into `room` bytes (at least one). False for all others; `text` is then of no
// use. The arguments are used up either way.
inline bool FormatPlain(char* text, size_t room, const char* format, va_list arguments) {
  PlainText out(text, room);
  for (;;) {
    const char* const percent = std::strchr(format, '%');
    if (percent == nullptr) break;
    if (!out.Append(format, static_cast<size_t>(percent - format))) return false;
    format = percent + 2;
    bool fits = false;
    switch (percent[1]) {
      case 'd':
        fits = out.AppendDecimal(va_arg(arguments, int));
        break;
      case 'u':
        fits = out.AppendDecimal(va_arg(arguments, unsigned));
        break;
      case 's': {
        const char* const part = va_arg(arguments, const char*);
        fits = part != nullptr && out.Append(part, std::strlen(part));
        break;
      }
      case '0':
        if (percent[2] != '8' || percent[3] != 'X') return false;
        format = percent + 4;
        fits = out.AppendWord(va_arg(arguments, unsigned));
        break;
      default:
        return false;
    }
    if (!fits) return false;
  }
  if (!out.Append(format, std::strlen(format))) return false;
  out.Terminate();
  return true;
}

}  // namespace qln

#endif
