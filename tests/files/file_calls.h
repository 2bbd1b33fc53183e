// The file calls, clock and allocator of the utility layer in the hands of a test: this program defines them,
// which replaces those of the library's own; without a test's object in place they go on to the real ones.
#ifndef TESTS_FILES_FILE_CALLS_H
#define TESTS_FILES_FILE_CALLS_H

#include <cstdint>
#include <string>
#include <vector>

#include "kxutil/kxutil.h"
#include "support/test_support.h"

namespace qln::test {

// While one lives, its members are called in place of the real calls. Each goes on to the real call by
// default.
class FileCalls {
 public:
  FileCalls() : FileCalls(true) {}
  virtual ~FileCalls();
  FileCalls(const FileCalls&) = delete;
  FileCalls& operator=(const FileCalls&) = delete;

  virtual KXFileHandle Create(const char* path, uint32_t access, uint32_t share, uint32_t disposition);
  virtual int32_t Close(KXFileHandle handle);
  virtual int32_t Read(KXFileHandle handle, void* buffer, uint32_t count, uint32_t* bytesRead);
  virtual int32_t Write(KXFileHandle handle, const void* buffer, uint32_t count, uint32_t* written);
  virtual uint64_t Seek(KXFileHandle handle, uint64_t offset);
  virtual uint32_t Size(KXFileHandle handle);
  virtual int32_t SizeEx(KXFileHandle handle, uint64_t* size);
  virtual int32_t Exists(const char* path);
  virtual uint32_t LastError();
  virtual uint32_t Ms();
  virtual void SleepMs(uint32_t milliseconds);
  virtual void* Allocate(size_t size);

  // The object in place, or one that only goes on to the real calls.
  static FileCalls& Current();

 private:
  explicit FileCalls(bool takesPlace);
};

// A file that is not there, and a clock that only Sleep moves: what is asked of them is written down.
class ScriptedFile : public FileCalls {
 public:
  static constexpr KXFileHandle kHandle = 77;

  explicit ScriptedFile(uint64_t fileSize) : size(fileSize) {}

  // The byte at a position of the file.
  static uint8_t ByteAt(uint64_t position) {
    const uint64_t mixed = (position + 1) * 0x9E3779B97F4A7C15u;
    return static_cast<uint8_t>(mixed >> 56 | 1u);  // never 0, which is what nobody read
  }
  static Bytes BytesAt(uint64_t position, size_t count);

  struct ReadStep {
    bool succeeds;
    uint32_t count;  // bytes told; those in front of the request's end are put into the buffer
    uint32_t error;
  };

  uint64_t size;
  uint64_t position = 0;
  uint32_t error = 0;
  uint32_t now = 1000;
  bool clockMoves = true;
  uint64_t grownBySleep = 0;
  uint32_t sleeps = 0;
  uint64_t seekAnswer = 0;  // with failSeeks
  int failSeeks = 0;
  int failAllocations = 0;
  std::vector<ReadStep> steps;  // for the reads to come; behind them, plain reads
  std::vector<std::string> log;

  std::vector<std::string> TakeLog();

  int32_t Read(KXFileHandle handle, void* buffer, uint32_t count, uint32_t* bytesRead) override;
  uint64_t Seek(KXFileHandle handle, uint64_t offset) override;
  int32_t SizeEx(KXFileHandle handle, uint64_t* result) override;
  uint32_t LastError() override { return error; }
  uint32_t Ms() override { return now; }
  void SleepMs(uint32_t milliseconds) override;
  void* Allocate(size_t bytes) override;
};

}  // namespace qln::test

#endif
