// The report model: both printers show the same facts.

#include "report_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace qlnmedia {
namespace {

using testing::HasSubstr;

Section Sample() {
  Section report;
  Section& container = report.AddSection("container", "clip.mp4");
  container.Add("size", "Size", 1234567, "1.2 MB");
  container.Add("format_name", "Container name", "mp4");
  report.AddToList("streams", "Stream 0").Add("index", "Index", 0);
  Section& second = report.AddToList("streams", "Stream 1");
  second.Add("interlaced", "Interlaced", true, "", "top field first");
  second.AddTable("units", "Units", {{"type", "Type", true}, {"name", "Name"}},
                  {{Cell(7), Cell("SPS")}, {Cell(8), Cell("PPS")}, {Cell(1, "one"), Cell(nullptr)}});
  second.AddElements(
      "elements", "Elements",
      {{"profile_idc", 100, ""}, {"lists", Json::array({1, 2, 3}), ""}, {"level_idc", 31, "odd"}});
  second.AddNote("cut off");
  return report;
}

TEST(Report, TextAlignsFactsAndTables) {
  EXPECT_EQ(ReportText(Sample(), Style(false), 100),
            "clip.mp4\n"
            "  Size            1.2 MB\n"
            "  Container name  mp4\n"
            "\n"
            "Stream 0\n"
            "  Index  0\n"
            "\n"
            "Stream 1\n"
            "  Interlaced  yes  (top field first)\n"
            "  Units\n"
            "    Type  Name\n"
            "       7  SPS\n"
            "       8  PPS\n"
            "     one  -\n"
            "  Elements\n"
            "    profile_idc 100\n"
            "    lists       1 2 3\n"
            "    level_idc   31  (odd)\n"
            "  note: cut off\n");
}

TEST(Report, JsonKeepsValuesAndOrder) {
  EXPECT_EQ(Sample().ToJson().dump(),
            R"({"container":{"size":1234567,"format_name":"mp4"},"streams":[{"index":0},{"interlaced":true,)"
            R"("units":[{"type":7,"name":"SPS"},{"type":8,"name":"PPS"},{"type":1,"name":null}],)"
            R"("elements":{"profile_idc":100,"lists":[1,2,3],"level_idc":31},)"
            R"("elements_notes":{"level_idc":"odd"},"notes":["cut off"]}]})");
}

TEST(Report, ShortElementsStandInColumnsReadDownwards) {
  Section report;
  report.AddElements("e", "", {{"aa", 1, ""}, {"b", 22, ""}, {"ccc", 3, ""}, {"d", -4, ""}});
  EXPECT_EQ(ReportText(report, Style(false), 16), "aa   1   ccc  3\nb   22   d   -4\n");
  EXPECT_EQ(ReportText(report, Style(false), 10), "aa   1\nb   22\nccc  3\nd   -4\n");
}

TEST(Report, LongArraysAreBrokenIntoLinesOfSixteen) {
  Section report;
  Json list = Json::array();
  for (int i = 0; i < 17; ++i) list.push_back(i);
  report.AddElements("e", "", {{"list", list, ""}});
  EXPECT_EQ(ReportText(report, Style(false), 100),
            "list \n     0   1   2   3   4   5   6   7   8   9  10  11  12  13  14  15\n    16\n");
}

TEST(Report, ColoursOnlyWhenAskedFor) {
  EXPECT_EQ(ReportText(Sample(), Style(false), 100).find('\x1b'), std::string::npos);
  EXPECT_THAT(ReportText(Sample(), Style(true), 100), HasSubstr("\x1b["));
}

TEST(Report, ForeignControlCharactersAreMadeVisible) {
  Section report;
  report.Add("name", "Name", "a\x1b[31mb");
  EXPECT_EQ(ReportText(report, Style(false), 100), "Name  a\\x1B[31mb\n");
}

}  // namespace
}  // namespace qlnmedia
