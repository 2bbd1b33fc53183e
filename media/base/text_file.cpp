// Reads and writes whole text files.

#include "base/text_file.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "base/error.h"

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
  if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) throw Error(path, "is a directory");
  const FileHandle file(std::fopen(path.c_str(), "rb"));
  if (file == nullptr) throw Error(path, std::strerror(errno), "check the path");
  std::string text;
  std::array<char, 65536> piece{};
  for (size_t got = 0; (got = std::fread(piece.data(), 1, piece.size(), file.get())) != 0;) {
    text.append(piece.data(), got);
    if (text.size() > kMostBytes) throw Error(path, "is too large for a caption file");
  }
  if (std::ferror(file.get()) != 0) throw Error(path, "cannot be read");
  return text;
}

TextFileWriter::TextFileWriter(const std::string& path)
    : path_(path), beside_(fmt::format("{}.{}.part", path, getpid())) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
    throw Error(path, "is no ordinary file", "name a file for the output");
  file_ = std::fopen(beside_.c_str(), "wbx");
  if (file_ == nullptr) Fail(errno);
}

TextFileWriter::~TextFileWriter() {
  if (file_ == nullptr) return;
  std::fclose(file_);
  unlink(beside_.c_str());
}

void TextFileWriter::Fail(int error) const {
  throw Error(path_, fmt::format("cannot be written: {}", std::strerror(error)));
}

void TextFileWriter::Write(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), file_) != text.size()) Fail(errno);
}

void TextFileWriter::Finish() {
  std::FILE* const file = file_;
  file_ = nullptr;
  if (std::fclose(file) == 0 && std::rename(beside_.c_str(), path_.c_str()) == 0) return;
  const int error = errno;
  unlink(beside_.c_str());
  Fail(error);
}

void WriteTextFile(const std::string& path, const std::string& text) {
  TextFileWriter file(path);
  file.Write(text);
  file.Finish();
}

}  // namespace qlnmedia
