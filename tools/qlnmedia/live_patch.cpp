// Opens the ends of a patch and says what becomes of it.

#include "live_patch.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "output.h"
#include "qlnmedia/error.h"

namespace qlnmedia {

namespace {

int OpenEnd(const std::string& path, int flags, int standard) {
  if (IsStandardStream(path)) return standard;
  const int opened = open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY);
  if (opened < 0) throw Error(path, std::strerror(errno));
  return opened;
}

}  // namespace

bool IsStandardStream(const std::string& path) {
  return path == "-" || path == "/dev/stdin" || path == "/dev/stdout";
}

bool IsPipe(const std::string& path) {
  struct stat status {};
  if (IsStandardStream(path)) return true;
  return stat(path.c_str(), &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

LiveDescriptors::LiveDescriptors(const PatchOptions& options) {
  // Before anything waits for the other side of a pipe.
  if (IsStandardStream(options.in) && isatty(STDIN_FILENO) != 0)
    throw Error("standard input", "is a terminal", "name a file, or give media by a pipe");
  if (IsStandardStream(options.out) && isatty(STDOUT_FILENO) != 0)
    throw Error("standard output", "is a terminal", "name a file, or give media to a pipe");
  input_ = OpenEnd(options.in, O_RDONLY, STDIN_FILENO);
  try {
    if (IsPipe(options.out)) output_ = OpenEnd(options.out, O_WRONLY, STDOUT_FILENO);
  } catch (...) {
    if (input_ > STDERR_FILENO) close(input_);
    throw;
  }
}

LiveDescriptors::~LiveDescriptors() {
  for (const int descriptor : {input_, output_}) {
    if (descriptor > STDERR_FILENO) close(descriptor);
  }
}

void RunLivePatch(const PatchOptions& options, const LiveDescriptors& ends) {
  PatchOptions named = options;
  if (IsStandardStream(options.in)) named.in = "standard input";
  if (ends.output() >= 0 && IsStandardStream(options.out)) named.out = "standard output";
  const auto tell = [](const std::string& line) { PrintError(line + "\n"); };
  const PatchResult result = PatchLive(named, {ends.input(), ends.output(), tell});
  for (const std::string& line : result.lines) {
    if (ends.output() >= 0) {
      tell(line);
    } else {
      Print(line + "\n");
    }
  }
}

}  // namespace qlnmedia
