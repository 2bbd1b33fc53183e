// qlnmedia transport: the counter's steps printed, and what the command line refuses.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <vector>

#include "qlnmedia/program.h"

namespace qln::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

// The rows of a run: step, position, fraction, play count, index.
std::vector<std::vector<int>> Steps(const std::string& arguments) {
  const CommandResult result = Qlnmedia("transport --json " + arguments);
  EXPECT_EQ(result.exitCode, 0) << result.output;
  std::vector<std::vector<int>> rows;
  const json document = json::parse(result.output);
  for (const json& row : document.at("steps")) {
    rows.push_back(
        {row.at("step"), row.at("position"), row.at("fraction"), row.at("play_count"), row.at("index")});
  }
  return rows;
}

using Rows = std::vector<std::vector<int>>;

TEST(Transport, PlainPlayLoopsAtTheOutPoint) {
  EXPECT_EQ(Steps("--in 100 --out 110 --speed 1 --steps 2 --start 109"),
            (Rows{{0, 109, 0, 1, 0}, {1, 100, 0, 1, 1}, {2, 101, 0, 1, 2}}));
}

TEST(Transport, ReverseComesBackFromTheEnd) {
  EXPECT_EQ(Steps("--in 0 --out 10 --speed -1 --steps 2"),
            (Rows{{0, 0, 0, 1, 0}, {1, 9, 0, 1, 1}, {2, 8, 0, 1, 2}}));
}

TEST(Transport, SlowSpeedsStandOnEachFrame) {
  EXPECT_EQ(Steps("--in 0 --out 0 --speed 0.25 --steps 2 --start 3"),
            (Rows{{0, 3, 0, 4, 0}, {1, 4, 0, 4, 1}, {2, 5, 0, 4, 2}}));
  EXPECT_EQ(Steps("--in 0 --out 0 --speed=-0.25 --steps 2 --start 3"),
            (Rows{{0, 3, 0, 1, 0}, {1, 2, 49140, 4, 1}, {2, 1, 49140, 4, 2}}));
}

TEST(Transport, FastSpeedsMoveByTheSpeed) {
  EXPECT_EQ(Steps("--in 0 --out 0 --speed 1.5 --steps 3 --start 3"),
            (Rows{{0, 3, 0, 1, 0}, {1, 4, 32760, 1, 1}, {2, 6, 0, 1, 2}, {3, 7, 32760, 1, 3}}));
}

// The counter holds speeds in 32 bits, 65520 units for plain play.
TEST(Transport, SpeedsThatTheCounterDoesNotHoldAreRefused) {
  for (const char* speed : {"nan", "inf", "-inf", "32777", "-32777", "1e9", "1e300"}) {
    const CommandResult result = Qlnmedia(std::string("transport --in 0 --out 0 --steps 1 --speed=") + speed);
    EXPECT_EQ(result.exitCode, 2) << speed;
    EXPECT_THAT(result.output, HasSubstr("the limit is 32776 times play")) << speed;
  }
  for (const char* sign : {"", "-"}) {
    const json report = json::parse(
        Qlnmedia(std::string("transport --json --in 0 --out 0 --steps 1 --speed=") + sign + "32776").output);
    EXPECT_EQ(std::abs(report.at("speed").get<int64_t>()), 2147483520);
    EXPECT_EQ(std::abs(report.at("steps").at(1).at("position").get<int64_t>()), 32776);
  }
}

TEST(Transport, AStartOutsideOfTheRangeIsNamed) {
  for (const char* start : {"99", "110"}) {
    const std::string asked =
        std::string("transport --in 100 --out 110 --speed 1 --steps 1 --start ") + start;
    const std::string note =
        std::string("--start ") + start + " is outside of the range, which is 100 to 109";
    EXPECT_THAT(Qlnmedia(asked).output, HasSubstr("note: " + note));
    EXPECT_EQ(json::parse(Qlnmedia(asked + " --json").output).at("notes"), json::array({note}));
  }
  for (const char* inside : {"--in 100 --out 110 --start 100", "--in 100 --out 110 --start 109",
                             "--in 0 --out 0 --start 5", "--in 5 --out 9"}) {
    const CommandResult result = Qlnmedia(std::string("transport --speed 1 --steps 1 --json ") + inside);
    EXPECT_FALSE(json::parse(result.output).contains("notes")) << inside;
  }
}

TEST(Transport, TextForPeople) {
  const CommandResult result = Qlnmedia("transport --in 20 --out 10 --speed 0.5 --steps 1");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.output, HasSubstr("Transport from 10 to 20 at 0.5 times play"));
  EXPECT_THAT(result.output, HasSubstr("32760 units"));
  EXPECT_THAT(result.output, HasSubstr("Play count"));
}

TEST(Transport, RefusesWhatIsNoNumber) {
  for (const char* arguments :
       {"--in 0 --out 10 --speed 1", "--in x --out 10 --speed 1 --steps 1",
        "--in 0 --out 10 --speed fast --steps 1", "--in 0 --out 10 --speed 1 --steps -1",
        "--in 0 --out 9999999999 --speed 1 --steps 1"}) {
    EXPECT_EQ(Qlnmedia(std::string("transport ") + arguments).exitCode, 2) << arguments;
  }
}

}  // namespace
}  // namespace qln::test
