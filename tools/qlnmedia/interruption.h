// What Ctrl-C, a closed terminal and a kill leave behind: nothing.
#ifndef TOOLS_QLNMEDIA_INTERRUPTION_H
#define TOOLS_QLNMEDIA_INTERRUPTION_H

#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "qlnmedia/progress.h"

namespace qlnmedia {

// While this lives, SIGINT, SIGTERM and SIGHUP remove what the work has made and not finished, and then end
// the process as they would have; one that whoever started us ignores stays ignored. They come in a thread of
// their own, since no handler could take folders away. Made before any other thread of the process, at most
// one at a time.
class Interruption {
 public:
  Interruption();
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  // For the work that is to be looked after; must not be called when this is gone.
  UnfinishedCallback callback();

 private:
  void Wait();
  [[noreturn]] void EndBy(int signal);

  std::mutex mutex_;
  std::vector<std::string> there_;
  int signals_ = -1;  // descriptor of the signals that wait
  int stop_ = -1;     // descriptor that is readable when the thread is to end
  std::thread thread_;
};

}  // namespace qlnmedia

#endif
