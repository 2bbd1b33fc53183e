// How failures reach Python: the classes of qlnutil.errors, and what the library says on its way.
#ifndef QLNPYTHON_FAILURE_H
#define QLNPYTHON_FAILURE_H

#include <stdexcept>
#include <string>
#include <vector>

#include "qlnutil/helpers.h"

namespace qlnpython {

// Bytes or values that are not what a function takes; becomes qlnutil.StreamError.
class StreamFailure : public std::runtime_error {
 public:
  explicit StreamFailure(const std::string& what, std::string advice = {})
      : std::runtime_error(what), advice_(std::move(advice)) {}
  const std::string& advice() const { return advice_; }

 private:
  std::string advice_;
};

// Turns the failures of engine and extension into exceptions of Python. Called once, when the module is made.
void RegisterFailures();

// Takes what the library says on this thread, and hands it to the logger "qlnutil" with Log.
class Listener {
 public:
  Listener() : scope_([this](uint32_t, const char* text) { Take(text); }) {}
  // Needs the interpreter's lock.
  void Log();

 private:
  void Take(const char* text);

  std::vector<std::string> texts_;
  qlnutil::DiagnosticScope scope_;
};

}  // namespace qlnpython

#endif
