// Reads the bits of an unescaped unit up to its stop bit, and writes the unit again with some of its bits
// replaced.
#ifndef MEDIA_SETS_RBSP_READER_H
#define MEDIA_SETS_RBSP_READER_H

#include <cstdint>
#include <utility>
#include <vector>

#include "qlnutil/qlnbits.h"
#include "units/units.h"

namespace qlnmedia {

// Widths and values of elements that stand one behind the other; a width of 0 puts nothing.
using BitFields = std::vector<std::pair<int, uint32_t>>;

// A run of bits that takes the place of another.
struct Splice {
  uint32_t position;
  uint32_t removed;
  BitFields fields;
};

// Positions count bits from the unit's first byte, NAL header included, emulation prevention removed. `good`
// falls when a unit is read past its stop bit.
class RbspReader {
 public:
  explicit RbspReader(ByteSpan unit) : bytes_(Unescape(unit)) {
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
  RbspReader(const RbspReader&) = delete;
  RbspReader& operator=(const RbspReader&) = delete;

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
  // The position of the stop bit; 0 for a unit without one.
  uint32_t stop() const { return stop_; }
  bool good() const { return stop_ != 0 && state_.bitPos <= stop_; }

  // The unit with some bits replaced, escaped; `splices` in order of their positions. Where the reader stands
  // is of no matter.
  Bytes With(const std::vector<Splice>& splices) const;

 private:
  uint32_t Within(uint32_t value) const { return state_.bitPos <= stop_ ? value : 0; }
  Bytes bytes_;
  uint32_t stop_ = 0;
  QLNBitState state_{};
};

}  // namespace qlnmedia

#endif
