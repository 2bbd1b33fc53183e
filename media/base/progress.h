// How far a long piece of work has come, told to whoever asked for it, who may also call it off.
#ifndef MEDIA_BASE_PROGRESS_H
#define MEDIA_BASE_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <string>

#include "qlnmedia/progress.h"

namespace qlnmedia {

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
