// Waits for signals beside the work.

#include "interruption.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "qlnmedia/error.h"

namespace qlnmedia {

namespace {

// The one that lives, and what keeps it alive.
std::mutex livingMutex;
Interruption* living = nullptr;

// Those of the three that end the process.
sigset_t Signals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler != SIG_IGN) sigaddset(&set, signal);
  }
  return set;
}

}  // namespace

Interruption::Interruption() {
  const sigset_t set = Signals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  signals_ = signalfd(-1, &set, SFD_CLOEXEC);
  std::array<int, 2> ends = {-1, -1};
  const bool made = signals_ >= 0 && pipe2(ends.data(), O_CLOEXEC) == 0;
  const int reason = errno;
  try {
    if (!made) throw std::system_error(reason, std::generic_category());
    stopped_ = ends[0];
    stop_ = ends[1];
    thread_ = std::thread([this] { Wait(); });
    const std::lock_guard lock(livingMutex);
    living = this;
  } catch (const std::system_error& error) {
    Close();
    throw Error({}, std::string("signals cannot be waited for: ") + error.code().message());
  } catch (...) {
    Close();
    throw;
  }
}

void Interruption::Close() {
  const sigset_t set = Signals();
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  for (const int descriptor : {signals_, stopped_}) {
    if (descriptor >= 0) close(descriptor);
  }
}

Interruption::~Interruption() {
  {
    const std::lock_guard lock(livingMutex);
    living = nullptr;
  }
  close(stop_);  // which cannot fail to be seen at the other end
  thread_.join();
  Close();
}

UnfinishedCallback Interruption::callback() {
  return [this](const std::string& path, bool there) {
    const std::lock_guard lock(mutex_);
    if (there) {
      there_.push_back(path);
    } else {
      there_.erase(std::remove(there_.begin(), there_.end(), path), there_.end());
    }
  };
}

void Interruption::RemoveUnfinished() noexcept {
  if (living == nullptr) return;
  for (const std::string& path : living->there_) unlink(path.c_str());
}

void Interruption::Wait() {
  std::array<pollfd, 2> waiting = {pollfd{signals_, POLLIN, 0}, pollfd{stopped_, POLLIN, 0}};
  for (;;) {
    if (poll(waiting.data(), waiting.size(), -1) < 0) continue;
    signalfd_siginfo came{};
    if (waiting[0].revents != 0 && read(signals_, &came, sizeof came) == sizeof came) {
      EndBy(static_cast<int>(came.ssi_signo));
    }
    if (waiting[1].revents != 0) return;
  }
}

void Interruption::RemoveAll() {
  for (auto path = there_.rbegin(); path != there_.rend(); ++path) {
    // A file may get its name in a folder while that is emptied.
    std::error_code error;
    for (int attempt = 0; attempt < 3; ++attempt) {
      std::filesystem::remove_all(*path, error);
      if (!error) break;
    }
  }
}

void Interruption::EndUnfinished(const std::function<void()>& end) {
  const std::lock_guard alive(livingMutex);
  if (living == nullptr) return end();
  const std::lock_guard lock(living->mutex_);
  living->RemoveAll();
  end();
}

void Interruption::EndBy(int signal) {
  // Held to the end: the work cannot make another file.
  const std::lock_guard lock(mutex_);
  RemoveAll();
  std::signal(signal, SIG_DFL);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  std::raise(signal);
  std::_Exit(128 + signal);  // where the signal does not end the process
}

}  // namespace qlnmedia
