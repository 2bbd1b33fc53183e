// Pictures between start codes without the most of their slices, which no editor looks at.
#ifndef MEDIA_PATCH_CUT_PICTURE_H
#define MEDIA_PATCH_CUT_PICTURE_H

#include <string>
#include <vector>

#include "units/units.h"

namespace qlnmedia {

// A picture with long slices cut down to their heads, and what became of it put back into the whole.
class CutPicture {
 public:
  CutPicture() = default;
  // `whole` is not kept.
  CutPicture(Codec codec, ByteSpan whole);

  // What an editor is given.
  const Bytes& given() const { return given_; }
  // The bytes of the picture.
  size_t size() const { return size_; }

  // The picture from its begin to its end: bytes that may have changed, and behind them bytes of the picture
  // that stay.
  struct Part {
    size_t at = 0;     // of `was` in the picture
    ByteSpan was;      // in what was given
    ByteSpan is;       // in what came back
    size_t rest = 0;   // bytes of the picture behind `was` that stay
    uint8_t last = 0;  // the last of them
  };
  // Of what came back, which must be kept as long as the parts. Throws Error, with `where` in front, where it
  // lacks one of the slices.
  std::vector<Part> PartsOf(const Bytes& edited, const std::string& where) const;

 private:
  struct Cut {
    size_t at = 0;     // of the slice in what is given
    size_t slice = 0;  // which of the slices, from 0
    size_t head = 0;   // bytes of it that are given,
    size_t rest = 0;   // and those that are not
    uint8_t last = 0;
  };

  Codec codec_ = Codec::kH264;
  Bytes given_;
  size_t size_ = 0;
  std::vector<Cut> cuts_;
};

}  // namespace qlnmedia

#endif
