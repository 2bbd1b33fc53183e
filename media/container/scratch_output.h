// An output that nobody keeps: what a muxer would write, for a look at it.
#ifndef MEDIA_CONTAINER_SCRATCH_OUTPUT_H
#define MEDIA_CONTAINER_SCRATCH_OUTPUT_H

#include <cstdint>
#include <string>

#include "container/libav_handles.h"

namespace qlnmedia {

// Its first 64 MB stay in memory, under a path that can be opened again; the rest is only counted.
class ScratchOutput {
 public:
  ScratchOutput();
  ~ScratchOutput();
  ScratchOutput(const ScratchOutput&) = delete;
  ScratchOutput& operator=(const ScratchOutput&) = delete;

  AVIOContext* context() const { return context_; }
  // Empty where the system has no path for it.
  std::string path() const;
  // True where all that was written is there.
  bool whole() const { return size_ <= kMost; }

 private:
  static constexpr int64_t kMost = int64_t{64} << 20;

  static int Write(void* output, uint8_t* bytes, int size);
  static int64_t Seek(void* output, int64_t offset, int whence);

  int descriptor_ = -1;
  int64_t at_ = 0;
  int64_t size_ = 0;
  AVIOContext* context_ = nullptr;
};

}  // namespace qlnmedia

#endif
