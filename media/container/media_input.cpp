// Opens pipes and keeps what comes out of them.

#include "container/media_input.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/error.h"
#include "base/read_error.h"

namespace qlnmedia {

namespace {

constexpr char kStandardInput[] = "/dev/stdin";
// The readers of a report go through so much of a pipe several times.
constexpr size_t kMostHead = size_t{64} << 20;
// What a raw stream's end is judged by, as of a file.
constexpr size_t kMostTail = size_t{16} << 20;
// A writer that is started together with its reader has opened the pipe by then.
constexpr std::chrono::seconds kPatience{5};

bool PassesOnce(mode_t mode) { return S_ISFIFO(mode) || S_ISCHR(mode) || S_ISSOCK(mode); }

int OpenPipe(const std::string& path) {
  // No wait for a writer: AwaitWriter does that, for a while.
  const int opened = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (opened >= 0) return opened;
  // A socket that stands in for standard input has a descriptor and no path.
  const int copied = path == kStandardInput ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3) : -1;
  if (copied < 0) throw Error(path, std::strerror(errno));
  return copied;
}

// A named pipe may be opened before its writer is there. Returns the first bytes.
Bytes AwaitWriter(int descriptor, const std::string& path) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  Bytes first(4096);
  while (true) {
    pollfd one{descriptor, POLLIN, 0};
    poll(&one, 1, 50);
    const ssize_t got = read(descriptor, first.data(), first.size());
    const bool writer = got > 0 || (got < 0 && errno == EAGAIN) || (one.revents & POLLHUP) != 0;
    if (writer) {
      first.resize(got > 0 ? static_cast<size_t>(got) : 0);
      return first;
    }
    if (got < 0 && errno != EINTR) throw Error(path, std::string("cannot be read: ") + std::strerror(errno));
    if (std::chrono::steady_clock::now() > end)
      throw Error(path, "is a pipe that nobody writes to", "start its writer first, or name a file");
  }
}

}  // namespace

PipeTape::PipeTape(int descriptor, std::string path) : descriptor_(descriptor), path_(std::move(path)) {
  struct stat status {};
  if (fstat(descriptor_, &status) == 0 && S_ISFIFO(status.st_mode)) {
    try {
      const Bytes first = AwaitWriter(descriptor_, path_);
      Keep(first);
    } catch (...) {
      close(descriptor_);
      throw;
    }
  }
}

PipeTape::~PipeTape() { close(descriptor_); }

bool PipeTape::AwaitBytes() const {
  while (true) {
    int wait = -1;
    if (end_) {
      const auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(*end_ - std::chrono::steady_clock::now());
      wait = static_cast<int>(std::max<int64_t>(left.count(), 0));
    }
    pollfd one{descriptor_, POLLIN, 0};
    const int ready = poll(&one, 1, wait);
    if (ready > 0) return true;
    if (ready == 0) return false;
    if (errno != EINTR) throw Error(path_, std::strerror(errno));
  }
}

void PipeTape::Keep(ByteSpan bytes) {
  size_ += bytes.size();
  const size_t toHead = std::min(bytes.size(), kMostHead - head_.size());
  head_.insert(head_.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(toHead));
  const ByteSpan rest = bytes.subspan(toHead);
  if (rest.empty()) return;
  last_.emplace_back(rest.begin(), rest.end());
  lastBytes_ += rest.size();
  while (lastBytes_ - last_.front().size() >= kMostTail) {
    lastBytes_ -= last_.front().size();
    last_.pop_front();
  }
}

size_t PipeTape::Read(uint64_t at, std::span<uint8_t> to) {
  if (at < head_.size()) {
    const size_t count = std::min<size_t>(to.size(), head_.size() - at);
    std::copy_n(head_.begin() + static_cast<std::ptrdiff_t>(at), count, to.begin());
    return count;
  }
  if (at != size_ || ended_) return 0;
  while (AwaitBytes()) {
    const ssize_t got = read(descriptor_, to.data(), to.size());
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (got < 0) throw Error(path_, std::string("cannot be read: ") + std::strerror(errno));
    ended_ = got == 0;
    Keep(to.first(static_cast<size_t>(got)));
    return static_cast<size_t>(got);
  }
  return 0;
}

Bytes PipeTape::Tail() const {
  Bytes tail;
  // Where little is behind the head, its end belongs to the last bytes as well.
  const size_t ofHead = lastBytes_ < kMostTail ? std::min(head_.size(), kMostTail - lastBytes_) : 0;
  tail.insert(tail.end(), head_.end() - static_cast<std::ptrdiff_t>(ofHead), head_.end());
  for (const Bytes& piece : last_) tail.insert(tail.end(), piece.begin(), piece.end());
  return tail;
}

MediaInput::MediaInput(const std::string& path) : path_(path) {
  struct stat status {};
  const bool input = path == kStandardInput;
  const int result = input ? fstat(STDIN_FILENO, &status) : stat(path.c_str(), &status);
  // Of a path that leads nowhere whoever opens it says what is wrong.
  if (result != 0 && (input || errno == EIO || errno == ENOMEM)) throw ReadError(path, std::strerror(errno));
  if (result != 0 || !PassesOnce(status.st_mode)) return;
  const int descriptor = OpenPipe(path);
  if (isatty(descriptor) != 0) {
    close(descriptor);
    throw Error(path, "is a terminal", "name a file, or give media by a pipe");
  }
  tape_ = std::make_shared<PipeTape>(descriptor, path);
}

std::unique_ptr<mp4::Source> MediaInput::Boxes() const {
  if (isPipe()) return std::make_unique<mp4::MemorySource>(tape_->head(), path_);
  return std::make_unique<mp4::FileSource>(path_);
}

void MediaInput::RequireFile(const std::string& what) const {
  if (isPipe()) throw Error(path_, "is a pipe, and " + what + " needs a file", "save it to a file first");
}

}  // namespace qlnmedia
