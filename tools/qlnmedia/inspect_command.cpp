// qlnmedia inspect: what files say about themselves, in a few lines or down to the single unit.

#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <optional>

#include "batch.h"
#include "commands.h"
#include "interruption.h"
#include "page_option.h"
#include "qlnmedia/html_report.h"
#include "qlnmedia/inspect.h"
#include "report_text.h"
#include "sandbox.h"
#include "summary_rows.h"
#include "tables.h"
#include "words.h"

namespace qlnmedia {

namespace {

struct InspectArguments {
  InputOptions inputs;
  bool json = false;
  bool csv = false;
  bool framesAsked = false;
  ReportView view;
  InspectOptions inspect;
  PageOption page;
};

std::string TextOf(const Report& report, const InspectArguments& options) {
  ReportView view = options.view;
  view.width = OutputWidth(stdout);
  view.lineWidth = OutputWidth(stdout, 80);
  return ReportText(report.root(), Style::ForStream(stdout), view);
}

std::string Result(const Report& report, const Input& input, const InspectArguments& options, bool several) {
  if (options.csv) return SummaryRows(Json::parse(report.ToJson())["summary"], input);
  if (!options.json) return TextOf(report, options);
  if (!several) return report.ToJson() + "\n";
  Json line = LineHead(input, kExitSuccess);
  line.update(Json::parse(report.ToJson(-1)));
  return JsonLine(line);
}

void Run(InspectArguments options) {
  // Frames, units, elements and what the library makes of them stand among the details.
  ReportView& view = options.view;
  view.details =
      view.details || view.elements || view.library || options.inspect.units || options.framesAsked;
  view.units = options.inspect.units;
  options.inspect.details = options.json || (view.details && !options.csv);
  const Inputs inputs = FindInputs(options.inputs);
  RequirePage(options.page, inputs);
  ConfineCommand({ReadPlaces(options.inputs, inputs), WrittenFor(options.page)});
  std::optional<Interruption> interruption;
  if (options.page.asked()) interruption.emplace();
  Batch batch;
  batch.work = [&](const Input& input, const ProgressCallback& progress) {
    if (interruption) WriteHtmlReport(input.path, options.page.path, progress, interruption->callback());
    return FileResult{Result(InspectFile(input.path, options.inspect), input, options, inputs.several)};
  };
  if (options.json) batch.failed = FailedLine;
  if (options.csv) {
    batch.failed = FailedSummaryRow;
    Print(SummaryHeading());
  }
  if (!options.json && !options.csv) batch.between = "\n";
  RunBatch(inputs, options.inputs.jobs, batch);
}

}  // namespace

void AddInspectCommand(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("inspect", "Show what media files say about themselves");
  auto options = std::make_shared<InspectArguments>();
  options->view.details = options->view.elements = options->view.library = false;
  AddInputOptions(*command, options->inputs, "Media file: MP4, MOV, MKV, TS, raw H.264 or HEVC");
  auto* const json = command->add_flag("--json", options->json,
                                       "Print JSON for programs instead of text: of one file an object, of "
                                       "several a line each");
  command
      ->add_flag("--csv", options->csv, "Print the summary as comma separated values, a row for each stream")
      ->excludes(json);
  command->add_flag("--details", options->view.details,
                    "Show container, tags, configuration records, parameter sets in words, and frames");
  command->add_flag("--elements", options->view.elements,
                    "Show the details with all syntax elements of the parameter sets");
  command->add_flag("--units", options->inspect.units,
                    "Show the details with every unit of the frames and its header");
  command->add_flag("--library", options->view.library,
                    "Show the details with what the library makes of parameter sets and frames");
  auto* const frames = command->add_option("--frames", options->inspect.frames,
                                           "Coded frames of each video stream to lay out among the details");
  frames->check(CountUpTo(INT32_MAX))->capture_default_str();
  AddPageOption(*command, options->page);
  command->callback([options, frames] {
    options->framesAsked = frames->count() != 0;
    Run(*options);
  });
}

}  // namespace qlnmedia
