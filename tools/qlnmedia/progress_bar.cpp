// Draws progress.

#include "progress_bar.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <new>
#include <string>

#include "output.h"
#include "qlnmedia/text.h"

namespace qlnmedia {

namespace {

bool Draw(const ProgressStep& step) {
  if (step.total <= 0) return true;
  if (step.finished) {
    PrintError("\r\x1b[K");
    return true;
  }
  constexpr size_t kWidest = 40;
  const size_t beside = ColumnsOf(step.what) + 9;
  const size_t columns = OutputWidth(stderr);
  const size_t width = columns > beside ? std::min(columns - beside, kWidest) : 0;
  const double share = std::clamp(static_cast<double>(step.done) / static_cast<double>(step.total), 0.0, 1.0);
  const auto filled = static_cast<size_t>(share * static_cast<double>(width));
  PrintError(fmt::format("\r{} [{}{}] {:3}%", step.what, std::string(filled, '='),
                         std::string(width - filled, ' '), static_cast<int>(share * 100)));
  return true;
}

// The end of a path, which tells files apart, in so many columns.
std::string EndOf(const std::string& path, size_t columns) {
  size_t from = 0;
  for (size_t left = ColumnsOf(path); left > columns && from < path.size(); ++from) {
    // The bytes of a character go together.
    if (from + 1 == path.size() || (static_cast<unsigned char>(path[from + 1]) & 0xC0) != 0x80) --left;
  }
  return path.substr(from);
}

}  // namespace

ProgressCallback ProgressBar() {
  if (isatty(fileno(stderr)) == 0) return {};
  return Draw;
}

ProgressLine::ProgressLine(size_t files) : files_(files), shown_(isatty(fileno(stderr)) != 0) {}

ProgressLine::~ProgressLine() {
  const std::lock_guard lock(mutex_);
  Clear();
}

void ProgressLine::Step(const std::string& path, const ProgressStep& step) {
  if (!shown_ || step.total <= 0 || step.finished) return;
  const double share = std::clamp(static_cast<double>(step.done) / static_cast<double>(step.total), 0.0, 1.0);
  const std::lock_guard lock(mutex_);
  Draw(std::string(step.what), path, fmt::format("{:3}%", static_cast<int>(share * 100)));
}

void ProgressLine::FileDone() {
  if (!shown_) return;
  const std::lock_guard lock(mutex_);
  ++done_;
  try {
    Draw({}, {}, {});
  } catch (const std::bad_alloc&) {  // a line less; the file's own result says what is wrong
  }
}

void ProgressLine::Around(const std::function<void()>& print) {
  const std::lock_guard lock(mutex_);
  Clear();
  print();
  if (shown_ && done_ < files_) Draw({}, {}, {});
}

void ProgressLine::Clear() {
  if (drawn_) PrintError("\r\x1b[K");
  drawn_ = false;
}

// A line that is longer than the terminal would leave its first half behind, so that long paths lose theirs.
void ProgressLine::Draw(const std::string& what, const std::string& path, const std::string& behind) {
  std::string text = fmt::format("{} of {} files done", done_, files_);
  if (!what.empty()) {
    text += ", " + what + " ";
    const size_t taken = text.size() + 1 + behind.size();
    const size_t width = OutputWidth(stderr) - 1;
    const std::string name = EndOf(Printable(path), width > taken ? width - taken : 0);
    text += (name.empty() ? "" : name + " ") + behind;
  }
  PrintError("\r\x1b[K" + text);
  drawn_ = true;
}

}  // namespace qlnmedia
