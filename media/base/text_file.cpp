// Reads and writes whole text files.

#include "base/text_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "base/error.h"
#include "base/read_error.h"

namespace qlnmedia {

namespace {

constexpr size_t kMostBytes = size_t{256} << 20;

constexpr size_t kBufferBytes = size_t{1} << 16;

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number() const { return number_; }

 private:
  int number_;
};

// Makes a name last. The file stands, whether this can be done or not.
void FlushFolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (opened.number() >= 0) static_cast<void>(fsync(opened.number()));
}

}  // namespace

std::string ReadTextFile(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) throw Error(path, "is a directory");
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.number() < 0) throw Error(path, std::strerror(errno), "check the path");
  std::string text;
  std::array<char, kBufferBytes> piece{};
  while (true) {
    const ssize_t got = read(file.number(), piece.data(), piece.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw ReadError(path, std::string("cannot be read: ") + std::strerror(errno));
    if (got == 0) break;
    text.append(piece.data(), static_cast<size_t>(got));
    if (text.size() > kMostBytes) throw Error(path, "is too large for a caption file");
  }
  return text;
}

TextFileWriter::TextFileWriter(const std::string& path, const UnfinishedCallback& unfinished)
    : path_(path), beside_(fmt::format("{}.{}.part", path, getpid())), unfinished_(unfinished, beside_) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
    throw Error(path, "is no ordinary file", "name a file for the output");
  file_ = open(beside_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file_ < 0) Fail(errno);
}

TextFileWriter::~TextFileWriter() {
  if (file_ >= 0) Drop();
}

void TextFileWriter::Drop() {
  close(std::exchange(file_, -1));
  unlink(beside_.c_str());
}

void TextFileWriter::Fail(int error) const {
  throw Error(path_, fmt::format("cannot be written: {}", std::strerror(error)));
}

void TextFileWriter::Write(std::string_view text) {
  buffer_.append(text);
  if (buffer_.size() >= kBufferBytes) Send();
}

void TextFileWriter::Send() {
  for (std::string_view left = buffer_; !left.empty();) {
    const ssize_t put = write(file_, left.data(), left.size());
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) Fail(put == 0 ? ENOSPC : errno);
    left.remove_prefix(static_cast<size_t>(put));
  }
  buffer_.clear();
}

void TextFileWriter::Finish() {
  try {
    Send();
  } catch (...) {
    Drop();
    throw;
  }
  // Under its name it is whole after a cut of the power as well. Some file systems have nothing to flush.
  if (fsync(file_) != 0 && errno != EINVAL && errno != EROFS && errno != ENOTSUP) {
    const int error = errno;
    Drop();
    Fail(error);
  }
  // What a network's file system could not store is told by now, or by nobody.
  if (close(std::exchange(file_, -1)) == 0 && std::rename(beside_.c_str(), path_.c_str()) == 0)
    return FlushFolderOf(path_);
  const int error = errno;
  unlink(beside_.c_str());
  Fail(error);
}

void WriteTextFile(const std::string& path, const std::string& text) {
  TextFileWriter file(path);
  file.Write(text);
  file.Finish();
}

}  // namespace qlnmedia
