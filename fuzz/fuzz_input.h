// Takes a fuzz input apart: numbers from its head, exact-size copies of runs of bytes.
#ifndef FUZZ_FUZZ_INPUT_H
#define FUZZ_FUZZ_INPUT_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

#include "kxutil/kxutil.h"

namespace qln::fuzz {

// Messages cost more time than what they are about.
inline void DropMessages() {
  kxSetDiagnosticSink([](uint32_t, const char*, void*) {}, nullptr);
}

// A heap block of exactly `size` bytes: the first `used` copied in, the rest `fill`.
struct Block {
  std::unique_ptr<uint8_t[]> bytes;
  size_t size;

  Block(const uint8_t* from, size_t used, size_t room, uint8_t fill = 0xA5)
      : bytes(new uint8_t[room]), size(room) {
    if (used != 0) std::memcpy(bytes.get(), from, used);
    if (room > used) std::memset(bytes.get() + used, fill, room - used);
  }
  uint8_t* data() { return bytes.get(); }
};

class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), left_(size) {}

  // The next bytes as a little-endian number; bytes behind the end are 0.
  uint32_t Number(int bytes) {
    uint32_t value = 0;
    for (int i = 0; i < bytes; ++i) {
      if (left_ == 0) break;
      value |= uint32_t{*data_} << (8 * i);
      ++data_;
      --left_;
    }
    return value;
  }

  size_t left() const { return left_; }
  const uint8_t* data() const { return data_; }

  // Passes up to `count` bytes and returns how many there were; they begin at `*from`.
  size_t Take(size_t count, const uint8_t** from) {
    const size_t taken = std::min(count, left_);
    *from = data_;
    data_ += taken;
    left_ -= taken;
    return taken;
  }

 private:
  const uint8_t* data_;
  size_t left_;
};

}  // namespace qln::fuzz

#endif
