// A file that is in no folder, for what is given a path or a descriptor.
#ifndef FUZZ_NAMELESS_FILE_H
#define FUZZ_NAMELESS_FILE_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

namespace qln::fuzz {

class NamelessFile {
 public:
  // Of these bytes, to be read or written from their begin.
  NamelessFile(const uint8_t* data, size_t size) : number_(memfd_create("input", MFD_CLOEXEC)) {
    if (number_ < 0 || write(number_, data, size) != static_cast<ssize_t>(size) ||
        lseek(number_, 0, SEEK_SET) != 0)
      __builtin_trap();
  }
  ~NamelessFile() { close(number_); }
  NamelessFile(const NamelessFile&) = delete;
  NamelessFile& operator=(const NamelessFile&) = delete;

  int number() const { return number_; }
  std::string path() const { return "/proc/self/fd/" + std::to_string(number_); }
  std::vector<uint8_t> Contents() const {
    std::vector<uint8_t> bytes(static_cast<size_t>(lseek(number_, 0, SEEK_END)));
    if (pread(number_, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) __builtin_trap();
    return bytes;
  }

 private:
  int number_;
};

}  // namespace qln::fuzz

#endif
