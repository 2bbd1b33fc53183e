// Bounded access to a record's open data area: nothing is read or written at or behind its end.
#ifndef QLNUTIL_MEDIACMD_RECORD_VIEW_H
#define QLNUTIL_MEDIACMD_RECORD_VIEW_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "qlnutil/mediacmd.h"

namespace qln {

inline constexpr int64_t kClipIdOffset = 76;
inline constexpr int64_t kLongTextMarkOffset = 84;  // not zero: one long text stands from kClipIdOffset on
inline constexpr int64_t kFileNameOffset = 85;
inline constexpr size_t kClipIdCharacters = 8;

// `StructSize` as owners mean it, for arithmetic that does not wrap.
inline int64_t SignedStructSize(const MediaCmd& command) { return static_cast<int32_t>(command.StructSize); }

// A record as it may be read. Bytes outside of it count as zero. Offsets are counted from the record's start.
class RecordView {
 public:
  RecordView(const MediaCmd& command, int64_t end)
      : bytes_(reinterpret_cast<const char*>(&command)), end_(std::max<int64_t>(end, 0)) {}
  // As far as the record's owner says that it goes.
  explicit RecordView(const MediaCmd& command) : RecordView(command, SignedStructSize(command)) {}

  bool Holds(int64_t offset) const { return offset >= 0 && offset < end_; }
  char At(int64_t offset) const { return Holds(offset) ? bytes_[offset] : '\0'; }

  // The bytes from `offset` to the terminator, or to the end of the record where there is none.
  std::string_view TextAt(int64_t offset) const {
    if (!Holds(offset)) return "";
    const char* const text = bytes_ + offset;
    return {text, strnlen(text, static_cast<size_t>(end_ - offset))};
  }
  // Whether `text`, which TextAt gave for `offset`, has its terminator within the record.
  bool IsTerminated(int64_t offset, std::string_view text) const {
    return offset >= end_ || offset + static_cast<int64_t>(text.size()) < end_;
  }
  // All bytes from `offset` to the end of the record.
  std::string_view BytesFrom(int64_t offset) const {
    return Holds(offset) ? std::string_view(bytes_ + offset, static_cast<size_t>(end_ - offset))
                         : std::string_view();
  }

 private:
  const char* bytes_;
  int64_t end_;
};

// Copies up to `room` characters and fills the rest of the room with zeros; a text that fills the room has no
// terminator behind it. The places may overlap.
inline void CopyBounded(char* to, std::string_view from, size_t room) {
  const size_t count = std::min(from.size(), room);
  std::memmove(to, from.data(), count);
  std::memset(to + count, 0, room - count);
}

}  // namespace qln

#endif
