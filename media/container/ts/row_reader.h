// The rows of a transport stream's file, one after the other: all of its bytes.
#ifndef MEDIA_CONTAINER_TS_ROW_READER_H
#define MEDIA_CONTAINER_TS_ROW_READER_H

#include <cstdint>

#include "container/mp4/source.h"
#include "container/ts/packet.h"

namespace qlnmedia::ts {

class RowReader {
 public:
  // Throws Error where the source has no packets. It is kept by the caller.
  explicit RowReader(const mp4::Source& source);

  const PacketForm& form() const { return form_; }
  // Where the next row begins.
  uint64_t at() const { return at_; }
  // The next packet, or up to 188 bytes between packets; false at the end.
  bool Next(Row& row);

 private:
  const mp4::Source& source_;
  PacketForm form_;
  uint64_t at_ = 0;
  Bytes window_;
  uint64_t windowAt_ = 0;
};

}  // namespace qlnmedia::ts

#endif
