// Gigabytes to read that take no more than a piece of memory: one piece, over and over.
#ifndef TESTS_SUPPORT_LONG_MEMORY_H
#define TESTS_SUPPORT_LONG_MEMORY_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace qln::test {

// `size` bytes or some more, all 'x', and a zero behind them. What is written to them takes memory of its
// own.
class LongMemory {
 public:
  explicit LongMemory(size_t size) : size_((size + kPiece - 1) / kPiece * kPiece) {
    void* const all = mmap(nullptr, size_ + kPiece, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (all == MAP_FAILED) return;
    data_ = static_cast<uint8_t*>(all);
    const int file = memfd_create("piece", MFD_CLOEXEC);
    const std::string piece(kPiece, 'x');
    isThere_ = write(file, piece.data(), kPiece) == static_cast<ssize_t>(kPiece);
    for (size_t at = 0; isThere_ && at < size_; at += kPiece) {
      isThere_ = mmap(data_ + at, kPiece, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED | MAP_NORESERVE,
                      file, 0) != MAP_FAILED;
    }
    close(file);
  }
  ~LongMemory() {
    if (data_ != nullptr) munmap(data_, size_ + kPiece);
  }
  LongMemory(const LongMemory&) = delete;
  LongMemory& operator=(const LongMemory&) = delete;

  // Null where the system does not give them.
  uint8_t* data() { return isThere_ ? data_ : nullptr; }
  size_t size() const { return size_; }

 private:
  static constexpr size_t kPiece = size_t{1} << 24;
  const size_t size_;
  uint8_t* data_ = nullptr;
  bool isThere_ = false;
};

}  // namespace qln::test

#endif
