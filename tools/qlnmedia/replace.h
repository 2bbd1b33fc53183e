// Files that are there already when one is to be written.
#ifndef TOOLS_QLNMEDIA_REPLACE_H
#define TOOLS_QLNMEDIA_REPLACE_H

#include <string>

namespace qlnmedia {

// What the option says that lets a file be replaced.
inline constexpr const char* kForceHelp = "Replace the output without a question where it is there already";

// Returns where `path` may be written: nothing is there, or no ordinary file, or `force` is set, or somebody
// at the terminal says yes. Throws Error, naming the file, where it stays.
void RequireMayReplace(const std::string& path, bool force);

}  // namespace qlnmedia

#endif
