// What the benchmarks share: how a row is named, its data, and the check that comes before the clock.
//
// A row of the table is a pair or more of cases named "row/ours" and "row/PEER"; the report takes the ratio
// of ours to the fastest peer, repetition by repetition, and its median. A row's goal stands in goals.txt.
#ifndef BENCH_BENCH_SUPPORT_H
#define BENCH_BENCH_SUPPORT_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace qln::bench {

using Bytes = std::vector<uint8_t>;

// Ends the program with a message unless `held`: a benchmark of wrong results is worth nothing.
void Require(bool held, const char* what);

// A file made once by a command and kept in the build folder; "{out}" stands for the file. Returns its path.
// Ends the program when the command fails.
std::string EncodedFile(const std::string& name, const std::string& command);

Bytes ReadFile(const std::string& path);

// The NAL units of a byte stream, without start codes.
std::vector<Bytes> UnitsOf(const Bytes& stream);

// Random bytes that look like coded data: emulation prevention would find next to nothing in them.
Bytes CodedLikeBytes(size_t count, uint64_t seed = 1);

// The time that this thread has run.
inline double ThreadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// The seconds of `work` alone: sets up anew in front of each of a few calls and takes the median. Of the
// clock on the wall and that of the thread the shorter counts: the one is exact for a moment, the other does
// not run while other programs do.
template <class SetUp, class Work>
double SecondsAlone(SetUp setUp, Work work) {
  std::array<double, 9> seconds;
  for (double& taken : seconds) {
    setUp();
    const double threadBefore = ThreadSeconds();
    const auto before = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - before;
    taken = std::min(passed.count(), ThreadSeconds() - threadBefore);
    benchmark::ClobberMemory();
  }
  std::nth_element(seconds.begin(), seconds.begin() + seconds.size() / 2, seconds.end());
  return seconds[seconds.size() / 2];
}

// The same in a case that measures by hand, counted for each of the calls.
template <class SetUp, class Work>
void TimeAlone(benchmark::State& run, SetUp setUp, Work work) {
  run.SetIterationTime(SecondsAlone(setUp, work) * 9);
}

}  // namespace qln::bench

#endif
