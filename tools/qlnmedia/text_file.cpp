// Reads and writes whole text files.

#include "qlnmedia/text_file.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "qlnmedia/tool_error.h"

namespace qlnmedia {

namespace {

constexpr size_t kMostBytes = size_t{256} << 20;

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, FileCloser>;

}  // namespace

std::string ReadTextFile(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) throw ToolError(path, "is a directory");
  const FileHandle file(std::fopen(path.c_str(), "rb"));
  if (file == nullptr) throw ToolError(path, std::strerror(errno), "check the path");
  std::string text;
  std::array<char, 65536> piece{};
  for (size_t got = 0; (got = std::fread(piece.data(), 1, piece.size(), file.get())) != 0;) {
    text.append(piece.data(), got);
    if (text.size() > kMostBytes) throw ToolError(path, "is too large for a caption file");
  }
  if (std::ferror(file.get()) != 0) throw ToolError(path, "cannot be read");
  return text;
}

void WriteTextFile(const std::string& path, const std::string& text) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
    throw ToolError(path, "is no ordinary file", "name a file for the output");
  const std::string beside = fmt::format("{}.{}.part", path, getpid());
  const auto fail = [&](int error) {
    unlink(beside.c_str());
    throw ToolError(path, fmt::format("cannot be written: {}", std::strerror(error)));
  };
  std::FILE* const file = std::fopen(beside.c_str(), "wbx");
  if (file == nullptr) throw ToolError(path, fmt::format("cannot be written: {}", std::strerror(errno)));
  const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  const int writeError = errno;
  if (std::fclose(file) != 0 || !written) fail(written ? errno : writeError);
  if (std::rename(beside.c_str(), path.c_str()) != 0) fail(errno);
}

}  // namespace qlnmedia
