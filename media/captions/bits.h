// Bits of caption data, most significant first.
#ifndef MEDIA_CAPTIONS_BITS_H
#define MEDIA_CAPTIONS_BITS_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace qlnmedia::captions {

// Behind the end all bits are 0.
class BitReader {
 public:
  explicit BitReader(std::span<const uint8_t> data) : data_(data) {}
  size_t left() const { return at_ < data_.size() * 8 ? data_.size() * 8 - at_ : 0; }
  uint32_t Take(int count) {
    uint32_t value = 0;
    for (int i = 0; i < count; ++i, ++at_) {
      const bool bit = at_ / 8 < data_.size() && (data_[at_ / 8] >> (7 - at_ % 8) & 1) != 0;
      value = value << 1 | (bit ? 1U : 0U);
    }
    return value;
  }
  uint32_t Peek(int count) {
    const size_t at = at_;
    const uint32_t value = Take(count);
    at_ = at;
    return value;
  }
  void Align() { at_ = (at_ + 7) / 8 * 8; }

 private:
  std::span<const uint8_t> data_;
  size_t at_ = 0;
};

}  // namespace qlnmedia::captions

#endif
