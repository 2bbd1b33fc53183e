// Reports as people read them.

#include "report_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace qlnmedia {
namespace {

using testing::HasSubstr;

using Kind = ReportItem::Kind;

ReportItem Item(Kind kind, const std::string& label, const std::string& text = {},
                const std::string& note = {}) {
  ReportItem item;
  item.kind = kind;
  item.label = label;
  item.text = text;
  item.note = note;
  return item;
}

ReportItem Group(Kind kind, const std::string& label, std::vector<ReportItem> children) {
  ReportItem item = Item(kind, label);
  item.children = std::move(children);
  return item;
}

ReportItem Fact(const std::string& label, const std::string& text, const std::string& note = {}) {
  return Item(Kind::kFact, label, text, note);
}

ReportItem ElementOf(const std::string& name, const std::string& text, const std::string& note = {}) {
  ReportItem element = Item(Kind::kElement, name, text, note);
  element.value = text.find(' ') == std::string::npos ? text : "[" + text + "]";
  return element;
}

ReportItem Units() {
  const auto row = [](const std::string& type, const std::string& name) {
    return Group(Kind::kRow, "", {Fact("Type", type), Fact("Name", name), Fact("", "for programs")});
  };
  ReportItem table = Group(Kind::kTable, "Units", {row("7", "SPS"), row("8", "PPS"), row("one", "-")});
  table.columns = {{"type", "Type", true}, {"name", "Name", false}, {"slice", "", true}};
  return table;
}

ReportItem Sample() {
  return Group(Kind::kSection, "",
               {Group(Kind::kSection, "clip.mp4", {Fact("Size", "1.2 MB"), Fact("Container name", "mp4")}),
                Group(Kind::kSection, "Stream 0", {Fact("Index", "0")}),
                Group(Kind::kSection, "Stream 1",
                      {Fact("Interlaced", "yes", "top field first"), Units(),
                       Group(Kind::kElements, "Elements",
                             {ElementOf("profile_idc", "100"), ElementOf("lists", "1 2 3"),
                              ElementOf("level_idc", "31", "odd")}),
                       Item(Kind::kNote, "", "cut off")})});
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

TEST(Report, ShortElementsStandInColumnsReadDownwards) {
  const ReportItem report = Group(
      Kind::kSection, "",
      {Group(Kind::kElements, "",
             {ElementOf("aa", "1"), ElementOf("b", "22"), ElementOf("ccc", "3"), ElementOf("d", "-4")})});
  EXPECT_EQ(ReportText(report, Style(false), 16), "aa  1   ccc  3\nb  22   d   -4\n");
  EXPECT_EQ(ReportText(report, Style(false), 10), "aa   1\nb   22\nccc  3\nd   -4\n");
}

// One long name costs one column its width, and not all of them.
TEST(Report, ElementsTakeTheColumnsOfAWideTerminal) {
  const ReportItem report = Group(Kind::kSection, "",
                                  {Group(Kind::kElements, "",
                                         {ElementOf("a_name_that_is_long", "1"), ElementOf("b", "2"),
                                          ElementOf("c", "3"), ElementOf("d", "4")})});
  EXPECT_EQ(ReportText(report, Style(false), 100), "a_name_that_is_long 1   b 2   c 3   d 4\n");
  EXPECT_EQ(ReportText(report, Style(false), 30),
            "a_name_that_is_long 1   c 3\nb                   2   d 4\n");
}

TEST(Report, LinesAreBrokenAndValuesForProgramsAreNotShown) {
  ReportItem summary = Group(Kind::kSection, "clip.mp4",
                             {Item(Kind::kLine, "Codec", "H.264, High profile"),
                              Group(Kind::kSection, "Stream 0", {Item(Kind::kLine, "Scan", "progressive")}),
                              Fact("", "for programs")});
  summary.part = ReportPart::kSummary;
  ReportItem details = Group(Kind::kSection, "Container", {Fact("Size", "1")});
  ReportView view;
  view.lineWidth = 20;
  view.details = false;
  const ReportItem report = Group(Kind::kSection, "", {summary, details});
  EXPECT_EQ(ReportText(report, Style(false), view),
            "clip.mp4\n  Codec  H.264, High\n         profile\n  Stream 0\n    Scan   progressive\n");
  view.details = true;
  EXPECT_THAT(ReportText(report, Style(false), view), HasSubstr("Container\n  Size  1\n"));
}

TEST(Report, LongArraysAreBrokenIntoLinesOfSixteen) {
  std::string list = "0";
  for (int i = 1; i < 17; ++i) list += " " + std::to_string(i);
  const ReportItem report =
      Group(Kind::kSection, "", {Group(Kind::kElements, "", {ElementOf("list", list)})});
  EXPECT_EQ(ReportText(report, Style(false), 100),
            "list \n     0   1   2   3   4   5   6   7   8   9  10  11  12  13  14  15\n    16\n");
}

TEST(Report, ColoursOnlyWhenAskedFor) {
  EXPECT_EQ(ReportText(Sample(), Style(false), 100).find('\x1b'), std::string::npos);
  EXPECT_THAT(ReportText(Sample(), Style(true), 100), HasSubstr("\x1b["));
}

TEST(Report, ATableWithoutRowsKeepsItsHeadings) {
  ReportItem table = Item(Kind::kTable, "Arrays");
  table.columns = {{"type", "Type", true}, {"name", "Name", false}};
  EXPECT_EQ(ReportText(Group(Kind::kSection, "", {table}), Style(false), 100), "Arrays\n  Type  Name\n");
}

}  // namespace
}  // namespace qlnmedia
