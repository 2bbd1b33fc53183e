// Progress on standard error: a bar for one file, a line for several.
#ifndef TOOLS_QLNMEDIA_PROGRESS_BAR_H
#define TOOLS_QLNMEDIA_PROGRESS_BAR_H

#include <cstddef>
#include <functional>
#include <mutex>
#include <string>

#include "qlnmedia/progress.h"

namespace qlnmedia {

// Draws each step where standard error is a terminal; empty where it is not.
ProgressCallback ProgressBar();

// One line about work on several files, drawn where standard error is a terminal. For several threads.
class ProgressLine {
 public:
  explicit ProgressLine(size_t files);
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  // A file has come as far as that.
  void Step(const std::string& path, const ProgressStep& step);
  void FileDone();
  // Calls `print` while the line is away, and nobody draws it.
  void Around(const std::function<void()>& print);

 private:
  void Clear();
  void Draw(const std::string& what, const std::string& path, const std::string& behind);

  const size_t files_;
  const bool shown_;
  std::mutex mutex_;
  size_t done_ = 0;
  bool drawn_ = false;
};

}  // namespace qlnmedia

#endif
