// Timecode types as the text forms name them, and the texts of points in time.
#ifndef QLNUTIL_MEDIACMD_TIMECODE_WORDS_H
#define QLNUTIL_MEDIACMD_TIMECODE_WORDS_H

#include <charconv>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>

#include "timecode/kxtimecode.h"
#include "timecode/timecode_types.h"

namespace qln {

// What the text forms ask of the timecode service beside the type in the low byte.
inline constexpr uint32_t kTextTimecode = 0x32100;
inline constexpr uint32_t kReadTimecode = 0x100;
// Asked for as a whole, whatever the type, where a point counts in the time of a queue or a service.
inline constexpr uint32_t kServiceTimecode = 0xB2140;

inline constexpr uint8_t kTcUnset = 255;  // written like frames

// The word of a timecode type; empty for a type that has none.
constexpr std::string_view TcTypeWord(uint8_t type) {
  const TimecodeType* const found = FindTimecodeType(type);
  return found != nullptr ? found->word : std::string_view();
}

// A short text that is made of a number; it lives as long as this object.
class NumberText {
 public:
  template <class Integer>
  static NumberText Decimal(Integer value) {
    NumberText text;
    text.size_ = static_cast<size_t>(std::to_chars(text.text_, std::end(text.text_), value).ptr - text.text_);
    return text;
  }
  static NumberText Timecode(int32_t value, uint32_t typeWord) {
    NumberText text;
    text.text_[0] = '\0';
    TimeCodeToString(static_cast<uint32_t>(value), typeWord, text.text_);
    // Character by character, as the service has just written it: a search by vectors would wait for that.
    while (text.size_ < sizeof text.text_ && text.text_[text.size_] != '\0') ++text.size_;
    return text;
  }
  std::string_view view() const { return {text_, size_}; }

 private:
  NumberText() = default;
  char text_[260];
  size_t size_ = 0;
};

}  // namespace qln

#endif
