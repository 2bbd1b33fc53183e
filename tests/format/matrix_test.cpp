// The colour matrix by raster, and when the configuration store is asked.

#include "qlnutil/format/matrix.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "format/recorded_services.h"
#include "qlnutil/qlnformat.h"

namespace qln::test {
namespace {

using Calls = std::vector<std::string>;

constexpr int32_t kSmallest = std::numeric_limits<int32_t>::min();
const char* const kRead = "kxCFGValueDword -1 Tarnwick\\Advanced ForceVideoRangeMatrix read";
const char* const kWrite0 = "kxCFGValueDword -1 Tarnwick\\Advanced ForceVideoRangeMatrix write 0";

class Matrix : public testing::Test {
 protected:
  void SetUp() override {
    ResetServices();
    ForgetForcedVideoRange();
  }
  void TearDown() override { SetUp(); }
};

struct Row {
  int32_t width;
  int32_t height;
  int32_t first;
  int32_t second;
};

// Matrix numbers without and with the flag.
constexpr Row kRows[] = {
    {720, 486, 0, 1},       {720, 1125, 0, 1},   {721, 1125, 4, 5}, {1920, 1080, 4, 5},  {1920, 1125, 4, 5},
    {1920, 1126, 6, 7},     {720, 1126, 6, 7},   {720, 1125, 0, 1}, {0, 0, 0, 1},        {-1920, 1080, 0, 1},
    {3840, 2160, 6, 7},     {1920, -1080, 4, 5}, {720, -486, 0, 1}, {1920, -1125, 4, 5}, {1920, -1126, 6, 7},
    {720, kSmallest, 6, 7}, {kSmallest, 1, 0, 1}};

void ExpectRows(bool secondRangeAllowed) {
  for (const Row& row : kRows) {
    EXPECT_EQ(GetMatrixBySize(row.width, row.height, 0), row.first) << row.width << 'x' << row.height;
    EXPECT_EQ(GetMatrixBySize(row.width, row.height, 0xFFFFEFFF), row.first)
        << row.width << 'x' << row.height;
    const int32_t flagged = secondRangeAllowed ? row.second : row.first;
    EXPECT_EQ(GetMatrixBySize(row.width, row.height, 0x1000), flagged) << row.width << 'x' << row.height;
    EXPECT_EQ(GetMatrixBySize(row.width, row.height, 0xFFFFFFFF), flagged) << row.width << 'x' << row.height;
  }
}

TEST_F(Matrix, EveryRowWhereTheStoreHoldsNothing) {
  ExpectRows(true);
  // Read once, and the default written so that users find the key.
  EXPECT_EQ(Services().calls, (Calls{kRead, kWrite0}));
}

TEST_F(Matrix, EveryRowWhereTheStoreHolds0) {
  Services().storedDword = 0;
  ExpectRows(true);
  EXPECT_EQ(Services().calls, Calls{kRead});
}

TEST_F(Matrix, Stored1TurnsTheFlagOff) {
  Services().storedDword = 1;
  ExpectRows(false);
  EXPECT_EQ(Services().calls, Calls{kRead});
}

TEST_F(Matrix, OtherStoredValuesDoNot) {
  for (const uint32_t value : {2u, 0x80000001u, 0xFFFFFFFEu}) {
    ForgetForcedVideoRange();
    Services().storedDword = value;
    ExpectRows(true);
  }
}

TEST_F(Matrix, FirstCallReadsTheStoreWhateverTheFlags) {
  Services().storedDword = 1;
  EXPECT_EQ(GetMatrixBySize(1920, 1080, 0), 4);
  EXPECT_EQ(Services().calls, Calls{kRead});
  // What the store says later is not heard.
  Services().storedDword = 0;
  EXPECT_EQ(GetMatrixBySize(1920, 1080, 0x1000), 4);
  EXPECT_EQ(Services().calls, Calls{kRead});
}

TEST_F(Matrix, StoredAllOnesIsReadAgain) {
  Services().storedDword = 0xFFFFFFFF;
  EXPECT_EQ(GetMatrixBySize(1920, 1080, 0x1000), 5);
  EXPECT_EQ(GetMatrixBySize(1920, 1080, 0x1000), 5);
  EXPECT_EQ(Services().calls, (Calls{kRead, kRead}));
  Services().storedDword = 1;
  EXPECT_EQ(GetMatrixBySize(1920, 1080, 0x1000), 4);
}

}  // namespace
}  // namespace qln::test
