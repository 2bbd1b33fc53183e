// Writes units again with some of their bits replaced.

#include "sets/rbsp_reader.h"

#include <algorithm>

namespace qlnmedia {

Bytes RbspReader::With(const std::vector<Splice>& splices) const {
  size_t added = 8;
  for (const Splice& splice : splices) {
    for (const auto& field : splice.fields) added += static_cast<size_t>(field.first);
  }
  Bytes from = bytes_;
  Bytes out(bytes_.size() + added / 8 + 1, 0);
  QLNBitState to{out.data(), static_cast<int32_t>(out.size()), static_cast<uint32_t>(out.size()) * 8, 0};
  QLNBitState in{from.data(), state_.size, static_cast<uint32_t>(state_.size) * 8, 0};
  const auto copyTo = [&](uint32_t end) {
    while (in.bitPos < end) {
      const int count = static_cast<int>(std::min<uint32_t>(32, end - in.bitPos));
      WriteBits(&to, count, ReadBits(&in, count));
    }
  };
  for (const Splice& splice : splices) {
    copyTo(splice.position);
    for (const auto& [width, value] : splice.fields) WriteBits(&to, width, value);
    SkipBits(&in, splice.removed);
  }
  copyTo(stop_);
  WriteBit(&to, 1);
  out.resize((to.bitPos + 7) / 8);
  return Escape(out);
}

}  // namespace qlnmedia
