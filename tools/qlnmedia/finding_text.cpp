// Words and members for each finding.

#include "finding_text.h"

#include <fmt/format.h>

#include <algorithm>

namespace qlnmedia {

namespace {

// The word of a finding; a note says that it is one.
std::string Weighed(const Style& style, const Finding& finding) {
  const char* const word = FindingWord(finding.kind);
  if (finding.severity == Severity::kNote) return "note: " + style.Name(word);
  return finding.severity == Severity::kWarning ? style.Warning(word) : style.Bad(word);
}

}  // namespace

std::string PlaceInStream(unsigned stream, int64_t frame, std::optional<double> seconds) {
  std::string place = fmt::format("stream {}", stream);
  if (frame >= 0) place += fmt::format(", frame {}", frame);
  if (seconds) place += fmt::format(", {:.3f} s", *seconds);
  return place;
}

std::string FindingLine(const Style& style, const Finding& finding, std::optional<double> seconds) {
  return fmt::format("{}: {}: {}{}", PlaceInStream(finding.stream, finding.frame, seconds),
                     Weighed(style, finding), finding.text,
                     finding.count > 1 ? fmt::format(" ({} times)", finding.count) : "");
}

Json JsonOfFinding(const Finding& finding) {
  return {{"stream", finding.stream},
          {"what", FindingWord(finding.kind)},
          {"severity", SeverityWord(finding.severity)},
          {"text", finding.text},
          {"frame", finding.frame < 0 ? Json(nullptr) : Json(finding.frame)},
          {"count", finding.count}};
}

Json JsonOfFindings(const std::vector<Finding>& findings) {
  Json list = Json::array();
  for (const Finding& finding : findings) list.push_back(JsonOfFinding(finding));
  return list;
}

ExitStatus StatusOf(const std::vector<Finding>& findings) {
  const bool worthy = std::any_of(findings.begin(), findings.end(),
                                  [](const Finding& finding) { return finding.severity != Severity::kNote; });
  return worthy ? kExitFindings : kExitSuccess;
}

}  // namespace qlnmedia
