// Limits of memory and time: what is a size, and how a run ends that meets them.

#include "run_limits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "qlnmedia/program.h"
#include "support/sanitizers.h"

namespace qln::test {
namespace {

TEST(Limits, SizesHaveUnits) {
  EXPECT_EQ(qlnmedia::ParseSize("1"), 1u);
  EXPECT_EQ(qlnmedia::ParseSize("3K"), 3072u);
  EXPECT_EQ(qlnmedia::ParseSize("500M"), 524288000u);
  EXPECT_EQ(qlnmedia::ParseSize("2G"), 2147483648u);
  EXPECT_EQ(qlnmedia::ParseSize("17179869183G"), 18446744072635809792u);
  for (const char* const none : {"", "0", "0M", "M", "1T", "1MB", "-1", "1.5G", "17179869184G"})
    EXPECT_EQ(qlnmedia::ParseSize(none), 0u) << none;
}

TEST(Limits, WrongOnesAreUsageErrors) {
  EXPECT_EQ(AskedQlnmedia("--max-memory 1T inspect x").exitCode, 2);
  EXPECT_EQ(AskedQlnmedia("inspect x --max-memory 0").exitCode, 2);
  EXPECT_EQ(AskedQlnmedia("inspect x --max-seconds soon").exitCode, 2);
}

TEST(Limits, OfTimeEndsARunThatWaits) {
  const std::string pipe = MediaPath("stalled");
  const auto begin = std::chrono::steady_clock::now();
  // Somebody has the pipe open, and nothing comes through.
  const CommandResult result =
      qln::test::Run("rm -f '" + pipe + "'; mkfifo '" + pipe + "'; (exec sleep 15 >'" + pipe +
                     "' 2>/dev/null) & '" QLNMEDIA_PROGRAM "' --max-seconds 1 captions '" + pipe + "'");
  EXPECT_EQ(result.exitCode, 1) << result.output;
  EXPECT_EQ(result.output, "qlnmedia: stopped after 1 seconds, which --max-seconds allows\n");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(14));
}

#if !defined(QLN_ADDRESS_SANITIZER) && !defined(QLN_THREAD_SANITIZER)
TEST(Limits, OfMemoryIsOneLine) {
  const std::string large = MediaPath("large_text");
  WriteFile(large, Bytes(size_t{8} << 20, ' '));
  const CommandResult result = AskedQlnmedia("--max-memory 6M command convert '" + large + "'");
  EXPECT_EQ(result.exitCode, 1) << result.output;
  EXPECT_EQ(result.output, "qlnmedia: out of memory; --max-memory allows 6M\n");
  const CommandResult enough = AskedQlnmedia("command --max-memory 1G convert '" + large + "'");
  EXPECT_EQ(enough.output.find("memory"), std::string::npos) << enough.output;
  std::filesystem::remove(large);
}
#endif

}  // namespace
}  // namespace qln::test
