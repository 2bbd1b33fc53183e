// The exit statuses of qlnmedia.
#ifndef TOOLS_QLNMEDIA_EXIT_STATUS_H
#define TOOLS_QLNMEDIA_EXIT_STATUS_H

namespace qlnmedia {

// Exit statuses; stable, since scripts test them.
enum ExitStatus : int {
  kExitSuccess = 0,
  kExitFailure = 1,        // the work could not be done: the message on standard error says why
  kExitUsage = 2,          // the command line is not understood
  kExitFindings = 3,       // the work was done and found something to report (check, patch --verify)
  kExitNotApplicable = 4,  // nothing is wrong, and the file has nothing that the command is about
};

// The status of work on several files: the first of failure, findings and not applicable that is that of any.
inline ExitStatus Combined(ExitStatus a, ExitStatus b) {
  for (const ExitStatus status : {kExitFailure, kExitFindings, kExitNotApplicable}) {
    if (a == status || b == status) return status;
  }
  return kExitSuccess;
}

// Ends a command that did its work with a status other than success; what there is to say has been printed.
struct ToolExit {
  ExitStatus status;
};

}  // namespace qlnmedia

#endif
