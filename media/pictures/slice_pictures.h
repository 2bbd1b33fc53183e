// Slices of one picture and of two.
#ifndef MEDIA_PICTURES_SLICE_PICTURES_H
#define MEDIA_PICTURES_SLICE_PICTURES_H

#include "pictures/slice_head.h"

namespace qlnmedia {

// Whether two slices of H.264 are of different pictures (ITU-T H.264 clause 7.4.1.2.4).
bool AreOfTwoPictures(const SliceHead& last, const SliceHead& head);

}  // namespace qlnmedia

#endif
