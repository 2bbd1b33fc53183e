// Timecodes of buffers as texts: of their metas, and of times.
#ifndef GST_TIMECODES_H
#define GST_TIMECODES_H

#include <gst/gst.h>

#include <cstdint>
#include <optional>
#include <string>

#include "qlnmedia/rational.h"

namespace qlngst {

// The frame that is shown `nanoseconds` from the first one; times may be off by a quarter of a frame, and a
// second field, half a frame later, is its frame's.
int64_t FrameAt(int64_t nanoseconds, qlnmedia::Rational rate);

// The timecode `frames` behind another one, "HH:MM:SS:FF" or, for drop-frame, "HH:MM:SS;FF"; midnight begins
// anew. Throws qlnmedia::Error for a text that is none at that rate.
std::string TimecodeBehind(const std::string& first, int64_t frames, qlnmedia::Rational rate);

// That of a buffer's GstVideoTimeCodeMeta; empty where it has none. `problem` is set where it has one that
// does not count frames at that rate.
std::string TimecodeOf(GstBuffer* buffer, qlnmedia::Rational rate, std::string* problem);

}  // namespace qlngst

#endif
