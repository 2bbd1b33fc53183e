// Places of pictures as early as a stream's reorder depth tells them: coding orders with the places that they
// are shown at, by hand.

#include "pictures/declared_order.h"

#include <gtest/gtest.h>

#include <vector>

namespace qlnmedia {
namespace {

// Two groups of eight, each with a pyramid of B pictures: three pictures precede another in coding order and
// follow it in presentation order, at most.
const std::vector<int64_t> kPyramid = {0, 8, 4, 2, 1, 3, 6, 5, 7, 16, 12, 10, 9, 11, 14, 13, 15};

struct Told {
  std::vector<uint32_t> places;
  std::vector<size_t> waited;  // pictures that had come when each place was told
};

Told TellAll(DeclaredOrder order, const std::vector<int64_t>& times) {
  Told told;
  for (size_t i = 0; i < times.size(); ++i) {
    EXPECT_TRUE(order.Add({0, times[i]})) << times[i];
    for (; order.ready(); told.places.push_back(order.Take())) told.waited.push_back(i + 1);
  }
  while (told.places.size() < times.size()) told.places.push_back(order.Take());
  return told;
}

TEST(DeclaredOrder, TellsWhatADecoderShows) {
  const Told told = TellAll(DeclaredOrder(3), kPyramid);
  EXPECT_EQ(told.places, std::vector<uint32_t>(kPyramid.begin(), kPyramid.end()));
  // The first picture is shown when four are there, the one at place 8 when all in front of it are shown and
  // three wait beside it.
  ASSERT_GE(told.waited.size(), 2u);
  EXPECT_EQ(told.waited[0], 4u);
  EXPECT_EQ(told.waited[1], 12u);
}

TEST(DeclaredOrder, WithoutReorderingNothingWaits) {
  const Told told = TellAll(DeclaredOrder(0), {0, 1, 2, 3, 4});
  EXPECT_EQ(told.places, (std::vector<uint32_t>{0, 1, 2, 3, 4}));
  EXPECT_EQ(told.waited, (std::vector<size_t>{1, 2, 3, 4, 5}));
}

TEST(DeclaredOrder, WithoutAWordABoundedNumberIsLookedAt) {
  std::vector<int64_t> times;
  for (int64_t i = 0; i < 40; ++i) times.push_back(i);
  const Told told = TellAll(DeclaredOrder({}), times);
  ASSERT_FALSE(told.waited.empty());
  EXPECT_EQ(told.waited[0], PresentationOrder::kAhead + 1);
}

TEST(DeclaredOrder, AGroupEndsWaiting) {
  DeclaredOrder order(3);
  EXPECT_TRUE(order.Add({0, 0}));
  EXPECT_TRUE(order.Add({0, 2}));
  EXPECT_FALSE(order.ready());
  EXPECT_TRUE(order.Add({1, 0}));
  ASSERT_TRUE(order.ready());
  EXPECT_EQ(order.Take(), 0u);
  ASSERT_TRUE(order.ready());
  EXPECT_EQ(order.Take(), 1u);
  EXPECT_FALSE(order.ready());
}

TEST(DeclaredOrder, NoticesWhoeverReordersByMore) {
  DeclaredOrder order(1);
  EXPECT_TRUE(order.Add({0, 0}));
  EXPECT_TRUE(order.Add({0, 6}));
  EXPECT_TRUE(order.Add({0, 4}));
  EXPECT_FALSE(order.Add({0, 2}));
}

}  // namespace
}  // namespace qlnmedia
