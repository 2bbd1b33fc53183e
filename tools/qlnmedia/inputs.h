// The files that a command line names: files, folders, and what comes through a pipe.
#ifndef TOOLS_QLNMEDIA_INPUTS_H
#define TOOLS_QLNMEDIA_INPUTS_H

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qlnmedia {

struct InputOptions {
  std::vector<std::string> paths;
  bool recursive = false;
  unsigned jobs = 1;
};

// One file to work on.
struct Input {
  std::string path;
  std::string below;  // its path below the folder that was named; its name where it was named itself
};

// All files, in the order in which they were named.
struct Inputs {
  std::vector<Input> files;
  bool several = false;                   // more than one path, or a folder
  std::vector<std::string> emptyFolders;  // that hold no media
};

// The endings of media files in folders, and those of caption files, each with its point.
std::vector<std::string> MediaEndings();
std::vector<std::string> CaptionEndings();

// Adds FILE ..., --recursive and --jobs. `help` says what FILE may be.
void AddInputOptions(CLI::App& command, InputOptions& options, const std::string& help);

// Looks up folders: of each, the files whose endings are those of media, by their names. "-" is standard
// input. Throws Error for a folder without --recursive, or one that cannot be read, and CLI::ValidationError
// where standard input is named twice.
Inputs FindInputs(const InputOptions& options);

// Every path that is read for them: those that were named, and files in folders that are links to others.
std::vector<std::string> ReadPlaces(const InputOptions& options, const Inputs& inputs);

}  // namespace qlnmedia

#endif
