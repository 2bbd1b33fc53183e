// Waits for signals beside the work.

#include "interruption.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace qlnmedia {

namespace {

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
  stop_ = eventfd(0, EFD_CLOEXEC);
  if (signals_ < 0 || stop_ < 0) throw std::system_error(errno, std::generic_category(), "signals");
  thread_ = std::thread([this] { Wait(); });
}

Interruption::~Interruption() {
  eventfd_write(stop_, 1);
  thread_.join();
  const sigset_t set = Signals();
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  close(signals_);
  close(stop_);
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

void Interruption::Wait() {
  std::array<pollfd, 2> waiting = {pollfd{signals_, POLLIN, 0}, pollfd{stop_, POLLIN, 0}};
  for (;;) {
    if (poll(waiting.data(), waiting.size(), -1) < 0) continue;
    signalfd_siginfo came{};
    if (waiting[0].revents != 0 && read(signals_, &came, sizeof came) == sizeof came) {
      EndBy(static_cast<int>(came.ssi_signo));
    }
    if (waiting[1].revents != 0) return;
  }
}

void Interruption::EndBy(int signal) {
  // Held to the end: the work cannot make another file.
  const std::lock_guard lock(mutex_);
  for (auto path = there_.rbegin(); path != there_.rend(); ++path) {
    // A file may get its name in a folder while that is emptied.
    std::error_code error;
    for (int attempt = 0; attempt < 3; ++attempt) {
      std::filesystem::remove_all(*path, error);
      if (!error) break;
    }
  }
  std::signal(signal, SIG_DFL);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  std::raise(signal);
  std::_Exit(128 + signal);  // where the signal does not end the process
}

}  // namespace qlnmedia
