// A caption part in use, and what is read into it.
#ifndef TESTS_INBAND_CAPTION_READ_SUPPORT_H
#define TESTS_INBAND_CAPTION_READ_SUPPORT_H

#include <gtest/gtest.h>

#include <cstring>

#include "qlnutil/qlninband.h"
#include "support/test_support.h"

namespace qln::test {

// A caption part full of 0xEE, to see what is touched.
inline DFrameCaptionPart UsedPart() {
  DFrameCaptionPart part;
  std::memset(static_cast<void*>(&part), 0xEE, sizeof part);
  return part;
}

inline Bytes CaptionOf(const DFrameCaptionPart& part) {
  return Bytes(part.captionData, part.captionData + part.captionSize);
}

inline void ExpectUntouchedBeside(const DFrameCaptionPart& part, size_t used) {
  EXPECT_EQ(part.timeCodeA, 0xEEEEEEEEu);
  EXPECT_EQ(part.timeCodeB, 0xEEEEEEEEu);
  EXPECT_EQ(part.timeCodeC, 0xEEEEEEEEu);
  for (size_t i = used; i < sizeof part.captionData; ++i) ASSERT_EQ(part.captionData[i], 0xEE) << i;
}

}  // namespace qln::test

#endif
