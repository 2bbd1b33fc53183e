// How far a long piece of work has come, told to whoever asked for it, who may also call it off.
#ifndef MEDIA_BASE_PROGRESS_H
#define MEDIA_BASE_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "base/error.h"

namespace qlnmedia {

struct ProgressStep {
  std::string_view what;  // "reading", "patching"
  int64_t done = 0;       // bytes of the input
  int64_t total = 0;      // 0 or below for unknown
  bool finished = false;  // the last step of this piece of work, also where it fails
};

// Takes a step; called in the thread that does the work, at most ten times a second. Returns false to call
// the work off: it then ends with Cancelled, and nothing of its output stays.
using ProgressCallback = std::function<bool(const ProgressStep&)>;

// Thrown where the callback returned false.
class Cancelled : public Error {
 public:
  Cancelled() : Error({}, "called off") {}
};

// One piece of work, from its beginning to its end.
class Progress {
 public:
  // `callback` may be empty, and must outlive this.
  Progress(const ProgressCallback& callback, std::string what, int64_t total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  // Throws Cancelled. Negative positions are passed over.
  void At(int64_t position);
  void Done();

 private:
  const ProgressCallback& callback_;
  std::string what_;
  int64_t total_;
  bool told_ = false;
  std::chrono::steady_clock::time_point last_{};
};

}  // namespace qlnmedia

#endif
