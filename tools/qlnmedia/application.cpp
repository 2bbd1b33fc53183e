// Puts the command line together.

#include "application.h"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

#include "commands.h"
#include "help_text.h"
#include "output.h"
#include "run_limits.h"
#include "sandbox.h"
#include "words.h"

namespace qlnmedia {

namespace {

// Options of every command, which take effect as the command line is read; commands that do part of their
// work in other processes hand them on.
void AddGuards(CLI::App& app) {
  app.add_flag_function(
      "--no-sandbox", [](int64_t) { UseSandbox(false); },
      "Read media without giving up networks, other programs and all other files");
  app.add_option_function<std::string>("--max-memory", LimitMemory,
                                       "End where the data would take more: 500M, 2G")
      ->check([](const std::string& text) {
        return ParseSize(text) != 0 ? std::string() : text + " is no size such as 500M or 2G";
      });
  app.add_option_function<uint32_t>("--max-seconds", LimitSeconds, "End after so many seconds")
      ->check(CountUpTo(1'000'000));
}

}  // namespace

std::unique_ptr<CLI::App> MakeApplication() {
  auto app = std::make_unique<CLI::App>(
      "Shows, checks and corrects what H.264 and HEVC media say about themselves.", "qlnmedia");
  app->require_subcommand(1);
  app->set_version_flag(
      "--version", std::string("qlnmedia ") + Version() + "\nsandbox: " + SandboxText(SandboxOfKernel()));
  app->footer(
      "Exit status: 0 done, 1 failed, 2 wrong usage, 3 done and found something to report, 4 not applicable "
      "(inspect, check, captions): nothing is wrong, and the file has nothing that the command is about.");
  app->formatter(MakeHelpFormatter());
  AddGuards(*app);
  app->fallthrough();  // so that they may stand behind the command as well
  AddCommands(*app);
  return app;
}

}  // namespace qlnmedia
