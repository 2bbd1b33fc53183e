// Work on several files at once, with one result a file in the order in which they were named.
#ifndef TOOLS_QLNMEDIA_BATCH_H
#define TOOLS_QLNMEDIA_BATCH_H

#include <functional>
#include <string>

#include "exit_status.h"
#include "inputs.h"
#include "qlnmedia/progress.h"

namespace qlnmedia {

// What the work on one file came to.
struct FileResult {
  std::string text;  // for standard output
  ExitStatus status = kExitSuccess;
};

struct Batch {
  // Called for several files at once, each in a thread of its own; Error is a failure of its file.
  std::function<FileResult(const Input& input, const ProgressCallback& progress)> work;
  // What stands on standard output for a file that failed; empty where nothing does. The line on standard
  // error is told besides.
  std::function<std::string(const Input& input, ExitStatus status, const std::string& error)> failed;
  std::string between;  // printed between results
};

// Works on all files and prints the results in order. One file alone is worked on plainly: its Error is the
// caller's, but for NotApplicable. Throws ToolExit for a status other than success.
void RunBatch(const Inputs& inputs, unsigned jobs, const Batch& batch);

}  // namespace qlnmedia

#endif
