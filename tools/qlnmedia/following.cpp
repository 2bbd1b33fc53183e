// Each line goes out at once.

#include "following.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>

#include "finding_text.h"
#include "output.h"
#include "tables.h"

namespace qlnmedia {

namespace {

Json NumberOrNull(std::optional<double> number) { return number ? Json(*number) : Json(nullptr); }

// A reader that is gone is noticed although there is nothing to print.
bool SomebodyReads(const ProgressStep&) { return !IsOutputGone(); }

void PrintAtOnce(const std::string& line) {
  Print(line);
  FlushOutput();
}

// "3 findings: 2 errors, 1 note; 1 of them showed 17 times".
std::string LastLine(const std::vector<Finding>& findings) {
  const Style style = Style::ForStream(stdout);
  if (findings.empty()) return style.Good("nothing found") + "\n";
  const auto counted = [](size_t count, const char* word) {
    return fmt::format("{} {}{}", count, word, count == 1 ? "" : "s");
  };
  std::string text = counted(findings.size(), "finding");
  const char* separator = ": ";
  for (const Severity severity : {Severity::kError, Severity::kWarning, Severity::kNote}) {
    const auto count = std::count_if(findings.begin(), findings.end(), [severity](const Finding& finding) {
      return finding.severity == severity;
    });
    if (count == 0) continue;
    text += separator + counted(static_cast<size_t>(count), SeverityWord(severity));
    separator = ", ";
  }
  separator = "; times that they showed: ";
  for (size_t i = 0; i < findings.size(); ++i) {
    if (findings[i].count == 1) continue;
    text += fmt::format("{}finding {} {}", separator, i + 1, findings[i].count);
    separator = ", ";
  }
  return text + "\n";
}

}  // namespace

void RequireOneToFollow(const Inputs& inputs) {
  if (inputs.several) throw CLI::ValidationError("--follow is for one file or stream");
}

FileResult FollowCheck(const Input& input, bool json) {
  const Style style = Style::ForStream(stdout);
  const auto found = [&](const Finding& finding, std::optional<double> seconds) {
    if (!json) return PrintAtOnce(FindingLine(style, finding, seconds) + "\n");
    Json line = JsonOfFinding(finding);
    line["time"] = NumberOrNull(seconds);
    PrintAtOnce(JsonLine(line));
  };
  std::vector<Finding> findings;
  try {
    findings = CheckLive(input.path, {SomebodyReads, found});
  } catch (const Cancelled&) {
    throw ToolExit{kExitSuccess};
  }
  const ExitStatus status = StatusOf(findings);
  if (!json) return {LastLine(findings), status};
  Json line = LineHead(input, status);
  line["findings"] = JsonOfFindings(findings);
  return {JsonLine(line), status};
}

}  // namespace qlnmedia
