// What a piece of work costs in processor time, for tests that compare two such costs.
#ifndef TESTS_SUPPORT_CPU_TIME_H
#define TESTS_SUPPORT_CPU_TIME_H

#include <algorithm>
#include <ctime>
#include <limits>

namespace qln::test {

// The least seconds of processor time that several runs of the work took in this thread: what disturbs a run
// only makes it longer.
template <class Work>
double LeastCpuSeconds(int runs, const Work& work) {
  const auto now = [] {
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
  };
  double least = std::numeric_limits<double>::infinity();
  for (int run = 0; run < runs; ++run) {
    const double start = now();
    work();
    least = std::min(least, now() - start);
  }
  return least;
}

}  // namespace qln::test

#endif
