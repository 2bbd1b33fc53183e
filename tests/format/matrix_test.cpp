// The colour matrix by raster, and when the configuration store is asked.

#include "qlnutil/format/matrix.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "format/recorded_services.h"
#include "kxutil/kxutil.h"
#include "kxutil/store_test_support.h"
#include "qlnutil/qlnformat.h"
#include "support/test_support.h"

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

// The real store, in a file of its own.
class MatrixStore : public testing::Test {
 protected:
  void SetUp() override {
    kxCFGSetDefaultStore((folder_ / "settings.db").c_str());
    ResetServices();
    Services().asksRealStore = true;
    ForgetForcedVideoRange();
  }
  void TearDown() override {
    ResetServices();
    ForgetForcedVideoRange();
    kxCFGSetDefaultStore(nullptr);
  }
  static std::optional<uint32_t> Stored() {
    return GetNumber(KX_DEFAULT_STORE, "Tarnwick\\Advanced", "ForceVideoRangeMatrix");
  }
  static void Store(uint32_t value) {
    ASSERT_EQ(SetNumber(KX_DEFAULT_STORE, "Tarnwick\\Advanced", "ForceVideoRangeMatrix", value), 0);
  }
  TemporaryFolder folder_;
};

TEST_F(MatrixStore, TheFirstCallMakesTheKeyVisible) {
  EXPECT_EQ(Stored(), std::nullopt);
  ExpectRows(true);
  EXPECT_EQ(Stored(), 0u);
}

TEST_F(MatrixStore, AUsersValueIsHeardByTheNextProcessAndLeftAsItIs) {
  for (const uint32_t value : {1u, 0u, 7u, 1u}) {
    Store(value);
    ForgetForcedVideoRange();
    ExpectRows(value != 1);
    EXPECT_EQ(Stored(), value);
  }
  // Within a process the first answer stands.
  Store(0);
  ExpectRows(false);
}

TEST_F(MatrixStore, ATextUnderTheKeyCountsAsAbsent) {
  ASSERT_EQ(SetText(KX_DEFAULT_STORE, "Tarnwick\\Advanced", "ForceVideoRangeMatrix", "1"), 0);
  ExpectRows(true);
  EXPECT_EQ(Stored(), 0u);
}

TEST_F(MatrixStore, AStoreThatCannotBeWrittenIsAskedOnce) {
  // A folder stands where the file would.
  ASSERT_TRUE(std::filesystem::create_directory(folder_ / "settings.db"));
  MessageCapture messages;
  ExpectRows(true);
  EXPECT_EQ(Services().calls, (Calls{kRead, kWrite0}));
}

}  // namespace
}  // namespace qln::test
