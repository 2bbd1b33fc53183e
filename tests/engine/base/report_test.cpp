// The report model.

#include "base/report.h"

#include <gtest/gtest.h>

namespace qlnmedia {
namespace {

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

TEST(Report, JsonKeepsValuesAndOrder) {
  EXPECT_EQ(Sample().ToJson().dump(),
            R"({"container":{"size":1234567,"format_name":"mp4"},"streams":[{"index":0},{"interlaced":true,)"
            R"("units":[{"type":7,"name":"SPS"},{"type":8,"name":"PPS"},{"type":1,"name":null}],)"
            R"("elements":{"profile_idc":100,"lists":[1,2,3],"level_idc":31},)"
            R"("elements_notes":{"level_idc":"odd"},"notes":["cut off"]}]})");
}

TEST(Report, ForeignControlCharactersAreMadeVisible) {
  Section report;
  report.Add("name", "Name", "a\x1b[31mb");
  EXPECT_EQ(report.nodes()[0]->text, "a\\x1B[31mb");
}

}  // namespace
}  // namespace qlnmedia
