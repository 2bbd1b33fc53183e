// The run-time switch between the mutants of a build: what the instrumented sources call in place of their operators.
//
// QLN_MUTANT names the one mutant that is on. QLN_MUTANT_SEEN names a file to which the numbers of the mutants that
// were reached go when the process ends. While the compiler evaluates a constant expression no mutant is on.
#ifndef QLN_MUTANT_SWITCH_H
#define QLN_MUTANT_SWITCH_H
#ifdef __cplusplus

#include <cstdio>
#include <cstdlib>

namespace qlnm {

constexpr int kMostMutants = 1 << 16;

struct Switch {
  int on = 0;
  const char* seenFile = nullptr;
  unsigned char seen[kMostMutants] = {};

  Switch() {
    if (const char* number = std::getenv("QLN_MUTANT")) on = std::atoi(number);
    seenFile = std::getenv("QLN_MUTANT_SEEN");
  }
  ~Switch() {
    if (seenFile == nullptr) return;
    std::FILE* const file = std::fopen(seenFile, "a");
    for (int i = 0; file != nullptr && i < kMostMutants; ++i) {
      if (seen[i] != 0) std::fprintf(file, "%d\n", i);
    }
    if (file != nullptr) std::fclose(file);
  }
};

inline Switch mutants;

inline bool OnAtRunTime(int number) {
  if (mutants.seenFile != nullptr) mutants.seen[number] = 1;
  return mutants.on == number;
}

constexpr bool On(int number) { return !__builtin_is_constant_evaluated() && OnAtRunTime(number); }

// One function an operator: what it gives, and what its mutant gives where the types have that.
#define QLN_MUTANT_OPERATOR(Name, op, mutated)                         \
  template <class A, class B>                                          \
  constexpr auto Name(int number, A a, B b)->decltype(a op b) {        \
    if constexpr (requires { static_cast<decltype(a op b)>(a mutated b); }) { \
      if (On(number)) return static_cast<decltype(a op b)>(a mutated b); \
    }                                                                  \
    return a op b;                                                     \
  }
QLN_MUTANT_OPERATOR(Lt, <, <=)
QLN_MUTANT_OPERATOR(Le, <=, <)
QLN_MUTANT_OPERATOR(Gt, >, >=)
QLN_MUTANT_OPERATOR(Ge, >=, >)
QLN_MUTANT_OPERATOR(Eq, ==, !=)
QLN_MUTANT_OPERATOR(Ne, !=, ==)
QLN_MUTANT_OPERATOR(Add, +, -)
QLN_MUTANT_OPERATOR(Sub, -, +)
QLN_MUTANT_OPERATOR(Mul, *, +)
QLN_MUTANT_OPERATOR(Div, /, *)
QLN_MUTANT_OPERATOR(Mod, %, /)
QLN_MUTANT_OPERATOR(Shl, <<, >>)
QLN_MUTANT_OPERATOR(Shr, >>, <<)
QLN_MUTANT_OPERATOR(And, &, |)
QLN_MUTANT_OPERATOR(Or, |, &)
QLN_MUTANT_OPERATOR(Xor, ^, &)
#undef QLN_MUTANT_OPERATOR

template <class T>
constexpr auto Neg(int number, T value) -> decltype(-value) {
  return On(number) ? static_cast<decltype(-value)>(value) : -value;
}
template <class T>
constexpr auto Not(int number, T value) -> decltype(~value) {
  return On(number) ? static_cast<decltype(~value)>(value) : ~value;
}
template <class T>
constexpr T PlusOne(int number, T value) {
  if constexpr (__is_enum(T)) {
    return On(number) ? static_cast<T>(static_cast<__underlying_type(T)>(value) + 1) : value;
  } else {
    return On(number) ? static_cast<T>(value + 1) : value;
  }
}
constexpr bool Flip(int number, bool value) { return On(number) != value; }

}  // namespace qlnm

#endif
#endif
