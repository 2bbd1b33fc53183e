// Encodings of frames and private data of a Matroska track (RFC 9559 section 5.1.4.1.31): undone, and done
// again.
#ifndef MEDIA_CONTAINER_MKV_ENCODING_H
#define MEDIA_CONTAINER_MKV_ENCODING_H

#include <vector>

#include "container/mkv/element.h"

namespace qlnmedia::mkv {

struct Encoding {
  enum class Kind { kZlib, kStripped, kEncrypted, kOther };
  Kind kind = Kind::kZlib;
  uint64_t order = 0;
  uint64_t algorithm = 0;
  bool ofFrames = true;
  bool ofPrivateData = false;
  Bytes stripped;  // what is taken off the front
};

// What bytes go through, those that are done first in front.
class Encodings {
 public:
  void Add(Encoding encoding);
  // Behind the last Add.
  void Sort();

  bool encryptsFrames() const;
  bool touchesFrames() const;
  bool touchesPrivateData() const;

  // Throw Error, by the source's name and the place, for an encoding that is not known here, and for bytes
  // that are not encoded so or would become longer than any frame is.
  Bytes Undo(const Source& source, uint64_t at, ByteSpan bytes, bool privateData) const;
  Bytes Do(const Source& source, uint64_t at, ByteSpan bytes, bool privateData) const;

 private:
  std::vector<Encoding> list_;
};

// Of a ContentEncodings element.
Encodings ReadEncodings(Reader& reader, const Element& element, const Limits& limits);

}  // namespace qlnmedia::mkv

#endif
