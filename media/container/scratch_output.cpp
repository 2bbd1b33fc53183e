// Keeps the beginning of what is written in anonymous memory.

#include "container/scratch_output.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

namespace qlnmedia {

ScratchOutput::ScratchOutput() : descriptor_(memfd_create("qlnmedia", MFD_CLOEXEC)) {
  constexpr int kBuffer = 1 << 16;
  auto* const buffer = static_cast<uint8_t*>(av_malloc(kBuffer));
  if (buffer != nullptr) context_ = avio_alloc_context(buffer, kBuffer, 1, this, nullptr, Write, Seek);
  if (context_ != nullptr) return;
  av_free(buffer);
  if (descriptor_ >= 0) close(descriptor_);
  throw std::bad_alloc();
}

ScratchOutput::~ScratchOutput() {
  av_freep(&context_->buffer);
  avio_context_free(&context_);
  if (descriptor_ >= 0) close(descriptor_);
}

std::string ScratchOutput::path() const {
  const std::string path = fmt::format("/proc/self/fd/{}", descriptor_);
  return descriptor_ >= 0 && access(path.c_str(), R_OK) == 0 ? path : std::string();
}

int ScratchOutput::Write(void* output, uint8_t* bytes, int size) {
  auto* const self = static_cast<ScratchOutput*>(output);
  const int64_t kept = std::clamp<int64_t>(kMost - self->at_, 0, size);
  if (self->descriptor_ >= 0 && kept > 0 &&
      pwrite(self->descriptor_, bytes, static_cast<size_t>(kept), self->at_) != kept)
    return AVERROR(ENOMEM);
  self->at_ += size;
  self->size_ = std::max(self->size_, self->at_);
  return size;
}

int64_t ScratchOutput::Seek(void* output, int64_t offset, int whence) {
  auto* const self = static_cast<ScratchOutput*>(output);
  if (whence == AVSEEK_SIZE) return self->size_;
  const int64_t from = whence == SEEK_CUR ? self->at_ : whence == SEEK_END ? self->size_ : 0;
  if (from + offset < 0) return AVERROR(EINVAL);
  return self->at_ = from + offset;
}

}  // namespace qlnmedia
