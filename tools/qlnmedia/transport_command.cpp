// qlnmedia transport: the transport counter at work, one line a step.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "commands.h"
#include "output.h"
#include "qlnutil/qlntransport.h"
#include "report_text.h"
#include "words.h"

namespace qlnmedia {

namespace {

// The fastest speed, either way, whose units of 1/65520 have room in the counter's 32 bits.
constexpr double kFastest = 32776;

struct TransportArguments {
  int32_t in = 0;
  int32_t out = 0;
  std::optional<int32_t> start;
  double speed = 1.0;
  uint32_t steps = 10;
  bool json = false;
};

using Json = nlohmann::ordered_json;

// One column of the steps.
struct Column {
  const char* key;
  const char* heading;
};
constexpr Column kColumns[] = {{"step", "Step"},
                               {"position", "Position"},
                               {"fraction", "Fraction"},
                               {"play_count", "Play count"},
                               {"index", "Index"}};

// Reads the counter as a host does for each frame that it shows.
Json ReadCounter(CQLNTransTC2& counter, uint32_t step) {
  int32_t playCount = 0;
  const int32_t frame = counter.GetTC(playCount);
  CQLNPos position;
  counter.GetCPos(position);
  Json row = Json::object();
  size_t column = 0;
  for (const Json& value : {Json(step), Json(frame), Json(position.frac()), Json(playCount),
                            Json(counter.CQLNTransTC::GetIndex())})
    row[kColumns[column++].key] = value;
  return row;
}

Json StepThrough(const TransportArguments& options) {
  CQLNSpeed speed;
  speed = options.speed;
  CQLNTransTC2 counter;
  counter.SetRange(options.in, options.out);
  counter.SetSpeed(speed);
  counter.SetTC(options.start.value_or(counter.In()));

  Json report = {{"in", counter.In()}, {"out", counter.Out()}, {"speed", speed.Get()}};
  // Without a range the counter runs free.
  const bool outside = options.start && counter.In() != counter.Out() &&
                       (*options.start < counter.In() || *options.start >= counter.Out());
  if (outside)
    report["notes"] = {fmt::format("--start {} is outside of the range, which is {} to {}", *options.start,
                                   counter.In(), counter.Out() - 1)};
  Json& steps = report["steps"] = Json::array();
  steps.push_back(ReadCounter(counter, 0));
  for (uint32_t step = 1; step <= options.steps; ++step) {
    ++counter;
    steps.push_back(ReadCounter(counter, step));
  }
  return report;
}

ReportItem Fact(const char* label, const Json& value, const std::string& note = {}) {
  ReportItem fact;
  fact.kind = ReportItem::Kind::kFact;
  fact.label = label;
  fact.text = value.dump() + note;
  return fact;
}

// The same for people.
ReportItem Table(const Json& report, double speed) {
  ReportItem root;
  root.label = fmt::format("Transport from {} to {} at {} times play", report["in"].dump(),
                           report["out"].dump(), speed);
  root.children = {Fact("In point", report["in"]), Fact("Out point", report["out"]),
                   Fact("Speed", report["speed"], " units, 65520 being plain play")};
  for (const Json& text : report.value("notes", Json::array())) {
    ReportItem& note = root.children.emplace_back();
    note.kind = ReportItem::Kind::kNote;
    note.text = text.get<std::string>();
  }
  ReportItem& table = root.children.emplace_back();
  table.kind = ReportItem::Kind::kTable;
  table.label = "Steps";
  for (const Column& column : kColumns) table.columns.push_back({column.key, column.heading, true});
  for (const Json& step : report["steps"]) {
    ReportItem& row = table.children.emplace_back();
    for (const Column& column : kColumns) row.children.push_back(Fact(column.heading, step[column.key]));
  }
  return root;
}

void Run(const TransportArguments& options) {
  if (!(std::abs(options.speed) <= kFastest))
    throw CLI::ValidationError(fmt::format(
        "--speed: {} is no speed of the counter; the limit is {} times play", options.speed, kFastest));
  const Json report = StepThrough(options);
  Print(options.json
            ? report.dump(2) + "\n"
            : ReportText(Table(report, options.speed), Style::ForStream(stdout), OutputWidth(stdout)));
}

}  // namespace

void AddTransportCommand(CLI::App& app) {
  CLI::App* const command =
      app.add_subcommand("transport", "Step a transport position between an in and an out point");
  auto options = std::make_shared<TransportArguments>();
  command->add_option("--in", options->in, "First frame of the range")->required();
  command->add_option("--out", options->out, "Frame behind the range; the in point again runs free")
      ->required();
  command
      ->add_option("--speed", options->speed, "Multiple of plain play, negative for reverse; 32776 at most")
      ->required();
  command->add_option("--steps", options->steps, "Steps to take")->required()->check(CountUpTo(1000000));
  command->add_option("--start", options->start, "Frame to begin at; the in point if it is not given");
  command->add_flag("--json", options->json, "Print JSON for programs instead of text");
  command->callback([options] { Run(*options); });
}

}  // namespace qlnmedia
