// The replaced calls, and the scripted file behind them.

#include "files/file_calls.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace qln::test {

namespace {

FileCalls* current = nullptr;

// The real call of that name: the next one behind this program's.
template <class Function>
Function* Real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

#define QLN_REAL(name) Real<decltype(name)>(#name)

}  // namespace

FileCalls::FileCalls(bool takesPlace) {
  if (takesPlace) current = this;
}
FileCalls::~FileCalls() {
  if (current == this) current = nullptr;
}
FileCalls& FileCalls::Current() {
  static FileCalls real(false);
  return current != nullptr ? *current : real;
}

KXFileHandle FileCalls::Create(const char* path, uint32_t access, uint32_t share, uint32_t disposition) {
  return QLN_REAL(kxOSCreateFile)(path, access, share, nullptr, disposition, 0, nullptr);
}
int32_t FileCalls::Close(KXFileHandle handle) { return QLN_REAL(kxOSCloseFile)(handle); }
int32_t FileCalls::Read(KXFileHandle handle, void* buffer, uint32_t count, uint32_t* bytesRead) {
  return QLN_REAL(kxOSReadFile)(handle, buffer, count, bytesRead, nullptr);
}
int32_t FileCalls::Write(KXFileHandle handle, const void* buffer, uint32_t count, uint32_t* written) {
  return QLN_REAL(kxOSWriteFile)(handle, buffer, count, written, nullptr);
}
uint64_t FileCalls::Seek(KXFileHandle handle, uint64_t offset) { return QLN_REAL(kxOSSeek)(handle, offset); }
uint32_t FileCalls::Size(KXFileHandle handle) { return QLN_REAL(kxOSGetFileSize)(handle, nullptr); }
int32_t FileCalls::SizeEx(KXFileHandle handle, uint64_t* size) {
  return QLN_REAL(kxOSGetFileSizeEx)(handle, size);
}
int32_t FileCalls::Exists(const char* path) { return QLN_REAL(kxOSFileExists)(path); }
uint32_t FileCalls::LastError() { return QLN_REAL(kxOSGetLastError)(); }
uint32_t FileCalls::Ms() { return QLN_REAL(kxOSGetMs)(); }
void FileCalls::SleepMs(uint32_t milliseconds) { QLN_REAL(Sleep)(milliseconds); }
void* FileCalls::Allocate(size_t size) { return QLN_REAL(KXAlloc)(size); }

Bytes ScriptedFile::BytesAt(uint64_t position, size_t count) {
  Bytes bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = ByteAt(position + i);
  return bytes;
}

std::vector<std::string> ScriptedFile::TakeLog() {
  std::vector<std::string> taken;
  taken.swap(log);
  return taken;
}

int32_t ScriptedFile::Read(KXFileHandle handle, void* buffer, uint32_t count, uint32_t* bytesRead) {
  EXPECT_EQ(handle, kHandle);
  log.push_back("read " + std::to_string(count));
  const uint64_t left = size > position ? size - position : 0;
  ReadStep step{true, static_cast<uint32_t>(std::min<uint64_t>(left, count)), 0};
  if (!steps.empty()) {
    step = steps.front();
    steps.erase(steps.begin());
  }
  for (uint32_t i = 0; i < std::min(step.count, count); ++i) {
    static_cast<uint8_t*>(buffer)[i] = ByteAt(position + i);
  }
  position += std::min(step.count, count);
  *bytesRead = step.count;
  error = step.error;
  return step.succeeds ? 1 : 0;
}

uint64_t ScriptedFile::Seek(KXFileHandle handle, uint64_t offset) {
  EXPECT_EQ(handle, kHandle);
  log.push_back("seek " + std::to_string(offset));
  if (failSeeks > 0) {
    --failSeeks;
    return seekAnswer;
  }
  error = 0;
  return position = offset;
}

int32_t ScriptedFile::SizeEx(KXFileHandle handle, uint64_t* result) {
  EXPECT_EQ(handle, kHandle);
  log.push_back("size");
  *result = size;
  return 1;
}

void ScriptedFile::SleepMs(uint32_t milliseconds) {
  EXPECT_EQ(milliseconds, 2u);
  ++sleeps;
  if (clockMoves) now += milliseconds;
  size += grownBySleep;
}

void* ScriptedFile::Allocate(size_t bytes) {
  if (failAllocations > 0) {
    --failAllocations;
    return nullptr;
  }
  return FileCalls::Allocate(bytes);
}

}  // namespace qln::test

using qln::test::FileCalls;

KXFileHandle kxOSCreateFile(const char* path, uint32_t access, uint32_t share, void* security,
                            uint32_t disposition, uint32_t flags, void* file_template) {
  EXPECT_EQ(security, nullptr);
  EXPECT_EQ(flags, 0u);
  EXPECT_EQ(file_template, nullptr);
  return FileCalls::Current().Create(path, access, share, disposition);
}
int32_t kxOSCloseFile(KXFileHandle handle) { return FileCalls::Current().Close(handle); }
int32_t kxOSReadFile(KXFileHandle handle, void* buffer, uint32_t count, uint32_t* bytes_read,
                     void* overlapped) {
  EXPECT_EQ(overlapped, nullptr);
  return FileCalls::Current().Read(handle, buffer, count, bytes_read);
}
int32_t kxOSWriteFile(KXFileHandle handle, const void* buffer, uint32_t count, uint32_t* bytes_written,
                      void* overlapped) {
  EXPECT_EQ(overlapped, nullptr);
  return FileCalls::Current().Write(handle, buffer, count, bytes_written);
}
uint64_t kxOSSeek(KXFileHandle handle, uint64_t offset) { return FileCalls::Current().Seek(handle, offset); }
uint32_t kxOSGetFileSize(KXFileHandle handle, void*) { return FileCalls::Current().Size(handle); }
int32_t kxOSGetFileSizeEx(KXFileHandle handle, uint64_t* size) {
  return FileCalls::Current().SizeEx(handle, size);
}
int32_t kxOSFileExists(const char* path) { return FileCalls::Current().Exists(path); }
uint32_t kxOSGetLastError() { return FileCalls::Current().LastError(); }
uint32_t kxOSGetMs() { return FileCalls::Current().Ms(); }
void Sleep(uint32_t milliseconds) { FileCalls::Current().SleepMs(milliseconds); }
void* KXAlloc(size_t size) { return FileCalls::Current().Allocate(size); }
