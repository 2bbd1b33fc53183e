// The kernel's limit for data, and a thread that waits for the end of the time.

#include "run_limits.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>
#include <thread>

#include "exit_status.h"
#include "interruption.h"
#include "memory_watch.h"
#include "output.h"
#include "qlnmedia/error.h"

namespace qlnmedia {

uint64_t ParseSize(const std::string& text) {
  uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  const std::string unit(stop, end);
  const size_t power = unit.empty() ? 0 : std::string("KMG").find(unit) + 1;
  const bool known = unit.empty() || (unit.size() == 1 && power != 0);
  if (error != std::errc() || !known || number == 0 || number > UINT64_MAX >> 10 * power) return 0;
  return number << 10 * power;
}

void LimitMemory(const std::string& size) {
  const rlim_t bytes = ParseSize(size);
  rlimit limit{};
  if (getrlimit(RLIMIT_DATA, &limit) == 0) {
    limit.rlim_cur = limit.rlim_cur == RLIM_INFINITY ? bytes : std::min(limit.rlim_cur, bytes);
    if (setrlimit(RLIMIT_DATA, &limit) == 0)
      return SetMemoryLine("out of memory; --max-memory allows " + size);
  }
  throw Error("--max-memory", std::strerror(errno));
}

void LimitSeconds(uint32_t seconds) {
  const std::string line = fmt::format("stopped after {} seconds, which --max-seconds allows", seconds);
  sigset_t all, before;
  sigfillset(&all);
  // Signals are for those who wait for them.
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  try {
    std::thread([end, line] {
      std::this_thread::sleep_until(end);
      Interruption::EndUnfinished([&line] {
        PrintFailure(line);
        std::_Exit(kExitFailure);
      });
    }).detach();
  } catch (const std::system_error& error) {
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    throw Error("--max-seconds", std::string("no thread can be started: ") + error.what());
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace qlnmedia
