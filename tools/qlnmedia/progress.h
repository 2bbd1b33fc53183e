// A progress bar on standard error when that is a terminal; silent otherwise.
#ifndef TOOLS_QLNMEDIA_PROGRESS_H
#define TOOLS_QLNMEDIA_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <string>

namespace qlnmedia {

class Progress {
 public:
  // `total` in the units of At; 0 or below for unknown.
  Progress(std::string what, int64_t total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  // Draws at most ten times a second.
  void At(int64_t position);
  // Takes the bar off the screen.
  void Done();

 private:
  std::string what_;
  int64_t total_;
  bool visible_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point last_{};
};

}  // namespace qlnmedia

#endif
