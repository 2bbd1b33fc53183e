// Whether the last picture of a stream is all there, shown by an independent decoder.
#ifndef MEDIA_CONTAINER_WHOLE_PICTURE_H
#define MEDIA_CONTAINER_WHOLE_PICTURE_H

#include "units/units.h"

namespace qlnmedia {

// What a decoder is given, in start code form.
struct PictureTrial {
  Codec codec = Codec::kH264;
  Bytes sets;       // parameter sets, and SEI that decoders look at
  Bytes reference;  // a whole picture that needs no other; empty if there is none
  Bytes picture;    // the picture in question: its slices and nothing behind the last of them
};

enum class Wholeness {
  kWhole,
  kCutOff,   // data of the picture is missing
  kUnknown,  // the decoder does not take the picture, or not even the reference
};

// Decodes the picture twice, with different bytes behind its last slice and different contents in the memory
// that it is decoded into. The arithmetic codes of the standards tell where a slice ends, so a whole picture
// comes out the same; one that is cut off reads what stands behind it, or leaves samples that nobody wrote.
// What a picture predicts from has no part in how its data is read, hence one reference serves for all.
Wholeness TryPicture(const PictureTrial& trial);

}  // namespace qlnmedia

#endif
