// Reads and writes descriptors.

#include "container/live/ends.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/error.h"
#include "base/read_error.h"

namespace qlnmedia {

namespace {

// What a pipe holds.
constexpr size_t kReadAtOnce = size_t{64} << 10;
constexpr size_t kMostWaiting = size_t{256} << 10;

void Await(int descriptor, short events) {
  pollfd one{descriptor, events, 0};
  poll(&one, 1, -1);
}

}  // namespace

LiveSource::LiveSource(int descriptor, std::string name, std::function<void()> beforeWait)
    : descriptor_(descriptor), name_(std::move(name)), beforeWait_(std::move(beforeWait)) {}

bool LiveSource::ReadMore() const {
  if (ended_) return false;
  if (beforeWait_) beforeWait_();
  const size_t there = window_.size();
  window_.resize(there + kReadAtOnce);
  ssize_t got = -1;
  while ((got = read(descriptor_, window_.data() + there, kReadAtOnce)) < 0) {
    if (errno == EAGAIN) {
      Await(descriptor_, POLLIN);
    } else if (errno != EINTR) {
      const int error = errno;
      window_.resize(there);
      throw ReadError(name_, std::string("cannot be read: ") + std::strerror(error));
    }
  }
  window_.resize(there + static_cast<size_t>(got));
  read_ += static_cast<uint64_t>(got);
  ended_ = got == 0;
  return !ended_;
}

uint64_t LiveSource::Available(uint64_t at, uint64_t least) const {
  while (read_ < at || read_ - at < least) {
    if (!ReadMore()) return read_ < at ? 0 : read_ - at;
  }
  return read_ - at;
}

void LiveSource::Read(uint64_t at, std::span<uint8_t> to) const {
  if (at < at_) throw Fault(at, "has passed");
  while (read_ < at || read_ - at < to.size()) {
    if (!ReadMore()) throw Fault(at, "ends early");
  }
  if (to.empty()) return;
  std::memcpy(to.data(), window_.data() + dropped_ + static_cast<size_t>(at - at_), to.size());
}

// The window moves to its front when half of it is gone.
void LiveSource::LetGo(uint64_t at) {
  const uint64_t to = std::clamp(at, at_, read_);
  dropped_ += static_cast<size_t>(to - at_);
  at_ = to;
  if (dropped_ < kReadAtOnce || dropped_ < window_.size() / 2) return;
  window_.erase(window_.begin(), window_.begin() + static_cast<std::ptrdiff_t>(dropped_));
  dropped_ = 0;
}

void LiveSink::Write(mp4::ByteSpan bytes) {
  waiting_.insert(waiting_.end(), bytes.begin(), bytes.end());
  if (waiting_.size() >= kMostWaiting) Flush();
}

void LiveSink::Copy(const mp4::Source& source, uint64_t at, uint64_t bytes) {
  for (mp4::Bytes part; bytes != 0; at += part.size(), bytes -= part.size()) {
    part.resize(static_cast<size_t>(std::min<uint64_t>(bytes, kReadAtOnce)));
    source.Read(at, part);
    Write(part);
  }
}

void LiveSink::Flush() {
  mp4::Bytes bytes = std::exchange(waiting_, {});  // gone, whatever comes of it
  Send(bytes);
  bytes.clear();
  waiting_ = std::move(bytes);
}

void LiveSink::Send(mp4::ByteSpan bytes) {
  while (!bytes.empty()) {
    const ssize_t put = write(descriptor_, bytes.data(), bytes.size());
    if (put >= 0) {
      bytes = bytes.subspan(static_cast<size_t>(put));
    } else if (errno == EAGAIN) {
      Await(descriptor_, POLLOUT);
    } else if (errno == EPIPE) {
      throw ReaderGone{};
    } else if (errno != EINTR) {
      throw Error(name_, std::string("cannot be written: ") + std::strerror(errno));
    }
  }
}

}  // namespace qlnmedia
