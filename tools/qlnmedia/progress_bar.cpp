// Draws progress.

#include "progress_bar.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "output.h"

namespace qlnmedia {

namespace {

bool Draw(const ProgressStep& step) {
  if (step.total <= 0) return true;
  if (step.finished) {
    fmt::print(stderr, "\r\x1b[K");
    return true;
  }
  constexpr int kWidth = 40;
  const double share = std::clamp(static_cast<double>(step.done) / static_cast<double>(step.total), 0.0, 1.0);
  const int filled = static_cast<int>(share * kWidth);
  fmt::print(stderr, "\r{} [{}{}] {:3}%", step.what, std::string(static_cast<size_t>(filled), '='),
             std::string(static_cast<size_t>(kWidth - filled), ' '), static_cast<int>(share * 100));
  std::fflush(stderr);
  return true;
}

}  // namespace

ProgressCallback ProgressBar() {
  if (isatty(fileno(stderr)) == 0) return {};
  return Draw;
}

ProgressLine::ProgressLine(size_t files) : files_(files), shown_(isatty(fileno(stderr)) != 0) {}

void ProgressLine::Step(const std::string& path, const ProgressStep& step) {
  if (!shown_ || step.total <= 0 || step.finished) return;
  const double share = std::clamp(static_cast<double>(step.done) / static_cast<double>(step.total), 0.0, 1.0);
  const std::lock_guard lock(mutex_);
  Draw(fmt::format(", {} {} {}%", step.what, path, static_cast<int>(share * 100)));
}

void ProgressLine::FileDone() {
  if (!shown_) return;
  const std::lock_guard lock(mutex_);
  ++done_;
  Draw("");
}

void ProgressLine::Clear() {
  const std::lock_guard lock(mutex_);
  if (drawn_) fmt::print(stderr, "\r\x1b[K");
  std::fflush(stderr);
  drawn_ = false;
}

void ProgressLine::Draw(const std::string& about) {
  // A line that is longer than the terminal would leave its first half behind.
  std::string text = fmt::format("{} of {} files done{}", done_, files_, about);
  const size_t width = OutputWidth(stderr) - 1;
  if (text.size() > width) text.resize(width);
  fmt::print(stderr, "\r\x1b[K{}", text);
  std::fflush(stderr);
  drawn_ = true;
}

}  // namespace qlnmedia
