// Draws progress.

#include "progress_bar.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

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

}  // namespace qlnmedia
