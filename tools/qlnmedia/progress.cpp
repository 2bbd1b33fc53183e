// Draws progress.

#include "qlnmedia/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace qlnmedia {

Progress::Progress(std::string what, int64_t total)
    : what_(std::move(what)), total_(total), visible_(total > 0 && isatty(fileno(stderr)) != 0) {}

Progress::~Progress() { Done(); }

void Progress::At(int64_t position) {
  if (!visible_ || position < 0) return;
  const auto now = std::chrono::steady_clock::now();
  if (drawn_ && now - last_ < std::chrono::milliseconds(100)) return;
  last_ = now;
  drawn_ = true;
  constexpr int kWidth = 40;
  const double share = std::clamp(static_cast<double>(position) / static_cast<double>(total_), 0.0, 1.0);
  const int filled = static_cast<int>(share * kWidth);
  fmt::print(stderr, "\r{} [{}{}] {:3}%", what_, std::string(static_cast<size_t>(filled), '='),
             std::string(static_cast<size_t>(kWidth - filled), ' '), static_cast<int>(share * 100));
  std::fflush(stderr);
}

void Progress::Done() {
  if (drawn_) fmt::print(stderr, "\r\x1b[K");
  drawn_ = false;
}

}  // namespace qlnmedia
