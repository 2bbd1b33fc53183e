// A reader's own copy of a unit, short or long: room for the unit, and zero bytes behind it.

#include "qlnutil/bits/private_copy.h"

#include <gtest/gtest.h>

#include <cstring>

namespace qln {
namespace {

TEST(PrivateCopy, HasZerosBehindAUnitOfAnySize) {
  for (const uint64_t size : {0u, 1u, 1007u, 1008u, 1009u, 1024u, 5000u, 100000u}) {
    PrivateCopy copy(size);
    ASSERT_TRUE(copy.ok());
    std::memset(copy.data(), 0xEE, size);
    for (uint64_t i = 0; i < kCopySlack; ++i) EXPECT_EQ(copy.data()[size + i], 0) << size << " " << i;
  }
}

TEST(PrivateCopy, IsNotOkForASizeThatNoMemoryHas) {
  EXPECT_FALSE(PrivateCopy(~uint64_t{0} - kCopySlack).ok());
}

}  // namespace
}  // namespace qln
