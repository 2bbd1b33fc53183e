// Keeps paths where a handler of signals may read them.

#include "base/unfinished.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstring>

namespace qlnmedia {

namespace {

enum State : int { kFree, kFilling, kThere };

struct Slot {
  std::atomic<int> state{kFree};
  std::array<char, 4096> path{};
};

std::array<Slot, Unfinished::kMost> slots;
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void RemoveUnfinished(int signal) {
  for (Slot& slot : slots) {
    if (slot.state.load() == kThere) unlink(slot.path.data());
  }
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

}  // namespace

Unfinished::Unfinished(const std::string& path) {
  for (int i = 0; i < kMost && slot_ < 0 && path.size() < slots[0].path.size(); ++i) {
    int expected = kFree;
    if (slots[static_cast<size_t>(i)].state.compare_exchange_strong(expected, kFilling)) slot_ = i;
  }
  if (slot_ < 0) return;
  Slot& slot = slots[static_cast<size_t>(slot_)];
  std::memcpy(slot.path.data(), path.c_str(), path.size() + 1);
  slot.state = kThere;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    if (std::signal(signal, RemoveUnfinished) == SIG_IGN) std::signal(signal, SIG_IGN);
  }
}

Unfinished::~Unfinished() {
  if (slot_ >= 0) slots[static_cast<size_t>(slot_)].state = kFree;
}

}  // namespace qlnmedia
