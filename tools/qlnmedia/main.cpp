// qlnmedia: takes the command line apart, runs one subcommand, and turns its failure into one line and an
// exit status.

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <sstream>

#include "application.h"
#include "exit_status.h"
#include "interruption.h"
#include "memory_watch.h"
#include "output.h"
#include "words.h"

namespace {

// The first thing to be said of work for which memory ran out is that, whatever came of it.
int Fail(std::string_view line, qlnmedia::ExitStatus status) noexcept {
  const bool memory = qlnmedia::MemoryRanOut();
  qlnmedia::PrintFailure(memory ? qlnmedia::MemoryLine() : line);
  return memory ? qlnmedia::kExitFailure : status;
}

#ifdef QLNMEDIA_SEES_ALLOCATIONS
// Where there is no memory for an exception on its way, or libav stumbles over what it got no memory for.
[[noreturn]] void EndWithoutMemory() {
  qlnmedia::PrintError("qlnmedia: ");
  qlnmedia::PrintError(qlnmedia::MemoryLine());
  qlnmedia::PrintError("\n");
  qlnmedia::Interruption::RemoveUnfinished();
  std::_Exit(qlnmedia::kExitFailure);
}

[[noreturn]] void OnTerminate() {
  if (qlnmedia::MemoryRanOut()) EndWithoutMemory();
  std::abort();
}

void OnCrash(int signal) {
  if (qlnmedia::MemoryRanOut()) EndWithoutMemory();
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}
#endif

int RunCommandLine(int argc, char** argv) {
  const std::unique_ptr<CLI::App> application = qlnmedia::MakeApplication();
  CLI::App& app = *application;
  try {
    qlnmedia::RequireSubcommand(app, argc, argv);
    app.parse(argc, argv);
  } catch (const CLI::Success& success) {  // --help and --version
    std::ostringstream text;
    const int status = app.exit(success, text, text);
    qlnmedia::Print(text.str());
    return status;
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
  qlnmedia::WatchMemory();
#ifdef QLNMEDIA_SEES_ALLOCATIONS
  std::set_terminate(OnTerminate);
  for (const int signal : {SIGSEGV, SIGABRT, SIGFPE, SIGBUS}) std::signal(signal, OnCrash);
#endif
  try {
    const int status = RunCommandLine(argc, argv);
    if (status == qlnmedia::kExitSuccess) qlnmedia::FlushOutput();
    return status;
  } catch (const qlnmedia::ToolExit& exit) {
    return exit.status;
  } catch (const std::bad_alloc&) {
    return Fail(qlnmedia::MemoryLine(), qlnmedia::kExitFailure);
  } catch (const std::exception& error) {
    return Fail(error.what(), qlnmedia::kExitFailure);
  }
}
