// Runs the built qlnmedia.
#ifndef TESTS_QLNMEDIA_PROGRAM_H
#define TESTS_QLNMEDIA_PROGRAM_H

#include <string>

#include "support/media.h"

namespace qln::test {

// Runs qlnmedia with the given arguments (shell syntax); standard error stands behind standard output.
// Outputs of an earlier run are replaced, but by AskedQlnmedia.
inline CommandResult AskedQlnmedia(const std::string& arguments, int secondsLimit = 60) {
  return Run(std::string("'") + QLNMEDIA_PROGRAM + "' " + arguments, secondsLimit);
}
inline CommandResult Qlnmedia(const std::string& arguments, int secondsLimit = 60) {
  for (const std::string command : {"patch ", "captions "}) {
    if (arguments.starts_with(command))
      return AskedQlnmedia(command + "--force " + arguments.substr(command.size()), secondsLimit);
  }
  return AskedQlnmedia(arguments, secondsLimit);
}

}  // namespace qln::test

#endif
