// Appends to memory, and moves that to an unnamed file whenever it is full.

#include "container/mp4/spool.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/error.h"

namespace qlnmedia::mp4 {

namespace {

int OpenUnnamed(const std::string& folder) {
  const int direct = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (direct >= 0) return direct;
  std::string name = folder + "/qlnmedia-XXXXXX";
  const int named = mkostemp(name.data(), O_CLOEXEC);
  if (named >= 0) unlink(name.c_str());
  return named;
}

}  // namespace

Spool::~Spool() {
  if (descriptor_ >= 0) close(descriptor_);
}

void Spool::Append(ByteSpan bytes) {
  tail_.insert(tail_.end(), bytes.begin(), bytes.end());
  size_ += bytes.size();
  if (tail_.size() > memoryBytes_) Spill();
}

void Spool::Spill() {
  if (descriptor_ < 0) descriptor_ = OpenUnnamed(folder_);
  if (descriptor_ < 0) throw Error(folder_, std::string("cannot hold new samples: ") + std::strerror(errno));
  ByteSpan left(tail_);
  while (!left.empty()) {
    const ssize_t put = pwrite(descriptor_, left.data(), left.size(), static_cast<off_t>(inFile_));
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) throw Error(folder_, std::string("cannot hold new samples: ") + std::strerror(errno));
    inFile_ += static_cast<uint64_t>(put);
    left = left.subspan(static_cast<size_t>(put));
  }
  tail_.clear();
}

void Spool::Read(uint64_t at, std::span<uint8_t> to) const {
  while (!to.empty() && at < inFile_) {
    const size_t wanted = static_cast<size_t>(std::min<uint64_t>(to.size(), inFile_ - at));
    const ssize_t got = pread(descriptor_, to.data(), wanted, static_cast<off_t>(at));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) throw Error(folder_, std::string("cannot read back new samples: ") + std::strerror(errno));
    at += static_cast<uint64_t>(got);
    to = to.subspan(static_cast<size_t>(got));
  }
  if (!to.empty()) std::copy_n(tail_.begin() + static_cast<ptrdiff_t>(at - inFile_), to.size(), to.begin());
}

}  // namespace qlnmedia::mp4
