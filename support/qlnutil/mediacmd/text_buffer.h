// A text that grows while it is written: short ones on the stack, long ones on the heap.
#ifndef QLNUTIL_MEDIACMD_TEXT_BUFFER_H
#define QLNUTIL_MEDIACMD_TEXT_BUFFER_H

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "kxutil/kxutil.h"

namespace qln {

class TextBuffer {
 public:
  TextBuffer() = default;
  TextBuffer(const TextBuffer&) = delete;
  TextBuffer& operator=(const TextBuffer&) = delete;

  // Appends pieces one behind the other: characters, literals, texts, and numbers in decimal. Room is looked
  // for once for all of them.
  template <class... Pieces>
  void Append(const Pieces&... pieces) {
    const size_t most = (MostOf(pieces) + ...);
    if (most > room_ - size_ && !Grow(most)) return;
    char* to = text_ + size_;
    ((to = Put(to, pieces)), ...);
    size_ = static_cast<size_t>(to - text_);
  }

  // The text with its terminator in a block of KXAlloc; null where there is no memory for it.
  char* ToBlock() const {
    char* const block = isValid_ ? static_cast<char*>(KXAlloc(size_ + 1)) : nullptr;
    if (block == nullptr) return nullptr;
    std::memcpy(block, text_, size_);
    block[size_] = '\0';
    return block;
  }

 private:
  static constexpr size_t kMostDigits = 20;

  static size_t MostOf(std::string_view text) { return text.size(); }
  static size_t MostOf(char) { return 1; }
  template <size_t N>
  static size_t MostOf(const char (&)[N]) {
    return N - 1;
  }
  template <std::integral Integer>
  static size_t MostOf(Integer) {
    return kMostDigits;
  }

  static char* Put(char* to, char c) {
    *to = c;
    return to + 1;
  }
  template <size_t N>
  static char* Put(char* to, const char (&literal)[N]) {
    std::memcpy(to, literal, N - 1);
    return to + N - 1;
  }
  template <std::integral Integer>
  static char* Put(char* to, Integer value) {
    return std::to_chars(to, to + kMostDigits, value).ptr;
  }
  // Names and words are short: two moves that may overlap copy up to 16 characters.
  static char* Put(char* to, std::string_view text) {
    const char* const from = text.data();
    const size_t count = text.size();
    if (count > 16) {
      std::memcpy(to, from, count);
    } else if (count >= 8) {
      PutEnds<uint64_t>(to, from, count);
    } else if (count >= 4) {
      PutEnds<uint32_t>(to, from, count);
    } else {
      for (size_t i = 0; i < count; ++i) to[i] = from[i];
    }
    return to + count;
  }
  template <class Word>
  static void PutEnds(char* to, const char* from, size_t count) {
    Word head;
    Word tail;
    std::memcpy(&head, from, sizeof head);
    std::memcpy(&tail, from + count - sizeof tail, sizeof tail);
    std::memcpy(to, &head, sizeof head);
    std::memcpy(to + count - sizeof tail, &tail, sizeof tail);
  }

  __attribute__((noinline)) bool Grow(size_t more) {
    const size_t room = 2 * (size_ + more);
    std::unique_ptr<char[]> grown(isValid_ ? new (std::nothrow) char[room] : nullptr);
    isValid_ = grown != nullptr;
    if (!isValid_) return false;
    std::memcpy(grown.get(), text_, size_);
    heap_ = std::move(grown);
    text_ = heap_.get();
    room_ = room;
    return true;
  }

  char stack_[2048];
  char* text_ = stack_;
  size_t size_ = 0;
  size_t room_ = sizeof stack_;
  bool isValid_ = true;
  std::unique_ptr<char[]> heap_;
};

}  // namespace qln

#endif
