// What Ctrl-C, a closed terminal and a kill leave behind: nothing.
#ifndef TOOLS_QLNMEDIA_INTERRUPTION_H
#define TOOLS_QLNMEDIA_INTERRUPTION_H

#include <functional>
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
  // For a process that ends where it stands: removes the files that are there and not finished. Allocates
  // nothing and waits for nobody.
  static void RemoveUnfinished() noexcept;
  // For a process that ends while its work goes on: removes what is there and not finished, and calls `end`,
  // which does not return; the work waits where it would make or finish another.
  static void EndUnfinished(const std::function<void()>& end);

 private:
  void Close();
  void Wait();
  void RemoveAll();
  [[noreturn]] void EndBy(int signal);

  std::mutex mutex_;
  std::vector<std::string> there_;
  int signals_ = -1;  // descriptor of the signals that wait
  int stopped_ = -1;  // descriptor that hangs up when the thread is to end
  int stop_ = -1;     // the other end of that pipe
  std::thread thread_;
};

}  // namespace qlnmedia

#endif
