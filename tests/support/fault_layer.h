// Makes one call of a program fail: the n-th allocation, the n-th read, and so on.
//
// fault_layer.cpp is a shared object of its own, which stands in front of the C library's allocation calls
// and has the system's trapped. A test program that links it arms it by the calls below. Preloaded into a
// program that knows nothing of it, it becomes a server where QLN_FAULT_CONTROL names two descriptors
// ("7,8"): for each line that it reads, as "read EINTR 12 20000", it lets the program run once, in a process
// of its own, with the twelfth read interrupted and 20 seconds to live, and answers with a line: wait status
// (-1 where the time was over), calls counted, and whether the fault came about. QLN_FAULT_SHARE names a file
// in which the calls' marks and the place of the fault stand then; QLN_FAULT_STREAMS a prefix of the files
// "in", "out" and "err" for the standard streams; QLN_FAULT_WARM libraries that are loaded once for all runs.
//
// Groups: allocate, open, read, write, sync, rename, truncate, copy, map, unlink, status, other, clock,
// thread. Effects: the name of an error number, "short" for a read or write of one byte, "kill" for the end
// of the process; with a + behind it, of all calls from there on. "none" counts.
#ifndef TESTS_SUPPORT_FAULT_LAYER_H
#define TESTS_SUPPORT_FAULT_LAYER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// From here on calls of that group are counted, in all threads, and the `at`-th has the effect; calls of the
// dynamic loader do not count. 0 where group or effect is not known. System calls are trapped in the threads
// that are started behind the first arming, and in the one that arms.
int qlnFaultArm(const char* group, const char* effect, uint64_t at);
// Ends that. The number of calls that were counted.
uint64_t qlnFaultDisarm(void);
// Whether the fault came about since the last arming.
int qlnFaultFired(void);
// Blocks that are allocated and not freed.
int64_t qlnFaultLiveBlocks(void);

#ifdef __cplusplus
}
#endif

#endif
