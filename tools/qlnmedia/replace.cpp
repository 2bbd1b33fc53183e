// Asks before a file is replaced.

#include "replace.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "output.h"
#include "qlnmedia/error.h"

namespace qlnmedia {

namespace {

// The first letter of the line that comes in; 0 for an empty one and at the end.
char FirstLetterOfAnswer() {
  char first = 0;
  for (int c = std::getchar(); c != EOF && c != '\n'; c = std::getchar()) {
    if (first == 0 && c != ' ') first = static_cast<char>(c);
  }
  return first;
}

}  // namespace

void RequireMayReplace(const std::string& path, bool force) {
  struct stat status {};
  if (force || path.empty() || stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
  if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0)
    throw Error(path, "exists", "--force replaces it");
  PrintError(fmt::format("{} exists; replace it? [y/N] ", Style::ForStream(stderr).Strong(path)));
  const char answer = FirstLetterOfAnswer();
  if (answer != 'y' && answer != 'Y') throw Error(path, "is left as it was");
}

}  // namespace qlnmedia
