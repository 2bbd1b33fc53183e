// The one helper behind every message that ends in the source location pair "%s %d".
#ifndef QLNUTIL_QLNVIDUTIL_H
#define QLNUTIL_QLNVIDUTIL_H

#include "kxutil/kxutil.h"

namespace qln {

// The source unit whose path messages report; hosts filter their logs by it.
inline constexpr const char* kSourcePath = "support/qlnutil/qlnvidutil";

// A message format together with the line of the call that gives it.
struct LocatedFormat {
  const char* format;
  int line;
  // NOLINTNEXTLINE(google-explicit-constructor): a literal is meant to become one.
  consteval LocatedFormat(const char* text, int at = __builtin_LINE()) : format(text), line(at) {}
};

// Reports a message whose format ends in "%s %d": the arguments given, then source path and line of this
// call.
template <class... Arguments>
void ErrOutLocated(LocatedFormat message, Arguments... arguments) {
  ErrOut(message.format, arguments..., kSourcePath, message.line);
}

}  // namespace qln

#endif
