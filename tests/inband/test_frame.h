// A coded frame over memory of exactly its capacity.
#ifndef TESTS_INBAND_TEST_FRAME_H
#define TESTS_INBAND_TEST_FRAME_H

#include <algorithm>
#include <cstring>

#include "qlnutil/qlnframe.h"
#include "support/test_support.h"

namespace qln::test {

// A frame over an exact-size heap block of `capacity` bytes, 0xA5 behind the frame's own.
class TestFrame {
 public:
  TestFrame(const Bytes& bytes, size_t capacity) : block_(Filled(bytes, capacity)) {
    std::memset(&frame_, 0, sizeof frame_);
    frame_.frameData = block_.data();
    frame_.frameSize = static_cast<uint32_t>(bytes.size());
    frame_.frameCapacity = static_cast<uint32_t>(capacity);
  }

  DFrame* operator->() { return &frame_; }
  DFrame* get() { return &frame_; }

  void SetCaption(const Bytes& packet) {
    std::memcpy(frame_.captionData, packet.data(), std::min(packet.size(), sizeof frame_.captionData));
    frame_.captionSize = static_cast<uint32_t>(packet.size());
  }

  // The frame's bytes, and everything up to the capacity.
  Bytes bytes() { return Bytes(block_.data(), block_.data() + frame_.frameSize); }
  Bytes block() { return block_.bytes(); }

 private:
  static Bytes Filled(const Bytes& bytes, size_t capacity) {
    Bytes block(std::max(capacity, bytes.size()), 0xA5);
    std::copy(bytes.begin(), bytes.end(), block.begin());
    return block;
  }

  ExactCopy block_;
  DFrame frame_;
};

}  // namespace qln::test

#endif
