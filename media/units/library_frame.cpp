// Lays units out as the library takes frames.

#include "units/library_frame.h"

namespace qlnmedia {

namespace {

constexpr size_t kRoom = 1024;  // more than any unit that the library makes

}  // namespace

LibraryFrame::LibraryFrame(const std::vector<Bytes>& units) {
  for (const Bytes& unit : units) {
    data_.insert(data_.end(), {0, 0, 0, 1});
    data_.insert(data_.end(), unit.begin(), unit.end());
  }
  sizeBefore_ = static_cast<uint32_t>(data_.size());
  data_.resize(data_.size() + kRoom);
  frame_.frameData = data_.data();
  frame_.frameSize = sizeBefore_;
  frame_.frameCapacity = static_cast<uint32_t>(data_.size());
}

std::vector<Unit> LibraryFrame::units() const {
  return TakeApart(ByteSpan(data_).first(frame_.frameSize), Framing{}).units;
}

Bytes SliceStub(Codec codec) {
  if (codec == Codec::kH264) return {0x65, 0x88, 0x80};
  return {0x26, 0x01, 0x80};
}

}  // namespace qlnmedia
