// Reads files by position, so that no reader disturbs another.

#include "container/mp4/source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/read_error.h"

namespace qlnmedia::mp4 {

Error Source::Fault(uint64_t at, const std::string& what) const {
  return Error(name(), what + " (at byte " + std::to_string(at) + ")");
}

FileSource::FileSource(const std::string& path) : path_(path) {
  descriptor_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor_ < 0 && errno == ENOENT) throw Error(path, std::strerror(errno));
  if (descriptor_ < 0) throw ReadError(path, std::strerror(errno));
  struct stat status = {};
  const bool known = fstat(descriptor_, &status) == 0;
  if (!known || !S_ISREG(status.st_mode)) {
    const std::string why = known ? "not a regular file" : std::strerror(errno);
    close(descriptor_);
    if (!known) throw ReadError(path, why);
    throw Error(path, why);
  }
  size_ = static_cast<uint64_t>(status.st_size);
}

FileSource::~FileSource() { close(descriptor_); }

void FileSource::Read(uint64_t at, std::span<uint8_t> to) const {
  if (at > size_ || to.size() > size_ - at) throw Fault(at, "the file ends within what is read");
  while (!to.empty()) {
    const ssize_t got = pread(descriptor_, to.data(), to.size(), static_cast<off_t>(at));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw ReadError(Fault(at, std::string("cannot read: ") + std::strerror(errno)));
    if (got == 0) throw Fault(at, "the file became shorter while it was read");
    at += static_cast<uint64_t>(got);
    to = to.subspan(static_cast<size_t>(got));
  }
}

void FileSource::Announce(uint64_t at, uint64_t bytes) const {
  if (at >= size_) return;
  // A hint only: a system that does not take it reads later.
  static_cast<void>(posix_fadvise(descriptor_, static_cast<off_t>(at),
                                  static_cast<off_t>(std::min(bytes, size_ - at)), POSIX_FADV_WILLNEED));
}

void MemorySource::Read(uint64_t at, std::span<uint8_t> to) const {
  if (at > bytes_.size() || to.size() > bytes_.size() - at) {
    throw Fault(at, "the file ends within what is read");
  }
  std::copy_n(bytes_.begin() + static_cast<ptrdiff_t>(at), to.size(), to.begin());
}

uint64_t Reader::Number(uint64_t at, size_t bytes) {
  if (at < windowAt_ || at - windowAt_ > window_.size() || window_.size() - (at - windowAt_) < bytes) {
    const uint64_t size = source_->size();
    if (at > size || size - at < bytes) throw source_->Fault(at, "the file ends within what is read");
    window_.resize(static_cast<size_t>(std::min<uint64_t>(windowBytes_, size - at)));
    windowAt_ = at;
    source_->Read(at, window_);
  }
  return LoadNumber(window_.data() + (at - windowAt_), bytes);
}

Bytes Reader::Run(uint64_t at, uint64_t bytes) const {
  if (at > size() || size() - at < bytes) throw source_->Fault(at, "the file ends within what is read");
  Bytes run(static_cast<size_t>(bytes));
  source_->Read(at, run);
  return run;
}

}  // namespace qlnmedia::mp4
