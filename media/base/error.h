// How the engine fails: one line that says where, what, and what to do about it.
#ifndef MEDIA_BASE_ERROR_H
#define MEDIA_BASE_ERROR_H

#include <stdexcept>
#include <string>

namespace qlnmedia {

// Ends a piece of work. The text is one line, "WHERE: WHAT", with what to do about it behind a semicolon
// where there is something to do.
class Error : public std::runtime_error {
 public:
  Error(const std::string& where, const std::string& what, const std::string& advice = {})
      : std::runtime_error((where.empty() ? what : where + ": " + what) +
                           (advice.empty() ? advice : "; " + advice)) {}
};

}  // namespace qlnmedia

#endif
