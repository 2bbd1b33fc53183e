// One pass over the text, with a vector's width of each string at a time.

#include "qlnutil/mediacmd/json_shape.h"

#include <cstddef>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace qln {
namespace {

constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// First quote or backslash in [from, to); `to` if there is none.
const char* FindStringEnd(const char* from, const char* to) {
#if defined(__x86_64__)
  const __m128i quote = _mm_set1_epi8('"');
  const __m128i backslash = _mm_set1_epi8('\\');
  for (; to - from >= 16; from += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    const __m128i either = _mm_or_si128(_mm_cmpeq_epi8(bytes, quote), _mm_cmpeq_epi8(bytes, backslash));
    const int hits = _mm_movemask_epi8(either);
    if (hits != 0) return from + __builtin_ctz(static_cast<unsigned>(hits));
  }
#endif
  while (from != to && *from != '"' && *from != '\\') ++from;
  return from;
}

class ShapeReader {
 public:
  ShapeReader(std::string_view text, jsmntok_t* tokens, int room)
      : begin_(text.data()),
        at_(text.data()),
        end_(text.data() + text.size()),
        tokens_(tokens),
        room_(room) {}

  int Read() {
    if (!Open()) return kOtherShape;
    while (innermost_ != kNone) {
      if (at_ == end_) return kOtherShape;
      if (*at_ == '}') {
        Close();
      } else if (!ReadMember()) {
        return kOtherShape;
      }
    }
    return at_ == end_ ? count_ : kOtherShape;
  }

 private:
  static constexpr int kNone = -1;

  int Offset(const char* place) const { return static_cast<int>(place - begin_); }
  bool IsAt(char c) const { return at_ != end_ && *at_ == c; }
  void SkipBlank() {
    if (IsAt(' ')) ++at_;
  }

  bool Put(jsmntype_t type, const char* first, const char* behind, int size) {
    if (count_ == room_) return false;
    tokens_[count_++] = {type, Offset(first), Offset(behind), size};
    return true;
  }

  // While an object is open, the one around it stands in its end.
  bool Open() {
    if (!IsAt('{') || !Put(JSMN_OBJECT, at_, at_, 0)) return false;
    tokens_[count_ - 1].end = innermost_;
    innermost_ = count_ - 1;
    ++at_;
    return true;
  }

  void Close() {
    jsmntok_t& object = tokens_[innermost_];
    innermost_ = object.end;
    object.end = Offset(++at_);
    if (IsAt(',') && innermost_ != kNone) ++at_;
  }

  bool ReadString(int size) {
    if (!IsAt('"')) return false;
    const char* const first = at_ + 1;
    const char* const behind = FindStringEnd(first, end_);
    if (behind == end_ || *behind != '"' || !Put(JSMN_STRING, first, behind, size)) return false;
    at_ = behind + 1;
    return true;
  }

  bool ReadNumber() {
    const char* const first = at_;
    if (IsAt('-')) ++at_;
    const char* const digits = at_;
    while (at_ != end_ && IsDigit(*at_)) ++at_;
    return at_ != digits && Put(JSMN_PRIMITIVE, first, at_, 0);
  }

  // A key with its value, which counts as part of it; an object is opened only.
  bool ReadMember() {
    if (!ReadString(1)) return false;
    ++tokens_[innermost_].size;
    SkipBlank();
    if (!IsAt(':')) return false;
    ++at_;
    SkipBlank();
    if (IsAt('{')) return Open();
    if (!(IsAt('"') ? ReadString(0) : ReadNumber())) return false;
    if (IsAt('}')) return true;
    if (!IsAt(',')) return false;
    ++at_;
    return true;
  }

  const char* const begin_;
  const char* at_;
  const char* const end_;
  jsmntok_t* const tokens_;
  const int room_;
  int count_ = 0;
  int innermost_ = kNone;  // open object
};

}  // namespace

int TokensOfWrittenShape(std::string_view text, jsmntok_t* tokens, int room) {
  return ShapeReader(text, tokens, room).Read();
}

}  // namespace qln
