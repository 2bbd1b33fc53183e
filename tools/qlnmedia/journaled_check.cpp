// One process a file, whose JSON is what the journal keeps.

#include "journaled_check.h"

#include <fmt/format.h>

#include "apart.h"
#include "exit_status.h"
#include "sandbox.h"

namespace qlnmedia {

using nlohmann::json;

namespace {

FindingKind KindOf(const std::string& word) {
  for (int kind = 0; kind <= static_cast<int>(FindingKind::kTimecode); ++kind)
    if (word == FindingWord(static_cast<FindingKind>(kind))) return static_cast<FindingKind>(kind);
  return FindingKind::kDamage;
}

Severity SeverityOf(const std::string& word) {
  for (const Severity severity : {Severity::kError, Severity::kWarning})
    if (word == SeverityWord(severity)) return severity;
  return Severity::kNote;
}

std::vector<Finding> FindingsOf(const json& list) {
  std::vector<Finding> findings;
  for (const json& one : list)
    findings.push_back({one.at("stream"), KindOf(one.at("what")), one.at("text"),
                        one.at("frame").is_null() ? -1 : one.at("frame").get<int64_t>(), one.at("count"),
                        SeverityOf(one.at("severity"))});
  return findings;
}

// `text` begins with the path, where the failure is the file's.
json FailureOf(const std::string& path, const std::string& kind, const std::string& text) {
  const std::string head = path + ": ";
  const bool ofFile = text.compare(0, head.size(), head) == 0;
  return {kind, ofFile ? path : "", ofFile ? text.substr(head.size()) : text, ""};
}

json CheckApart(const std::string& path) {
  std::vector<std::string> arguments = {"check", "--json", "--", path};
  if (!SandboxIsUsed()) arguments.insert(arguments.begin(), "--no-sandbox");
  const ApartResult result = RunApart(arguments);
  if (result.signal != 0) {
    const std::string text =
        fmt::format("{}: the process that worked on it ended by signal {}", path, result.signal);
    return {{"status", kExitFailure}, {"error", text}, {"failure", FailureOf(path, "WorkerDied", text)}};
  }
  if (result.status == kExitSuccess || result.status == kExitFindings) {
    const json report = json::parse(result.out, nullptr, false);
    if (report.is_object() && report.contains("findings"))
      return {{"status", result.status}, {"findings", report["findings"]}};
  }
  const char* const kind = result.status == kExitNotApplicable ? "NotApplicable" : "Error";
  return {{"status", result.status == kExitNotApplicable ? kExitNotApplicable : kExitFailure},
          {"error", result.error},
          {"failure", FailureOf(path, kind, result.error)}};
}

}  // namespace

std::vector<Finding> CheckWithJournal(const std::string& path, Journal& journal) {
  json entry = journal.HeadOf(path);
  if (const std::optional<json> known = journal.Find(entry)) {
    entry = *known;
  } else {
    entry.update(CheckApart(path));
    journal.Add(entry);
  }
  try {
    if (!entry.contains("error")) return FindingsOf(entry.at("findings"));
    const std::string text = entry["error"];
    if (entry.at("status") == kExitNotApplicable) throw NotApplicable({}, text);
    throw Error({}, text);
  } catch (const json::exception&) {
    throw Error(path, "the journal's line of it is damaged", "take the line out");
  }
}

}  // namespace qlnmedia
