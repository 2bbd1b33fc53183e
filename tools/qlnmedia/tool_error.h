// How qlnmedia fails: one line that says where, what, and what to do, and an exit status for scripts.
#ifndef TOOLS_QLNMEDIA_TOOL_ERROR_H
#define TOOLS_QLNMEDIA_TOOL_ERROR_H

#include <stdexcept>
#include <string>

namespace qlnmedia {

// Exit statuses; stable, since scripts test them.
enum ExitStatus : int {
  kExitSuccess = 0,
  kExitFailure = 1,   // the work could not be done: the message on standard error says why
  kExitUsage = 2,     // the command line is not understood
  kExitFindings = 3,  // the work was done and found something to report (check, patch --verify)
};

// Ends a command. The text is one line, "WHERE: WHAT", with what to do about it behind a semicolon where
// there is something to do.
class ToolError : public std::runtime_error {
 public:
  ToolError(const std::string& where, const std::string& what, const std::string& advice = {})
      : std::runtime_error((where.empty() ? what : where + ": " + what) +
                           (advice.empty() ? advice : "; " + advice)) {}
};

// Ends a command that did its work with a status other than success; what there is to say has been printed.
struct ToolExit {
  ExitStatus status;
};

}  // namespace qlnmedia

#endif
