// What the process gives up before it reads a stranger's file.
#ifndef TOOLS_QLNMEDIA_SANDBOX_H
#define TOOLS_QLNMEDIA_SANDBOX_H

#include <string>
#include <vector>

namespace qlnmedia {

// The files and folders of a command. Of a folder, all that is in it and below counts. What is not there is
// passed over: whoever opens it says so.
struct SandboxPlaces {
  std::vector<std::string> read;
  std::vector<std::string>
      write;  // folders in which files and folders are made, renamed and removed, and files
};

// What came of it.
struct Sandbox {
  int landlock = 0;      // the version of the kernel's interface; 0 where it has none, or it is off
  bool seccomp = false;  // whether the filter of system calls is in force
};

// From here on this thread, and those that it starts, open no files but these and what the system's libraries
// need, make no sockets, and start no processes: each such call fails as one that is not permitted. What the
// kernel does not have is left out. The files that are open stay so. There is no way back. Throws Error where
// a place cannot be looked at.
Sandbox EnterSandbox(const SandboxPlaces& places);

// What this kernel would give, without entering: for --version.
Sandbox SandboxOfKernel();
std::string SandboxText(const Sandbox& sandbox);

// The same for a command, unless --no-sandbox was given. `folderOf` below says where an output's file is
// made.
void UseSandbox(bool use);
bool SandboxIsUsed();
void ConfineCommand(const SandboxPlaces& places);
// The folder in which a file of that path stands.
std::string FolderOfPath(const std::string& path);

}  // namespace qlnmedia

#endif
