// Paths taken apart and put together, whichever system they come from.

#include <algorithm>
#include <cstring>
#include <string_view>

#include "kxutil/kxutil.h"

namespace {

bool IsSeparator(char c) { return c == '/' || c == '\\'; }
bool IsLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

// Stores a piece with its terminator, cut to the room.
void Store(std::string_view piece, char* output, size_t room) {
  if (output == nullptr) return;
  const size_t length = std::min(piece.size(), room - 1);
  std::memcpy(output, piece.data(), length);
  output[length] = '\0';
}

// A path under construction; what no longer fits falls away at the end.
class PathText {
 public:
  void Add(std::string_view piece) {
    const size_t length = std::min(piece.size(), sizeof text_ - 1 - length_);
    std::memcpy(text_ + length_, piece.data(), length);
    length_ += length;
  }
  std::string_view text() const { return {text_, length_}; }

 private:
  char text_[KX_PATH_SIZE];
  size_t length_ = 0;
};

std::string_view TextOf(const char* text) { return text != nullptr ? text : ""; }

}  // namespace

void kxOSSplitPath(const char* path, char* drive, char* directory, char* name, char* extension) {
  const std::string_view text = TextOf(path);
  const size_t driveEnd = text.size() >= 2 && IsLetter(text[0]) && text[1] == ':' ? 2 : 0;
  size_t nameStart = text.size();
  while (nameStart > driveEnd && !IsSeparator(text[nameStart - 1])) --nameStart;
  const size_t dot = text.rfind('.');
  const size_t nameEnd = dot != std::string_view::npos && dot >= nameStart ? dot : text.size();

  Store(text.substr(0, driveEnd), drive, KX_DRIVE_SIZE);
  Store(text.substr(driveEnd, nameStart - driveEnd), directory, KX_DIRECTORY_SIZE);
  Store(text.substr(nameStart, nameEnd - nameStart), name, KX_NAME_SIZE);
  Store(text.substr(nameEnd), extension, KX_EXTENSION_SIZE);
}

void kxOSMakePath(char* path, const char* drive, const char* directory, const char* name,
                  const char* extension) {
  if (path == nullptr) return;
  PathText made;
  const std::string_view driveText = TextOf(drive);
  if (!driveText.empty()) {
    made.Add(driveText.substr(0, 1));
    made.Add(":");
  }
  const std::string_view directoryText = TextOf(directory);
  made.Add(directoryText);
  if (!directoryText.empty() && !IsSeparator(directoryText.back())) {
    // The same kind as the folder's own.
    const size_t last = directoryText.find_last_of("/\\");
    made.Add(last != std::string_view::npos ? directoryText.substr(last, 1) : "/");
  }
  made.Add(TextOf(name));
  const std::string_view extensionText = TextOf(extension);
  if (!extensionText.empty() && extensionText.front() != '.') made.Add(".");
  made.Add(extensionText);
  Store(made.text(), path, KX_PATH_SIZE);
}
