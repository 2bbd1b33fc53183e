// Whole text files, written so that a failure leaves what was there before.
#ifndef TOOLS_QLNMEDIA_TEXT_FILE_H
#define TOOLS_QLNMEDIA_TEXT_FILE_H

#include <string>

namespace qlnmedia {

// Reads a file of at most 256 MB. Throws ToolError, saying why it cannot.
std::string ReadTextFile(const std::string& path);

// Writes a file beside its place and renames it. Throws ToolError where any byte did not reach the disk.
void WriteTextFile(const std::string& path, const std::string& text);

}  // namespace qlnmedia

#endif
