// Reads the elements of an unescaped parameter set, and writes the set again with some of its bits replaced.
#ifndef MEDIA_SETS_SET_READER_H
#define MEDIA_SETS_SET_READER_H

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "qlnutil/qlnbits.h"
#include "units/units.h"

namespace qlnmedia {

// A run of bits that takes the place of another.
struct Splice {
  uint32_t position;
  uint32_t removed;
  std::vector<std::pair<int, uint32_t>> fields;  // width and value
};

// Reads an unescaped set; `good` falls when it is read past its stop bit.
class SetReader {
 public:
  explicit SetReader(ByteSpan unit) : bytes_(Unescape(unit)) {
    size_t end = bytes_.size();
    while (end > 0 && bytes_[end - 1] == 0) --end;
    if (end > 0) {
      uint32_t stop = static_cast<uint32_t>(end) * 8 - 1;
      while ((bytes_[stop / 8] >> (7 - stop % 8) & 1) == 0) --stop;
      stop_ = stop;
    }
    bytes_.push_back(0);  // the byte behind the data that the bit functions may look at
    state_ = {bytes_.data(), static_cast<int32_t>(bytes_.size() - 1), stop_, 0};
  }
  SetReader(const SetReader&) = delete;
  SetReader& operator=(const SetReader&) = delete;

  // Whatever is read past the stop bit is 0, so that no count from behind the end drives a loop.
  uint32_t u(int count) { return Within(state_.bitPos <= stop_ ? ReadBits(&state_, count) : 0); }
  bool flag() { return u(1) == 1; }
  uint32_t ue() { return Within(state_.bitPos <= stop_ ? ReadExponentialGolombCode(&state_) : 0); }
  int32_t se() {
    return static_cast<int32_t>(
        Within(state_.bitPos <= stop_ ? static_cast<uint32_t>(ReadExponentialGolombCodeSigned(&state_)) : 0));
  }
  void skip(uint32_t count) { SkipBits(&state_, count); }
  uint32_t position() const { return state_.bitPos; }
  // A bit that was passed before.
  bool bitAt(uint32_t position) const { return (bytes_[position / 8] >> (7 - position % 8) & 1) != 0; }
  uint32_t stop() const { return stop_; }
  bool good() const { return stop_ != 0 && state_.bitPos <= stop_; }

  // The unit with some bits replaced, escaped.
  Bytes With(const std::vector<Splice>& splices) {
    Bytes out(bytes_.size() + 64, 0);
    QLNBitState to{out.data(), static_cast<int32_t>(out.size()), static_cast<uint32_t>(out.size()) * 8, 0};
    QLNBitState from{bytes_.data(), state_.size, static_cast<uint32_t>(state_.size) * 8, 0};
    const auto copyTo = [&](uint32_t end) {
      while (from.bitPos < end) {
        const int count = static_cast<int>(std::min<uint32_t>(32, end - from.bitPos));
        WriteBits(&to, count, ReadBits(&from, count));
      }
    };
    for (const Splice& splice : splices) {
      copyTo(splice.position);
      for (const auto& [width, value] : splice.fields) WriteBits(&to, width, value);
      SkipBits(&from, splice.removed);
    }
    copyTo(stop_);
    WriteBit(&to, 1);
    out.resize((to.bitPos + 7) / 8);
    return Escape(out);
  }

 private:
  uint32_t Within(uint32_t value) const { return state_.bitPos <= stop_ ? value : 0; }
  Bytes bytes_;
  uint32_t stop_ = 0;
  QLNBitState state_{};
};

}  // namespace qlnmedia

#endif
