// Tells progress, but not too often.

#include "base/progress.h"

#include <utility>

namespace qlnmedia {

Progress::Progress(const ProgressCallback& callback, std::string what, int64_t total)
    : callback_(callback), what_(std::move(what)), total_(total) {}

Progress::~Progress() { Done(); }

void Progress::At(int64_t position) {
  if (!callback_ || position < 0) return;
  const auto now = std::chrono::steady_clock::now();
  if (told_ && now - last_ < std::chrono::milliseconds(100)) return;
  last_ = now;
  told_ = true;
  if (!callback_({what_, position, total_, false})) throw Cancelled();
}

void Progress::Done() {
  if (told_) callback_({what_, total_, total_, true});
  told_ = false;
}

}  // namespace qlnmedia
