// What boxes are read from: a file that is never held in memory, or bytes, behind one small face.
#ifndef MEDIA_CONTAINER_MP4_SOURCE_H
#define MEDIA_CONTAINER_MP4_SOURCE_H

#include <cstdint>
#include <span>
#include <string>

#include "base/error.h"
#include "container/mp4/bytes.h"

namespace qlnmedia::mp4 {

// Bytes of a known number that do not change while they are read.
class Source {
 public:
  virtual ~Source() = default;
  // What messages call it.
  virtual const std::string& name() const = 0;
  virtual uint64_t size() const = 0;
  // Fills `to` with the bytes from `at` on. Throws Error where they are not there or cannot be read.
  virtual void Read(uint64_t at, std::span<uint8_t> to) const = 0;
  // Says that bytes will be read soon, so that a disk may fetch many such places at once. Changes nothing
  // else, and may do nothing.
  virtual void Announce(uint64_t at, uint64_t bytes) const {
    static_cast<void>(at);
    static_cast<void>(bytes);
  }
  // Where the file begins that holds a place: what its boxes name by absolute places counts from there. 0 but
  // where several files are read as one.
  virtual uint64_t OriginOf(uint64_t at) const {
    static_cast<void>(at);
    return 0;
  }
  // A descriptor that the system can copy from; -1 where there is none.
  virtual int descriptor() const { return -1; }

  // The error for what does not fit at a place, as "in.mp4: the box 'stco' at byte 1234 ...".
  Error Fault(uint64_t at, const std::string& what) const;

 protected:
  Source() = default;
  Source(const Source&) = default;
  Source& operator=(const Source&) = default;
};

// A file on disk, open for reading as long as this lives.
class FileSource final : public Source {
 public:
  // Throws Error where the file cannot be opened or is none that has a size.
  explicit FileSource(const std::string& path);
  ~FileSource() override;
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;

  const std::string& name() const override { return path_; }
  uint64_t size() const override { return size_; }
  void Read(uint64_t at, std::span<uint8_t> to) const override;
  void Announce(uint64_t at, uint64_t bytes) const override;
  int descriptor() const override { return descriptor_; }

 private:
  std::string path_;
  int descriptor_ = -1;
  uint64_t size_ = 0;
};

// Bytes in memory, which the caller keeps.
class MemorySource final : public Source {
 public:
  explicit MemorySource(ByteSpan bytes, std::string name = "memory")
      : bytes_(bytes), name_(std::move(name)) {}

  const std::string& name() const override { return name_; }
  uint64_t size() const override { return bytes_.size(); }
  void Read(uint64_t at, std::span<uint8_t> to) const override;

 private:
  ByteSpan bytes_;
  std::string name_;
};

// Numbers out of a source through a window of a few kilobytes, so that neither a table nor a call for each
// number costs anything. Not for several threads.
class Reader {
 public:
  explicit Reader(const Source& source, size_t windowBytes = 4096)
      : source_(&source), windowBytes_(windowBytes) {}

  const Source& source() const { return *source_; }
  uint64_t size() const { return source_->size(); }
  // The `bytes` (1 to 8) bytes at `at` as a number. Throws Error where the source has none there.
  uint64_t Number(uint64_t at, size_t bytes);
  uint8_t U8(uint64_t at) { return static_cast<uint8_t>(Number(at, 1)); }
  uint16_t U16(uint64_t at) { return static_cast<uint16_t>(Number(at, 2)); }
  uint32_t U32(uint64_t at) { return static_cast<uint32_t>(Number(at, 4)); }
  uint64_t U64(uint64_t at) { return Number(at, 8); }
  Bytes Run(uint64_t at, uint64_t bytes) const;

 private:
  const Source* source_;
  size_t windowBytes_;
  Bytes window_;
  uint64_t windowAt_ = 0;
};

}  // namespace qlnmedia::mp4

#endif
