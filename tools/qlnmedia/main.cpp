// qlnmedia: takes the command line apart, runs one subcommand, and turns its failure into one line and an
// exit status.

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>

#include "commands.h"
#include "exit_status.h"
#include "help_text.h"
#include "output.h"
#include "qlnmedia/error.h"
#include "words.h"

namespace {

int Fail(const std::string& line, qlnmedia::ExitStatus status) {
  qlnmedia::PrintFailure(line);
  return status;
}

int RunCommandLine(int argc, char** argv) {
  CLI::App app{"Shows, checks and corrects what H.264 and HEVC media say about themselves.", "qlnmedia"};
  app.require_subcommand(1);
  app.set_version_flag("--version", std::string("qlnmedia ") + qlnmedia::Version());
  app.footer(
      "Exit status: 0 done, 1 failed, 2 wrong usage, 3 done and found something to report, 4 not applicable "
      "(inspect, check, captions): nothing is wrong, and the file has nothing that the command is about.");
  app.formatter(qlnmedia::MakeHelpFormatter());
  qlnmedia::AddCommands(app);
  try {
    qlnmedia::RequireSubcommand(app, argc, argv);
    app.parse(argc, argv);
  } catch (const CLI::Success& success) {  // --help and --version
    return app.exit(success);
  } catch (const CLI::ParseError& error) {
    std::string help = "qlnmedia";
    for (const CLI::App* sub : app.get_subcommands()) help += " " + sub->get_name();
    std::string line = error.what();
    for (char& c : line) {
      if (c == '\n') c = ' ';
    }
    return Fail(line + "; " + help + " --help lists what there is", qlnmedia::kExitUsage);
  }
  return qlnmedia::kExitSuccess;
}

}  // namespace

int main(int argc, char** argv) {
  // A full disk or a closed pipe is told by the write that met it, and does not end the process by itself.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    const int status = RunCommandLine(argc, argv);
    qlnmedia::FlushOutput();
    return status;
  } catch (const qlnmedia::ToolExit& exit) {
    return exit.status;
  } catch (const qlnmedia::Error& error) {
    return Fail(error.what(), qlnmedia::kExitFailure);
  } catch (const std::bad_alloc&) {
    return Fail("out of memory", qlnmedia::kExitFailure);
  } catch (const std::exception& error) {
    return Fail(error.what(), qlnmedia::kExitFailure);
  }
}
