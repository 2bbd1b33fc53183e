// A frame in length form, worked on as a private copy with start codes, and put back as a whole or not at
// all.
#ifndef QLNUTIL_INBAND_MARKER_COPY_H
#define QLNUTIL_INBAND_MARKER_COPY_H

#include <cstdint>

#include "qlnutil/bits/private_copy.h"
#include "qlnutil/qlnframe.h"

namespace qln {

class MarkerCopy {
 public:
  // Copies the frame and turns the copy into marker form. room: zero bytes to have behind it.
  MarkerCopy(const DFrame& frame, uint32_t room);

  // False when there was no memory.
  bool ok() const { return bytes_.ok(); }
  uint8_t* data() { return bytes_.data(); }
  // What the conversion returned: the frame's size, or less where a length is 0.
  uint32_t convertedSize() const { return convertedSize_; }

  // Puts the first `size` bytes of the copy into the frame in length form and stores the new size. A start
  // code of three bytes grows by one there: where the frame has no room for that, it stays as it was and the
  // result is false. Where none has to grow, no room is asked for: the caller has seen to it that `size`
  // bytes fit.
  bool PutBack(DFrame* frame, uint32_t size);

 private:
  PrivateCopy bytes_;
  uint32_t convertedSize_ = 0;
};

}  // namespace qln

#endif
