// The captions that a buffer carries beside its bytes.
#ifndef GST_CAPTIONS_H
#define GST_CAPTIONS_H

#include <gst/gst.h>

#include <optional>
#include <string>
#include <vector>

#include "qlnmedia/caption_triplet.h"
#include "qlnmedia/rational.h"

namespace qlngst {

// The triplets of all GstVideoCaptionMeta of a buffer, one after the other; nothing where it has none. Line
// 21 alone is filled up with padding to the triplets that pictures of that rate carry. `problem` is set where
// one cannot be read, which is then left out.
std::optional<std::vector<qlnmedia::captions::Triplet>> CaptionsOf(GstBuffer* buffer, qlnmedia::Rational rate,
                                                                   std::string* problem);

// Takes them off a buffer.
void RemoveCaptionMetas(GstBuffer* buffer);

}  // namespace qlngst

#endif
