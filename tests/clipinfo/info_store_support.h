// A record that is full.
#ifndef TESTS_CLIPINFO_INFO_STORE_SUPPORT_H
#define TESTS_CLIPINFO_INFO_STORE_SUPPORT_H

#include <gtest/gtest.h>

#include "clipinfo/clip_info_support.h"
#include "clipinfo/expected_fields.h"
#include "support/test_support.h"

namespace qln::test {

inline constexpr char kSection[] = "Tarnwick\\MetaData\\Default";

inline void Fill(Record& record) {
  for (size_t i = 0; i < kSlots; ++i) record.setText(i, "text of " + std::to_string(i));
  for (size_t i = 0; i < kNumbers; ++i) *record.number(i) = 1000 + static_cast<uint32_t>(i);
}

}  // namespace qln::test

#endif
