// This program's own work in a process of its own: whatever a file does to it, the run goes on.
#ifndef TOOLS_QLNMEDIA_APART_H
#define TOOLS_QLNMEDIA_APART_H

#include <string>
#include <vector>

namespace qlnmedia {

struct ApartResult {
  int status = 0;     // the exit status
  int signal = 0;     // not 0: what ended the process
  std::string out;    // standard output
  std::string error;  // the first line on standard error, without the program's name
};

// Runs this program with these arguments and waits for its end. Throws Error where it cannot be started.
// Several threads may do so at a time.
ApartResult RunApart(const std::vector<std::string>& arguments);

}  // namespace qlnmedia

#endif
