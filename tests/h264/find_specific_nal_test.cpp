// The search for one of a frame's units.

#include "h264/h264_test_support.h"

namespace qln {
namespace {

using test::Bytes;
using test::ExactCopy;
using test::Hex;
using test::Join;
using test::WithLength;

constexpr uint32_t kUntouched = 0x77777777u;

struct Found {
  uint32_t result;
  int64_t offset;  // -1: null
  uint32_t size;
  bool operator==(const Found&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Found& found) {
  return out << found.result << " at " << found.offset << ", " << found.size;
}

Found Find(const Bytes& bytes, int32_t mode, uint8_t header) {
  ExactCopy copy(bytes);
  uint8_t* unit = copy.data();
  uint32_t size = kUntouched;
  Found found{};
  found.result =
      qlnUtilFindSpecificNAL(copy.data(), static_cast<uint32_t>(bytes.size()), mode, header, &unit, &size);
  found.offset = unit == nullptr ? -1 : unit - copy.data();
  found.size = size;
  return found;
}

TEST(FindSpecificNal, GivesPrefixAndLengthPlusFour) {
  const Bytes frame = Join({WithLength(Hex("09 10")), WithLength(Hex("67 42 00")), WithLength(Hex("68 CE"))});
  EXPECT_EQ(Find(frame, 0, 0x67), (Found{1, 6, 7}));
  EXPECT_EQ(Find(frame, 0, 0x09), (Found{1, 0, 6}));
  EXPECT_EQ(Find(frame, 0, 0x68), (Found{1, 13, 6}));  // the last one
  EXPECT_EQ(Find(frame, 0, 0x27), (Found{0, -1, 0}));
  EXPECT_EQ(Find(frame, 0, 0x42), (Found{0, -1, 0}));
}

TEST(FindSpecificNal, DoesNotTakeAnotherRefIdc) {
  EXPECT_EQ(Find(WithLength(Hex("27 42 00")), 0, 0x67), (Found{0, -1, 0}));
  EXPECT_EQ(Find(WithLength(Hex("27 42 00")), 0, 0x27), (Found{1, 0, 7}));
}

TEST(FindSpecificNal, ALastLengthComesBackUncut) {
  EXPECT_EQ(Find(Hex("00 00 10 00 67 42"), 0, 0x67), (Found{1, 0, 0x1004}));
  EXPECT_EQ(Find(Hex("FF FF FF FF 67 42"), 0, 0x67), (Found{1, 0, 3}));
  EXPECT_EQ(Find(Hex("FF FF FF FC 67 42"), 0, 0x67), (Found{0, 0, 0}));
}

TEST(FindSpecificNal, RefusesWhatIsTooShort) {
  uint8_t* unit = reinterpret_cast<uint8_t*>(&unit);
  uint8_t* const before = unit;
  uint32_t size = 5;
  EXPECT_EQ(qlnUtilFindSpecificNAL(nullptr, 100, 0, 0x67, &unit, &size), 0u);
  Bytes frame = Hex("00 00 00 01 67 42");
  EXPECT_EQ(qlnUtilFindSpecificNAL(frame.data(), 3, 0, 0x67, &unit, &size), 0u);
  EXPECT_EQ(unit, before);
  EXPECT_EQ(size, 5u);
  EXPECT_EQ(qlnUtilFindSpecificNAL(frame.data(), 6, 0, 0x67, nullptr, &size), 0u);
  EXPECT_EQ(qlnUtilFindSpecificNAL(frame.data(), 6, 0, 0x67, &unit, nullptr), 0u);
  EXPECT_EQ(unit, before);
  EXPECT_EQ(size, 5u);
  EXPECT_EQ(qlnUtilFindSpecificNAL(frame.data(), 4, 0, 0x67, &unit, &size), 0u);
  EXPECT_EQ(unit, nullptr);
  EXPECT_EQ(size, 0u);
}

TEST(FindSpecificNal, MarkerFormIsSearchedLoosely) {
  const Bytes frame = Hex("00 00 00 01 67 42 11 12 00 00 00 01 68 CE 38 80 21 22");
  // The stop comes two bytes ahead of the zero at 8.
  EXPECT_EQ(Find(frame, 1, 0x67), (Found{1, 0, 6}));
  // The walk goes on at each stop: at 6 the byte behind 4 is 00, at 8 (from 10 on the search begins anew)...
  EXPECT_EQ(Find(Hex("00 00 00 01 67 42 11 12 13 14"), 1, 0x67), (Found{1, 0, 6}));  // last: four bytes short
  EXPECT_EQ(Find(Hex("00 00 00 01 67 42 11 12 13"), 1, 0x67), (Found{1, 0, 5}));
  EXPECT_EQ(Find(Hex("00 00 00 01 67 42 11 01 13 14 15 16"), 1, 0x67), (Found{1, 0, 4}));  // a 1 ends it too
  EXPECT_EQ(Find(Hex("00 00 00 01 67"), 1, 0x67), (Found{1, 0, 4}));
  // A zero byte directly behind the header byte, which stands where the search begins.
  EXPECT_EQ(Find(Hex("00 00 00 01 67 00 11 12 13 14 15 16"), 1, 0x67), (Found{1, 0, 4}));
}

TEST(FindSpecificNal, ManyEmptyUnitsCostNoMoreThanTheirBytes) {
  const Bytes frame(4 << 20, 0);
  EXPECT_EQ(Find(frame, 0, 0x67), (Found{0, -1, 0}));
  EXPECT_EQ(Find(frame, 1, 0x67), (Found{0, -1, 0}));
  EXPECT_EQ(Find(frame, 0, 0).result, 1u);
}

}  // namespace
}  // namespace qln
