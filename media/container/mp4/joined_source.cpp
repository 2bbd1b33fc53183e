// Finds the part that a place is in.

#include "container/mp4/joined_source.h"

#include <algorithm>
#include <utility>

namespace qlnmedia::mp4 {

ClosedFileSource::ClosedFileSource(std::string path)
    : path_(std::move(path)), size_(FileSource(path_).size()) {}

void ClosedFileSource::Read(uint64_t at, std::span<uint8_t> to) const { FileSource(path_).Read(at, to); }

JoinedSource::JoinedSource(std::string name, std::vector<std::unique_ptr<Source>> parts)
    : name_(std::move(name)), parts_(std::move(parts)) {
  begins_.push_back(0);
  for (const auto& part : parts_) begins_.push_back(begins_.back() + part->size());
}

size_t JoinedSource::PartAt(uint64_t at) const {
  const auto behind = std::upper_bound(begins_.begin(), begins_.end(), at);
  return static_cast<size_t>(behind - begins_.begin()) - 1;
}

void JoinedSource::Read(uint64_t at, std::span<uint8_t> to) const {
  if (at > size() || to.size() > size() - at) throw Fault(at, "the file ends within what is read");
  for (size_t part = PartAt(at); !to.empty(); ++part) {
    const size_t piece = static_cast<size_t>(std::min<uint64_t>(to.size(), begins_[part + 1] - at));
    parts_[part]->Read(at - begins_[part], to.first(piece));
    at += piece;
    to = to.subspan(piece);
  }
}

}  // namespace qlnmedia::mp4
