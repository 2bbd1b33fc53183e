// qlnmedia check: findings for people and programs, and an exit status for scripts.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <optional>

#include "batch.h"
#include "commands.h"
#include "finding_text.h"
#include "following.h"
#include "interruption.h"
#include "journaled_check.h"
#include "output.h"
#include "page_option.h"
#include "qlnmedia/check.h"
#include "qlnmedia/html_report.h"
#include "sandbox.h"
#include "tables.h"
#include "value_hints.h"

namespace qlnmedia {

namespace {

struct CheckArguments {
  InputOptions inputs;
  bool json = false;
  bool csv = false;
  bool follow = false;
  std::string journal;
  PageOption page;
};

std::string TextOf(const std::vector<Finding>& findings) {
  const Style style = Style::ForStream(stdout);
  if (findings.empty()) return style.Good("nothing found") + "\n";
  std::string text;
  for (const Finding& finding : findings) text += FindingLine(style, finding) + "\n";
  return text;
}

// A row for each finding; one without any for a file in which nothing was found.
std::string RowsOf(const std::vector<Finding>& findings, const Input& input, ExitStatus status) {
  const std::string number = std::to_string(status);
  if (findings.empty()) return CsvRow({input.path, number, "", "", "", "", "", "", ""});
  std::string rows;
  for (const Finding& finding : findings)
    rows +=
        CsvRow({input.path, number, std::to_string(finding.stream), FindingWord(finding.kind),
                SeverityWord(finding.severity), finding.text,
                finding.frame < 0 ? "" : std::to_string(finding.frame), std::to_string(finding.count), ""});
  return rows;
}

std::string FailedRow(const Input& input, ExitStatus status, const std::string& error) {
  return CsvRow({input.path, std::to_string(status), "", "", "", "", "", "", error});
}

std::string Result(const std::vector<Finding>& findings, const Input& input, ExitStatus status,
                   const CheckArguments& options, bool several) {
  if (options.csv) return RowsOf(findings, input, status);
  if (!options.json) return (several ? input.path + ":\n" : std::string()) + TextOf(findings);
  if (!several) return Json{{"findings", JsonOfFindings(findings)}}.dump(2) + "\n";
  Json line = LineHead(input, status);
  line["findings"] = JsonOfFindings(findings);
  return JsonLine(line);
}

void Run(const CheckArguments& options) {
  const Inputs inputs = FindInputs(options.inputs);
  RequirePage(options.page, inputs);
  if (options.follow) RequireOneToFollow(inputs);
  std::optional<Journal> journal;
  const auto isPipe = [](const Input& input) { return input.path == "/dev/stdin"; };
  if (!options.journal.empty() && std::any_of(inputs.files.begin(), inputs.files.end(), isPipe))
    throw CLI::ValidationError("--journal: standard input has no place in it");
  if (!options.journal.empty()) journal.emplace(options.journal, "check");
  // With a journal the files are read by processes of their own.
  if (!journal) ConfineCommand({ReadPlaces(options.inputs, inputs), WrittenFor(options.page)});
  std::optional<Interruption> interruption;
  if (options.page.asked()) interruption.emplace();
  Batch batch;
  batch.work = [&](const Input& input, const ProgressCallback& progress) {
    if (options.follow) return FollowCheck(input, options.json);
    const std::vector<Finding> findings =
        interruption ? WriteHtmlReport(input.path, options.page.path, progress, interruption->callback())
        : journal    ? CheckWithJournal(input.path, *journal)
                     : CheckFile(input.path, progress);
    const ExitStatus status = StatusOf(findings);
    return FileResult{Result(findings, input, status, options, inputs.several), status};
  };
  if (options.json) batch.failed = FailedLine;
  if (options.csv) {
    batch.failed = FailedRow;
    Print(CsvRow({"file", "status", "stream", "what", "severity", "text", "frame", "count", "error"}));
  }
  RunBatch(inputs, options.inputs.jobs, batch);
}

}  // namespace

void AddCheckCommand(CLI::App& app) {
  CLI::App* const command =
      app.add_subcommand("check", "Name where container, configuration record and stream disagree");
  auto options = std::make_shared<CheckArguments>();
  AddInputOptions(*command, options->inputs,
                  "H.264 or HEVC in MP4, MOV, MKV, TS, or raw; or a caption file: .scc, .mcc, .srt, .vtt");
  auto* const json = command->add_flag("--json", options->json,
                                       "Print JSON for programs instead of text: of one file an object, of "
                                       "several a line each");
  auto* const csv = command->add_flag(
      "--csv", options->csv,
      "Print comma separated values: a row for each finding, and one for each file without any");
  csv->excludes(json);
  auto* const journal = command->add_option(
      "--journal", options->journal,
      "Keep what is done in FILE, a line each, and go on there in the next run; each file is "
      "then checked in a "
      "process of its own, so that one which ends it is one failed file");
  journal->check(OffersFiles());
  AddPageOption(*command, options->page);
  command->get_option("--html")->excludes(journal);
  command
      ->add_flag("--follow", options->follow,
                 "Print each finding when it shows, for streams that go on, and a last line at the end; with "
                 "--json a line of JSON each")
      ->excludes(csv, journal, command->get_option("--html"));
  command->callback([options] { Run(*options); });
}

}  // namespace qlnmedia
