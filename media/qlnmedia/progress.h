/// @file progress.h
/// How far a long piece of work has come, told to whoever asked for it, who may also call it off.
#ifndef QLNMEDIA_PROGRESS_H
#define QLNMEDIA_PROGRESS_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "qlnmedia/api.h"
#include "qlnmedia/error.h"

namespace qlnmedia {

/// One step of a piece of work.
struct ProgressStep {
  std::string_view what;  ///< "reading", "patching"; valid during the call
  int64_t done = 0;       ///< bytes of the input
  int64_t total = 0;      ///< bytes of the input; 0 or below where that is not known
  bool finished = false;  ///< the last step of this piece of work, also where it fails
};

/// Takes a step. Called in the thread that does the work, at most ten times a second; the work waits for it.
/// Returns false to call the work off: it then ends with Cancelled, and nothing of its output stays. What is
/// returned for a step that is `finished` counts for nothing. An empty callback is one that wants nothing.
using ProgressCallback = std::function<bool(const ProgressStep&)>;

/// Takes the path of a file or folder that the work makes beside an output: true before it is made, false
/// when it has its own name or is gone. The work takes all of them away where it fails or is called off; who
/// ends the process under it, as a handler of signals does, finds here what to remove. Called in the thread
/// that does the work, which waits for it; must not throw. An empty callback is one that wants nothing.
using UnfinishedCallback = std::function<void(const std::string& path, bool there)>;

/// Thrown where the callback returned false.
class QLNMEDIA_API Cancelled : public Error {
 public:
  Cancelled() : Error({}, "called off") {}
};

}  // namespace qlnmedia

#endif
