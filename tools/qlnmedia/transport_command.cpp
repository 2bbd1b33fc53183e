// qlnmedia transport: the transport counter at work, one line a step.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

#include "base/report.h"
#include "commands.h"
#include "output.h"
#include "qlnutil/qlntransport.h"
#include "report_text.h"

namespace qlnmedia {

namespace {

struct Options {
  int32_t in = 0;
  int32_t out = 0;
  std::optional<int32_t> start;
  double speed = 1.0;
  uint32_t steps = 10;
  bool json = false;
};

// Reads the counter as a host does for each frame that it shows.
std::vector<Cell> ReadCounter(CQLNTransTC2& counter, uint32_t step) {
  int32_t playCount = 0;
  const int32_t frame = counter.GetTC(playCount);
  CQLNPos position;
  counter.GetCPos(position);
  return {Json(step), Json(frame), Json(position.frac()), Json(playCount),
          Json(counter.CQLNTransTC::GetIndex())};
}

Section StepThrough(const Options& options) {
  CQLNSpeed speed;
  speed = options.speed;
  CQLNTransTC2 counter;
  counter.SetRange(options.in, options.out);
  counter.SetSpeed(speed);
  counter.SetTC(options.start.value_or(counter.In()));

  Section report(
      fmt::format("Transport from {} to {} at {} times play", counter.In(), counter.Out(), options.speed));
  report.Add("in", "In point", counter.In());
  report.Add("out", "Out point", counter.Out());
  report.Add("speed", "Speed", speed.Get(), fmt::format("{} units, 65520 being plain play", speed.Get()));
  std::vector<std::vector<Cell>> rows = {ReadCounter(counter, 0)};
  for (uint32_t step = 1; step <= options.steps; ++step) {
    ++counter;
    rows.push_back(ReadCounter(counter, step));
  }
  report.AddTable("steps", "Steps",
                  {{"step", "Step", true},
                   {"position", "Position", true},
                   {"fraction", "Fraction", true},
                   {"play_count", "Play count", true},
                   {"index", "Index", true}},
                  std::move(rows));
  return report;
}

void Run(const Options& options) {
  const Section report = StepThrough(options);
  if (options.json) {
    Print(report.ToJson().dump(2) + "\n");
  } else {
    Print(ReportText(report, Style::ForStream(stdout), OutputWidth(stdout)));
  }
}

}  // namespace

void AddTransportCommand(CLI::App& app) {
  CLI::App* const command =
      app.add_subcommand("transport", "Step a transport position between an in and an out point");
  auto options = std::make_shared<Options>();
  command->add_option("--in", options->in, "First frame of the range")->required();
  command->add_option("--out", options->out, "Frame behind the range; the in point again runs free")
      ->required();
  command->add_option("--speed", options->speed, "Multiple of plain play, negative for reverse")->required();
  command->add_option("--steps", options->steps, "Steps to take")
      ->required()
      ->check(CLI::Range(0u, 1000000u));
  command->add_option("--start", options->start, "Frame to begin at; the in point if it is not given");
  command->add_flag("--json", options->json, "Print JSON for programs instead of text");
  command->callback([options] { Run(*options); });
}

}  // namespace qlnmedia
