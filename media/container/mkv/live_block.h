// A block of a cluster that is read as it comes, and the same around other frames.
#ifndef MEDIA_CONTAINER_MKV_LIVE_BLOCK_H
#define MEDIA_CONTAINER_MKV_LIVE_BLOCK_H

#include <string>
#include <vector>

#include "container/mkv/block.h"

namespace qlnmedia::mkv {

class LiveBlock {
 public:
  // `bytes` are a SimpleBlock or a BlockGroup, whole; `name` is what failures call the stream. Throws Error
  // for a group without a block, and for one that is not put together as it says.
  LiveBlock(Bytes bytes, const Limits& limits, std::string name);

  uint64_t track() const { return block_.track; }
  int16_t time() const { return block_.time; }
  bool key() const { return key_; }
  // Its frames, encodings undone.
  std::vector<Bytes> Frames(const Encodings& encodings);
  // The element as it came.
  const Bytes& bytes() const { return bytes_; }
  // The element around other frames, of which there are as many, encodings done.
  Bytes With(const std::vector<Bytes>& frames, const Encodings& encodings) const;

 private:
  Bytes BlockWith(const std::vector<Bytes>& frames) const;

  Bytes bytes_;
  std::string name_;
  Limits limits_;
  Element element_;  // of all of it
  Block block_;
  bool key_ = false;
};

}  // namespace qlnmedia::mkv

#endif
