// Several sources behind each other as one: an initialization segment and its media segments.
#ifndef MEDIA_CONTAINER_MP4_JOINED_SOURCE_H
#define MEDIA_CONTAINER_MP4_JOINED_SOURCE_H

#include <memory>
#include <string>
#include <vector>

#include "container/mp4/source.h"

namespace qlnmedia::mp4 {

// A file that is open only while it is read from, so that there may be thousands.
class ClosedFileSource final : public Source {
 public:
  // Throws Error as FileSource does.
  explicit ClosedFileSource(std::string path);
  const std::string& name() const override { return path_; }
  uint64_t size() const override { return size_; }
  void Read(uint64_t at, std::span<uint8_t> to) const override;

 private:
  std::string path_;
  uint64_t size_;
};

class JoinedSource final : public Source {
 public:
  // `name` is what messages call the whole.
  JoinedSource(std::string name, std::vector<std::unique_ptr<Source>> parts);

  const std::string& name() const override { return name_; }
  uint64_t size() const override { return begins_.back(); }
  void Read(uint64_t at, std::span<uint8_t> to) const override;
  uint64_t OriginOf(uint64_t at) const override { return begins_[PartAt(at)]; }

  // Where a part begins; that of the number of parts is the end.
  uint64_t BeginOf(size_t part) const { return begins_[part]; }

 private:
  size_t PartAt(uint64_t at) const;

  std::string name_;
  std::vector<std::unique_ptr<Source>> parts_;
  std::vector<uint64_t> begins_;
};

}  // namespace qlnmedia::mp4

#endif
