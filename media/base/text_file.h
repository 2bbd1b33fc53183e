// Whole text files, written so that a failure leaves what was there before.
#ifndef MEDIA_BASE_TEXT_FILE_H
#define MEDIA_BASE_TEXT_FILE_H

#include <string>
#include <string_view>

#include "base/unfinished.h"

namespace qlnmedia {

// Reads a file of at most 256 MB. Throws Error, saying why it cannot.
std::string ReadTextFile(const std::string& path);

// Writes a file piece by piece, beside its place until it is whole. Throws Error where any byte did not
// reach the disk; what was there before then stays.
class TextFileWriter {
 public:
  // `unfinished` hears of what stands beside the place meanwhile.
  explicit TextFileWriter(const std::string& path, const UnfinishedCallback& unfinished = {});
  // Removes what was written if Finish did not put it in place.
  ~TextFileWriter();
  TextFileWriter(const TextFileWriter&) = delete;
  TextFileWriter& operator=(const TextFileWriter&) = delete;
  void Write(std::string_view text);
  void Finish();

 private:
  void Send();
  void Drop();
  [[noreturn]] void Fail(int error) const;

  std::string path_;
  std::string beside_;
  Unfinished unfinished_;
  std::string buffer_;
  int file_ = -1;
};

// The same for a text that is at hand.
void WriteTextFile(const std::string& path, const std::string& text);

}  // namespace qlnmedia

#endif
