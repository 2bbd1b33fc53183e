// Loads the library, looks it up, unloads it, and compares what the process has before, in between and after:
// nothing may change but the mapped code.

#include <dirent.h>
#include <dlfcn.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

extern char** environ;

namespace {

int EntriesOf(const char* folder) {
  DIR* const open = opendir(folder);
  if (open == nullptr) return -1;
  int count = 0;
  while (readdir(open) != nullptr) ++count;
  closedir(open);
  return count;
}

// Threads, open files, working folder, environment and signal handlers, as one text.
std::string ProcessState() {
  std::ostringstream text;
  text << "threads " << EntriesOf("/proc/self/task") << "\nfiles " << EntriesOf("/proc/self/fd") << "\n";
  char folder[4096];
  text << (getcwd(folder, sizeof folder) != nullptr ? folder : "") << "\n";
  for (char** entry = environ; *entry != nullptr; ++entry) text << *entry << "\n";
  for (int number = 1; number < 32; ++number) {
    struct sigaction action;
    if (sigaction(number, nullptr, &action) != 0) continue;
    text << number << " " << reinterpret_cast<const void*>(action.sa_handler) << "\n";
  }
  return text.str();
}

bool IsMapped(const char* name) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find(name) != std::string::npos) return true;
  }
  return false;
}

int problems = 0;

void Expect(bool good, const char* what) {
  if (good) return;
  std::printf("%s\n", what);
  ++problems;
}

}  // namespace

int main(int /*count*/, char** arguments) {
  const char* const path = arguments[1];
  const std::string before = ProcessState();
  const int here = EntriesOf(".");
  Expect(!IsMapped("libqlnutil"), "mapped before it was loaded");
  for (int round = 0; round < 3; ++round) {
    void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    Expect(library != nullptr, "does not load");
    if (library == nullptr) return 1;
    Expect(ProcessState() == before, "loading changed the process");
    Expect(dlsym(library, "qlnutilRead_SPS") != nullptr, "a function is missing");
    Expect(dlclose(library) == 0, "does not unload");
    Expect(ProcessState() == before, "unloading changed the process");
    Expect(!IsMapped("libqlnutil"), "still mapped after it was unloaded");
  }
  Expect(EntriesOf(".") == here, "a file appeared");
  return problems == 0 ? 0 : 1;
}
