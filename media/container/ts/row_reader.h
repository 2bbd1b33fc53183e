// The rows of a transport stream's file, one after the other: all of its bytes.
#ifndef MEDIA_CONTAINER_TS_ROW_READER_H
#define MEDIA_CONTAINER_TS_ROW_READER_H

#include <cstdint>
#include <deque>

#include "container/mp4/source.h"
#include "container/ts/packet.h"

namespace qlnmedia::ts {

class RowReader {
 public:
  // Throws Error where the source has no packets. It is kept by the caller. Rows stay where they are until
  // the next one is read; with `keep` until they are forgotten.
  explicit RowReader(const mp4::Source& source, bool keep = false);

  const PacketForm& form() const { return form_; }
  // Where the next row begins.
  uint64_t at() const { return at_; }
  // The next packet, or up to 188 bytes between packets; false at the end.
  bool Next(Row& row);
  // Rows that end at `place` or in front of it may go.
  void Forget(uint64_t place);

 private:
  // Bytes of the file, from the beginning of a row on.
  struct Block {
    uint64_t at = 0;
    Bytes bytes;
  };
  // The bytes that are there from the next row on, at least so many unless the source ends; 0 at its end.
  size_t Fetch(size_t least);
  void ReadBlock(uint64_t there);

  const mp4::Source& source_;
  bool keep_;
  PacketForm form_;
  uint64_t at_ = 0;
  std::deque<Block> blocks_;  // the last one is read from
  Bytes spare_;
};

}  // namespace qlnmedia::ts

#endif
