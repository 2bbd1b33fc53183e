// Gathers small pieces, and leaves long ones to the system.

#include "container/mp4/output_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace qlnmedia::mp4 {

namespace {

constexpr size_t kBufferBytes = size_t{1} << 20;
// Shorter runs are cheaper through the buffer.
constexpr uint64_t kLongRun = uint64_t{256} << 10;
constexpr size_t kLongPiece = size_t{128} << 10;
// The disk begins with so much while more is made.
constexpr uint64_t kBegunTogether = uint64_t{32} << 20;

}  // namespace

OutputFile::OutputFile(const std::string& path, Disk& disk, const UnfinishedCallback& unfinished)
    : disk_(disk), path_(path) {
  const size_t slash = path.rfind('/');
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  for (int attempt = 0; attempt < 1000 && descriptor_ < 0; ++attempt) {
    // A long name is cut so that it stays one.
    temporary_ = FolderOf(path) + "/." + name.substr(0, 200) + "." + std::to_string(getpid()) + "-" +
                 std::to_string(attempt) + ".part";
    unfinished_ = std::make_unique<Unfinished>(unfinished, temporary_);
    descriptor_ = open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor_ < 0 && errno != EEXIST) break;
  }
  if (descriptor_ < 0) throw Error(path, std::string("cannot be written: ") + std::strerror(errno));
  buffer_.reserve(kBufferBytes);
}

OutputFile::~OutputFile() {
  if (descriptor_ < 0) return;
  close(descriptor_);
  unlink(temporary_.c_str());
}

void OutputFile::Write(ByteSpan bytes) {
  if (bytes.size() >= kLongPiece || buffer_.size() + bytes.size() > kBufferBytes) FlushBuffer();
  if (bytes.size() < kLongPiece) {
    buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
    return;
  }
  WriteAll(disk_, descriptor_, bytes, at_, path_);
  Wrote(bytes.size());
}

void OutputFile::Wrote(uint64_t bytes) {
  at_ += bytes;
  if (at_ - begun_ < kBegunTogether) return;
  // A hint: what it does not do, the flush at the end does.
  sync_file_range(descriptor_, static_cast<off64_t>(begun_), static_cast<off64_t>(at_ - begun_),
                  SYNC_FILE_RANGE_WRITE);
  begun_ = at_;
}

void OutputFile::Copy(const Source& source, uint64_t at, uint64_t bytes) {
  if (copies_ && source.descriptor() >= 0 && bytes >= kLongRun) {
    FlushBuffer();
    while (bytes > 0) {
      const ssize_t put =
          disk_.CopyRange(source.descriptor(), at, descriptor_, at_, static_cast<size_t>(bytes));
      if (put < 0 && errno == EINTR) continue;
      if (put < 0 && (errno == ENOSPC || errno == EIO || errno == EDQUOT)) {
        throw Error(path_, std::string("cannot write: ") + std::strerror(errno));
      }
      if (put <= 0) {
        copies_ = false;
        break;
      }
      at += static_cast<uint64_t>(put);
      Wrote(static_cast<uint64_t>(put));
      bytes -= static_cast<uint64_t>(put);
    }
  }
  while (bytes > 0) {
    if (buffer_.size() == kBufferBytes) FlushBuffer();
    const size_t piece = static_cast<size_t>(std::min<uint64_t>(bytes, kBufferBytes - buffer_.size()));
    const size_t had = buffer_.size();
    buffer_.resize(had + piece);
    source.Read(at, std::span<uint8_t>(buffer_).subspan(had));
    at += piece;
    bytes -= piece;
  }
}

void OutputFile::FlushBuffer() {
  WriteAll(disk_, descriptor_, buffer_, at_, path_);
  Wrote(buffer_.size());
  buffer_.clear();
}

const std::string& OutputFile::Readable() {
  FlushBuffer();
  return temporary_;
}

void OutputFile::Finish() {
  FlushBuffer();
  FlushFile(disk_, descriptor_, path_);
  if (disk_.Rename(temporary_, path_) != 0) {
    throw Error(path_, std::string("cannot be given its name: ") + std::strerror(errno));
  }
  close(descriptor_);
  descriptor_ = -1;
  FlushFolderOf(disk_, path_);
}

void CarryToFile(const Carrier& carrier, const std::string& path, Disk& disk) {
  OutputFile out(path, disk);
  carrier.Write(out);
  out.Finish();
}

}  // namespace qlnmedia::mp4
