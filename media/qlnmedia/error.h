// How the engine fails: one line that says where, what, and what to do about it.
#ifndef QLNMEDIA_ERROR_H
#define QLNMEDIA_ERROR_H

#include <stdexcept>
#include <string>

#include "qlnmedia/api.h"

namespace qlnmedia {

/// Ends a piece of work. The text is one line, "WHERE: WHAT", with what to do about it behind a semicolon
/// where there is something to do. Every failure of the engine is one, but for memory (std::bad_alloc).
class QLNMEDIA_API Error : public std::runtime_error {
 public:
  /// @param where what the line begins with, as a file; may be empty
  /// @param what what is wrong
  /// @param advice what to do about it; may be empty
  Error(const std::string& where, const std::string& what, const std::string& advice = {})
      : std::runtime_error((where.empty() ? what : where + ": " + what) +
                           (advice.empty() ? advice : "; " + advice)) {}
};

}  // namespace qlnmedia

#endif
