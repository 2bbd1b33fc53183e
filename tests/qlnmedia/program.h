// Runs the built qlnmedia.
#ifndef TESTS_QLNMEDIA_PROGRAM_H
#define TESTS_QLNMEDIA_PROGRAM_H

#include <string>

#include "support/media.h"

namespace qln::test {

// Runs qlnmedia with the given arguments (shell syntax); standard error stands behind standard output.
inline CommandResult Qlnmedia(const std::string& arguments, int secondsLimit = 60) {
  return Run(std::string("'") + QLNMEDIA_PROGRAM + "' " + arguments, secondsLimit);
}

}  // namespace qln::test

#endif
