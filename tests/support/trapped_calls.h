// System calls of this process that are trapped: a handler stands in their place, also for those that the C
// library makes for itself (those of stdio). x86-64 only.
#ifndef TESTS_SUPPORT_TRAPPED_CALLS_H
#define TESTS_SUPPORT_TRAPPED_CALLS_H

#include <stddef.h>

// Makes a system call that is not trapped: number, six arguments; the result as the kernel gives it.
extern "C" long qlnFaultGate(long, long, long, long, long, long, long);

namespace qln::test {

// Stands in the place of a call: its number, its six arguments, and who called. Runs as a handler of signals
// does, with calls through the gate only. The result is the call's, as the kernel gives it.
using TrappedCall = long (*)(long number, const long* arguments, const void* caller);

// From here on these calls of this thread, and of those that it starts, go to the handler. There is no way
// back; further numbers may follow, for the same handler. False where the system does not let it.
bool TrapCalls(const unsigned* numbers, size_t count, TrappedCall handler);

// The same call with the gate, with arguments as the handler has them.
inline long MakeCall(long number, const long* a) {
  return qlnFaultGate(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}

}  // namespace qln::test

#endif
