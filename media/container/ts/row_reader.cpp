// A window over the file, and packets found again behind bytes that are none.

#include "container/ts/row_reader.h"

#include <algorithm>
#include <cstring>

namespace qlnmedia::ts {

namespace {

constexpr uint64_t kWindowBytes = 1 << 20;

}  // namespace

RowReader::RowReader(const mp4::Source& source) : source_(source) {
  const std::optional<PacketForm> form = FindPacketForm(source);
  if (!form) throw Error(source.name(), "has no transport packets of 188, 192 or 204 bytes in a row");
  form_ = *form;
}

bool RowReader::Next(Row& row) {
  if (at_ >= source_.size()) return false;
  if (at_ < windowAt_ || at_ + 2 * kLongestRow > windowAt_ + window_.size()) {
    windowAt_ = at_;
    window_.resize(static_cast<size_t>(std::min<uint64_t>(kWindowBytes, source_.size() - at_)));
    source_.Read(at_, window_);
  }
  const size_t from = static_cast<size_t>(at_ - windowAt_);
  const size_t left = window_.size() - from;
  const auto isSync = [&](size_t offset) {
    const size_t place = offset + form_.front;
    return place < left && window_[from + place] == kSync;
  };
  row = {};
  if (at_ >= form_.begin && left >= form_.row && isSync(0)) {
    row.size = static_cast<uint8_t>(form_.row);
    row.front = static_cast<uint8_t>(form_.front);
    row.isPacket = true;
  } else if (at_ < form_.begin) {
    row.size = static_cast<uint8_t>(std::min<uint64_t>(form_.begin - at_, kPacketBytes));
  } else {
    // Two in a row begin packets again; at the file's end one does.
    size_t skipped = 1;
    const auto begins = [&](size_t offset) {
      return isSync(offset) && (isSync(offset + form_.row) || offset + form_.row >= left);
    };
    while (skipped < std::min(left, kPacketBytes) && !begins(skipped)) ++skipped;
    row.size = static_cast<uint8_t>(skipped);
  }
  std::memcpy(row.bytes.data(), window_.data() + from, row.size);
  at_ += row.size;
  return true;
}

}  // namespace qlnmedia::ts
