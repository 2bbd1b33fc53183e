// Outputs that are not whole yet, so that an interruption takes them away.
#ifndef MEDIA_BASE_UNFINISHED_H
#define MEDIA_BASE_UNFINISHED_H

#include <string>

namespace qlnmedia {

// While this lives, SIGINT, SIGTERM and SIGHUP remove the file before they do what they did; one that whoever
// started us ignores stays ignored. Several may live at once, in several threads; beyond kMost of them a file
// is not looked after.
class Unfinished {
 public:
  static constexpr int kMost = 16;
  explicit Unfinished(const std::string& path);
  ~Unfinished();
  Unfinished(const Unfinished&) = delete;
  Unfinished& operator=(const Unfinished&) = delete;

 private:
  int slot_ = -1;
};

}  // namespace qlnmedia

#endif
