// Calls of the library that no fuzz target makes.
#ifndef TESTS_THREADS_HAND_CALLS_H
#define TESTS_THREADS_HAND_CALLS_H

#include <cstdint>
#include <mutex>
#include <string>

namespace qln::test {

// Held around speedReps, which has one run for the process: two threads must not call it at once.
std::mutex& SpeedRun();

// All that depend on nothing but their arguments; what they said, as a text.
std::string PureCalls();

// Those that keep something, in memory or below a folder, where each thread has names of its own beside
// shared ones. False where what was kept is not there.
bool KeepingCalls(const std::string& folder, uint32_t thread);

}  // namespace qln::test

#endif
