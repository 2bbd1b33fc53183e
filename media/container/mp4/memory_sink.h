// Changed bytes in memory.
#ifndef MEDIA_CONTAINER_MP4_MEMORY_SINK_H
#define MEDIA_CONTAINER_MP4_MEMORY_SINK_H

#include "container/mp4/splices.h"

namespace qlnmedia::mp4 {

class MemorySink final : public Sink {
 public:
  void Write(ByteSpan bytes) override { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }
  void Copy(const Source& source, uint64_t at, uint64_t bytes) override {
    const size_t had = bytes_.size();
    bytes_.resize(had + static_cast<size_t>(bytes));
    source.Read(at, std::span<uint8_t>(bytes_).subspan(had));
  }
  const Bytes& bytes() const { return bytes_; }

 private:
  Bytes bytes_;
};

}  // namespace qlnmedia::mp4

#endif
