// Rows, lines and help for terminals and programs.

#include "tables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <sstream>

#include "help_text.h"
#include "output.h"

namespace qlnmedia {
namespace {

TEST(Csv, CellsAreQuotedWhereTheyMustBe) {
  EXPECT_EQ(CsvRow({"a", "b c", ""}), "a,b c,\r\n");
  EXPECT_EQ(CsvRow({"a,b", "say \"x\"", "two\nlines"}), "\"a,b\",\"say \"\"x\"\"\",\"two\nlines\"\r\n");
}

TEST(Csv, ValuesAreCells) {
  EXPECT_EQ(CsvCell(nullptr), "");
  EXPECT_EQ(CsvCell("text"), "text");
  EXPECT_EQ(CsvCell(1.4), "1.4");
  EXPECT_EQ(CsvCell(true), "true");
  EXPECT_EQ(CsvCell(Json::array({"CC1", 2})), "CC1 2");
}

TEST(JsonLines, HoldBytesThatAreNoText) {
  EXPECT_EQ(FailedLine({"a\xFF.mp4", ""}, kExitFailure, "is a \"wrong\" one"),
            "{\"file\":\"a\xEF\xBF\xBD.mp4\",\"status\":1,\"error\":\"is a \\\"wrong\\\" one\"}\n");
}

TEST(Status, TheHeaviestCounts) {
  EXPECT_EQ(Combined(kExitNotApplicable, kExitFindings), kExitFindings);
  EXPECT_EQ(Combined(kExitFailure, kExitFindings), kExitFailure);
  EXPECT_EQ(Combined(kExitSuccess, kExitNotApplicable), kExitNotApplicable);
  EXPECT_EQ(Combined(kExitSuccess, kExitSuccess), kExitSuccess);
}

TEST(WrapText, BreaksAtBlanksOnly) {
  EXPECT_EQ(WrapText("one two three", 9, 2), "one two\n  three");
  EXPECT_EQ(WrapText("one two three", 40, 2), "one two three");
  EXPECT_EQ(WrapText("endlessword one", 6, 2), "endlessword\n  one");
  EXPECT_EQ(WrapText("one\ntwo", 40, 1), "one\n two");
}

TEST(Help, KeepsToTheWidthWithoutSplittingWords) {
  CLI::App app{"Shows and checks what media say about themselves, for people and for programs alike.",
               "tool"};
  app.formatter(MakeHelpFormatter(48));
  CLI::App* const sub =
      app.add_subcommand("inspect", "Show what media files say about themselves and their parts");
  bool flag = false;
  sub->add_flag("--a-flag-of-some-length", flag,
                "A description that does not fit into one line of this width");
  app.footer("Exit status: 0 done, 1 failed, 2 wrong usage, 3 done and found something.");
  for (const std::string& help : {app.help(), sub->help()}) {
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 48u) << line;
  }
  EXPECT_THAT(sub->help(), testing::HasSubstr("--a-flag-of-some-length\n                A description"));
}

}  // namespace
}  // namespace qlnmedia
