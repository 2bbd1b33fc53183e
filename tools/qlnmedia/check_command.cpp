// qlnmedia check: findings for people and programs, and an exit status for scripts.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "exit_status.h"
#include "output.h"
#include "progress_bar.h"
#include "qlnmedia/check.h"

namespace qlnmedia {

namespace {

using Json = nlohmann::ordered_json;

struct Options {
  std::string file;
  bool json = false;
};

// The word of a finding; a note says that it is one.
std::string Weighed(const Style& style, const Finding& finding) {
  const char* const word = FindingWord(finding.kind);
  if (finding.severity == Severity::kNote) return "note: " + style.Name(word);
  return finding.severity == Severity::kWarning ? style.Warning(word) : style.Bad(word);
}

void Run(const Options& options) {
  const std::vector<Finding> findings = CheckFile(options.file, ProgressBar());
  const Style style = Style::ForStream(stdout);
  Json list = Json::array();
  for (const Finding& finding : findings) {
    if (options.json) {
      list.push_back({{"stream", finding.stream},
                      {"what", FindingWord(finding.kind)},
                      {"severity", SeverityWord(finding.severity)},
                      {"text", finding.text},
                      {"frame", finding.frame < 0 ? Json(nullptr) : Json(finding.frame)},
                      {"count", finding.count}});
      continue;
    }
    std::string where = fmt::format("stream {}", finding.stream);
    if (finding.frame >= 0) where += fmt::format(", frame {}", finding.frame);
    Print(fmt::format("{}: {}: {}{}\n", where, Weighed(style, finding), finding.text,
                      finding.count > 1 ? fmt::format(" ({} times)", finding.count) : ""));
  }
  if (options.json) Print(Json{{"findings", list}}.dump(2) + "\n");
  if (findings.empty() && !options.json) Print(style.Good("nothing found") + "\n");
  FlushOutput();
  const bool worthy = std::any_of(findings.begin(), findings.end(),
                                  [](const Finding& finding) { return finding.severity != Severity::kNote; });
  if (worthy) throw ToolExit{kExitFindings};
}

}  // namespace

void AddCheckCommand(CLI::App& app) {
  CLI::App* const command =
      app.add_subcommand("check", "Name where container, configuration record and stream disagree");
  auto options = std::make_shared<Options>();
  command->add_option("FILE", options->file, "H.264 or HEVC in MP4, MOV, MKV, TS, or raw")->required();
  command->add_flag("--json", options->json, "Print JSON for programs instead of text");
  command->callback([options] { Run(*options); });
}

}  // namespace qlnmedia
