// A filter of system calls, which are answered by a signal.

#include "support/trapped_calls.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/prctl.h>
#include <ucontext.h>

extern "C" const char qlnFaultGateEnd[];

// The one place from which calls are not trapped.
asm(R"(
  .text
  .hidden qlnFaultGate
  .globl qlnFaultGate
  .type qlnFaultGate, @function
qlnFaultGate:
  mov %rdi, %rax
  mov %rsi, %rdi
  mov %rdx, %rsi
  mov %rcx, %rdx
  mov %r8, %r10
  mov %r9, %r8
  mov 8(%rsp), %r9
  syscall
  .hidden qlnFaultGateEnd
  .globl qlnFaultGateEnd
qlnFaultGateEnd:
  ret
  .size qlnFaultGate, . - qlnFaultGate
)");

namespace qln::test {
namespace {

constexpr size_t kMostNumbers = 100;

TrappedCall handlerOfCalls = nullptr;

void Trapped(int, siginfo_t* info, void* context) {
  greg_t* const registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
  const long arguments[6] = {registers[REG_RDI], registers[REG_RSI], registers[REG_RDX],
                             registers[REG_R10], registers[REG_R8],  registers[REG_R9]};
  registers[REG_RAX] = handlerOfCalls(info->si_syscall, arguments, info->si_call_addr);
}

}  // namespace

bool TrapCalls(const unsigned* numbers, size_t count, TrappedCall handler) {
  if (count > kMostNumbers) return false;
  handlerOfCalls = handler;
  struct sigaction action {};
  action.sa_sigaction = Trapped;
  action.sa_flags = SA_SIGINFO | SA_NODEFER | SA_RESTART;
  if (sigaction(SIGSYS, &action, nullptr) != 0) return false;
  const auto gate = reinterpret_cast<uintptr_t>(qlnFaultGateEnd);
  sock_filter filter[7 + 2 * kMostNumbers];
  unsigned short n = 0;
  const auto add = [&](sock_filter one) { filter[n++] = one; };
  constexpr unsigned kAt = offsetof(seccomp_data, instruction_pointer);
  add(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kAt));
  add(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(gate), 0, 3));
  add(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kAt + 4));
  add(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(gate >> 32), 0, 1));
  add(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  add(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
  for (size_t i = 0; i < count; ++i) {
    add(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, numbers[i], 0, 1));
    add(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP));
  }
  add(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog program = {n, filter};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

}  // namespace qln::test
