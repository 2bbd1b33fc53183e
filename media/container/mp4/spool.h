// New bytes that wait for their turn: in memory up to a few megabytes, behind that in a file without a name.
#ifndef MEDIA_CONTAINER_MP4_SPOOL_H
#define MEDIA_CONTAINER_MP4_SPOOL_H

#include <cstdint>
#include <span>
#include <string>

#include "container/mp4/bytes.h"

namespace qlnmedia::mp4 {

class Spool {
 public:
  // `folder` is where the file is made, once one is needed. It never has a name there that outlives the call.
  explicit Spool(std::string folder = "/tmp", size_t memoryBytes = size_t{8} << 20)
      : folder_(std::move(folder)), memoryBytes_(memoryBytes) {}
  ~Spool();
  Spool(const Spool&) = delete;
  Spool& operator=(const Spool&) = delete;

  uint64_t size() const { return size_; }
  // Throws Error where the file cannot be made or is full.
  void Append(ByteSpan bytes);
  void Read(uint64_t at, std::span<uint8_t> to) const;

 private:
  void Spill();

  std::string folder_;
  size_t memoryBytes_;
  Bytes tail_;  // what is not in the file yet
  uint64_t inFile_ = 0;
  uint64_t size_ = 0;
  int descriptor_ = -1;
};

}  // namespace qlnmedia::mp4

#endif
