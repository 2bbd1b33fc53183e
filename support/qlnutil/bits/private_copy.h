// A reader's own copy of a unit: on the stack where it is short, zero bytes behind it, never the caller's
// bytes.
#ifndef QLNUTIL_BITS_PRIVATE_COPY_H
#define QLNUTIL_BITS_PRIVATE_COPY_H

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

namespace qln {

// Zero bytes that stand behind every copy.
inline constexpr uint64_t kCopySlack = 16;

class PrivateCopy {
 public:
  // Room for `size` bytes and the slack; the caller fills the `size` bytes, the slack is zero.
  explicit PrivateCopy(uint64_t size) {
    if (size + kCopySlack > sizeof stack_) {
      if (size > (uint64_t{1} << 40)) return;
      heap_.reset(new (std::nothrow) uint8_t[size + kCopySlack]);
      data_ = heap_.get();
    } else {
      data_ = stack_;
    }
    if (data_ != nullptr) std::memset(data_ + size, 0, kCopySlack);
  }

  PrivateCopy(const PrivateCopy&) = delete;
  PrivateCopy& operator=(const PrivateCopy&) = delete;

  // False when there was no memory.
  bool ok() const { return data_ != nullptr; }
  uint8_t* data() { return data_; }

 private:
  uint8_t stack_[1024];
  std::unique_ptr<uint8_t[]> heap_;
  uint8_t* data_ = nullptr;
};

}  // namespace qln

#endif
