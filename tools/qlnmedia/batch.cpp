// A few threads take files by turns; the results wait until it is their turn to be printed.

#include "batch.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "memory_watch.h"
#include "output.h"
#include "progress_bar.h"
#include "qlnmedia/error.h"

namespace qlnmedia {

namespace {

// One file's result or failure.
struct Done {
  FileResult result;
  bool failed = false;
  std::string error;  // empty where memory ran out
};

class Workers {
 public:
  Workers(const Inputs& inputs, unsigned jobs, const Batch& batch)
      : inputs_(inputs), batch_(batch), ahead_(size_t{4} * jobs), line_(inputs.files.size()) {
    const size_t count = std::min<size_t>(jobs, inputs.files.size());
    // Here, so that a thread has room for what it hands over in any case.
    done_.resize(inputs.files.size());
    ready_.resize(inputs.files.size());
    threads_.reserve(count);
    try {
      while (threads_.size() < count) threads_.emplace_back([this] { Work(); });
    } catch (const std::system_error& error) {  // fewer do as well
      if (threads_.empty()) throw Error({}, std::string("cannot start a thread: ") + error.what());
    } catch (...) {
      Stop();
      throw;
    }
  }

  // Calls the work off where somebody still does some.
  ~Workers() { Stop(); }
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  // The result of the next file; waits for it.
  Done Next() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return ready_[printed_] != 0; });
    Done done = std::move(done_[printed_]);
    ++printed_;
    changed_.notify_all();
    return done;
  }

  ProgressLine& line() { return line_; }

 private:
  void Stop() {
    {
      const std::lock_guard lock(mutex_);
      stop_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) thread.join();
  }

  void Work() {
    while (true) {
      std::unique_lock lock(mutex_);
      // Results of many files would fill the memory while a large one in front of them is worked on.
      changed_.wait(lock,
                    [this] { return stop_ || next_ == inputs_.files.size() || next_ < printed_ + ahead_; });
      if (stop_ || next_ == inputs_.files.size()) return;
      const size_t index = next_++;
      lock.unlock();
      WorkOn(inputs_.files[index], done_[index]);
      line_.FileDone();
      lock.lock();
      ready_[index] = 1;
      changed_.notify_all();
    }
  }

  void WorkOn(const Input& input, Done& done) {
    const auto fail = [&done](const char* what, ExitStatus status) {
      done.result.status = status;
      done.failed = true;
      try {
        done.error = what;
      } catch (const std::bad_alloc&) {  // the line then says that
      }
    };
    ForgetMemory();
    try {
      done.result = batch_.work(input, [this, &input](const ProgressStep& step) {
        line_.Step(input.path, step);
        return !stop_;
      });
      RequireMemory();
    } catch (const std::bad_alloc&) {
      fail("", kExitFailure);
    } catch (const NotApplicable& error) {
      fail(error.what(), MemoryRanOut() ? kExitFailure : kExitNotApplicable);
    } catch (const std::exception& error) {
      fail(error.what(), kExitFailure);
    }
    if (MemoryRanOut()) done.error.clear();
  }

  const Inputs& inputs_;
  const Batch& batch_;
  const size_t ahead_;
  ProgressLine line_;
  std::mutex mutex_;
  std::condition_variable changed_;
  size_t next_ = 0;
  size_t printed_ = 0;
  std::atomic<bool> stop_ = false;
  std::vector<Done> done_;
  std::vector<char> ready_;  // which of them are worked out
  std::vector<std::thread> threads_;
};

// A failure of one of several files: its line, and what stands for it among the results.
void PrintFailed(const Batch& batch, const Input& input, ExitStatus status, const std::string& error) {
  PrintFailure(error);
  if (batch.failed) Print(batch.failed(input, status, error));
}

void RunOnOne(const Input& input, const Batch& batch) {
  FileResult result;
  try {
    result = batch.work(input, ProgressBar());
  } catch (const NotApplicable& error) {
    RequireMemory();
    PrintFailure(error.what());
    throw ToolExit{kExitNotApplicable};
  }
  Print(result.text);
  FlushOutput();
  if (result.status != kExitSuccess) throw ToolExit{result.status};
}

}  // namespace

void RunBatch(const Inputs& inputs, unsigned jobs, const Batch& batch) {
  if (!inputs.several) return RunOnOne(inputs.files.front(), batch);
  ExitStatus status = kExitSuccess;
  {
    Workers workers(inputs, jobs, batch);
    bool first = true;
    for (const Input& input : inputs.files) {
      const Done done = workers.Next();
      status = Combined(status, done.result.status);
      workers.line().Around([&] {
        if (done.failed) {
          const std::string memory = input.path + ": " + MemoryLine();
          PrintFailed(batch, input, done.result.status, done.error.empty() ? memory : done.error);
        } else {
          Print((first ? "" : batch.between) + done.result.text);
          first = false;
        }
        FlushOutput();
      });
    }
  }
  for (const std::string& folder : inputs.emptyFolders) {
    PrintFailed(batch, {folder, ""}, kExitNotApplicable, folder + ": holds no media files");
    status = Combined(status, kExitNotApplicable);
  }
  FlushOutput();
  if (status != kExitSuccess) throw ToolExit{status};
}

}  // namespace qlnmedia
