// What both text readers put into a record's open data area, within a bound that no text can move.
#ifndef QLNUTIL_MEDIACMD_RECORD_AREA_H
#define QLNUTIL_MEDIACMD_RECORD_AREA_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "qlnutil/mediacmd.h"
#include "qlnutil/mediacmd/data_text.h"
#include "qlnutil/mediacmd/record_view.h"

namespace qln {

class RecordArea {
 public:
  // The bound is fixed here: a whole record, or more where its owner says so.
  explicit RecordArea(MediaCmd& command)
      : command_(command),
        bytes_(reinterpret_cast<char*>(&command)),
        end_(std::max<int64_t>(MEDIACMD_SIZE, SignedStructSize(command))) {}

  int64_t end() const { return end_; }
  char* bytes() { return bytes_; }

  // Copies a text with its terminator, cut to what fits; nothing where the place lies outside.
  void PutText(int64_t offset, std::string_view text) {
    if (offset >= end_) return;
    const size_t count = std::min(text.size(), static_cast<size_t>(end_ - offset - 1));
    std::memmove(bytes_ + offset, text.data(), count);
    bytes_[offset + static_cast<int64_t>(count)] = '\0';
  }

  // Source, destination and clock address share one place, two bytes behind the text of the clip identifier.
  void PutAddress(std::string_view text) {
    PutText(AddressOffset(), text);
    command_.Flags |= CF_USE_CLIP_ID;
  }
  // The interface address goes where the length of the other address alone says, counted from the area's
  // start.
  void PutInterfaceAddress(std::string_view text) {
    PutText(kAddressBase + LengthAt(AddressOffset()), text);
    command_.Flags |= CF_USE_CLIP_ID;
  }

  // Decodes `length` bytes into the area and makes the record end behind them. A text that is shorter leaves
  // the bytes behind it as they were. A length outside of the area changes nothing.
  void PutHex(int64_t length, std::string_view text) {
    if (length < 0 || kClipIdOffset + length > end_) return;
    DecodeHex(text, static_cast<size_t>(length), bytes_ + kClipIdOffset);
    command_.StructSize = static_cast<uint32_t>(length + kClipIdOffset);
    command_.Flags |= CF_USE_CLIP_ID;
  }

 private:
  static constexpr int64_t kAddressBase = 78;

  int64_t LengthAt(int64_t offset) const {
    return static_cast<int64_t>(RecordView(command_, end_).TextAt(offset).size());
  }
  int64_t AddressOffset() const { return kAddressBase + LengthAt(kClipIdOffset); }

  MediaCmd& command_;
  char* bytes_;
  int64_t end_;
};

}  // namespace qln

#endif
