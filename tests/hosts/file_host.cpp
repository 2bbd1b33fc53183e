// A host with memory, files and diagnostics of its own: a settings file that exists in this program only is
// read and written by the utility layer's store through them, and its complaints arrive here, as do the
// library's warnings and debug texts.

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>

#include "hosts/host.h"
#include "kxutil/kxutil.h"
#include "qlnutil/kxdiskcache.h"
#include "qlnutil/mediacmd.h"
#include "qlnutil/qlninfo.h"

namespace {

constexpr char kFileName[] = "/nowhere/at/all.xml";
constexpr char kNewStore[] = "host_only.xml";       // in the working folder, which is there
constexpr char kBesideIt[] = ".host_only.xml.new";  // where a save writes first
constexpr KXFileHandle kHandle = 77;
constexpr KXFileHandle kWriteHandle = 78;

std::string fileText;
size_t position = 0;
uint32_t lastError = 0;
int blocks = 0, allocations = 0;
int opened = 0, closed = 0, reads = 0, sizes = 0, lookups = 0, seeks = 0;
int errors = 0, warnings = 0, debugTexts = 0;
std::string lastMessage, lastWarning, lastDebugText, writtenText;

std::string Formatted(const char* format, va_list arguments) {
  char text[1000];
  std::vsnprintf(text, sizeof text, format, arguments);
  return text;
}

}  // namespace

void* KXAlloc(size_t size) {
  ++blocks;
  ++allocations;
  return std::malloc(size);
}
void KXFree(void* block) {
  --blocks;
  std::free(block);
}

KXFileHandle kxOSCreateFile(const char* path, uint32_t access, uint32_t, void*, uint32_t, uint32_t, void*) {
  if (std::string(path).ends_with(kBesideIt) && access == KX_ACCESS_WRITE) return kWriteHandle;
  if (std::strcmp(path, kFileName) != 0 || access != KX_ACCESS_READ) {
    lastError = ENOENT;
    return KX_INVALID_FILE_HANDLE;
  }
  ++opened;
  position = 0;
  lastError = 0;
  return kHandle;
}
int32_t kxOSCloseFile(KXFileHandle handle) {
  ++closed;
  return handle == kHandle || handle == kWriteHandle;
}
int32_t kxOSReadFile(KXFileHandle handle, void* buffer, uint32_t count, uint32_t* bytesRead, void*) {
  ++reads;
  const size_t left = fileText.size() - position;
  *bytesRead = static_cast<uint32_t>(left < count ? left : count);
  std::memcpy(buffer, fileText.data() + position, *bytesRead);
  position += *bytesRead;
  return handle == kHandle;
}
int32_t kxOSWriteFile(KXFileHandle handle, const void* buffer, uint32_t count, uint32_t* bytesWritten,
                      void*) {
  writtenText.append(static_cast<const char*>(buffer), count);
  *bytesWritten = count;
  return handle == kWriteHandle;
}
uint64_t kxOSSeek(KXFileHandle, uint64_t offset) {
  ++seeks;
  position = static_cast<size_t>(offset);
  return offset;
}
uint32_t kxOSGetFileSize(KXFileHandle, void*) { return static_cast<uint32_t>(fileText.size()); }
int32_t kxOSGetFileSizeEx(KXFileHandle, uint64_t* size) {
  ++sizes;
  *size = fileText.size();
  return 1;
}
int32_t kxOSFileExists(const char*) {
  ++lookups;
  return 0;
}
uint32_t kxOSGetLastError() { return lastError; }

void ErrOut(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  lastMessage = Formatted(format, arguments);
  va_end(arguments);
  ++errors;
}
void ErrFmtOut(uint32_t flags, uint32_t reserved1, uint32_t reserved2, const char* format, ...) {
  HOST_CHECK(flags == 0x80000000u && reserved1 == 0 && reserved2 == 0);
  va_list arguments;
  va_start(arguments, format);
  lastWarning = Formatted(format, arguments);
  va_end(arguments);
  ++warnings;
}
void OutputDebugStringA(const char* text) {
  lastDebugText = text;
  ++debugTexts;
}

namespace {

// A save of a store that this host alone has: the text comes here, and nothing on the disk can be renamed.
void CheckSave() {
  const KXConfigHandle store = KXUTIL_CALL(kxCFGOpen)(kNewStore, 0);
  HOST_CHECK(store != 0);
  uint32_t value = 12;
  HOST_CHECK(KXUTIL_CALL(kxCFGValueDword)(store, "S", "K", &value, 1) == 0);
  errors = 0;
  HOST_CHECK(KXUTIL_CALL(kxCFGClose)(store, 1) != 0);
  HOST_CHECK(writtenText.find("12") != std::string::npos);
  HOST_CHECK(errors == 1 && lastMessage.find(kNewStore) != std::string::npos);
}

// Warnings and debug texts from inside libqlnutil, and a text in a block of this host.
void CheckCommand() {
  MediaCmd command;
  QLNUTIL_CALL(initMediaCmd)(&command, ctStop);
  command.Channel = 3;
  QLNUTIL_CALL(__dbgout_mediacmd)(&command);
  HOST_CHECK(debugTexts == 1 && lastDebugText == "qln-Chan3 ctStop " && warnings == 0);
  QLNUTIL_CALL(__dbgout_tc)(100, 8);
  HOST_CHECK(debugTexts == 2 && lastDebugText == "00:00:04:00");

  command.Flags = CF_USE_CLIP_ID;
  std::memset(command.FileName, 'f', sizeof command.FileName);
  QLNUTIL_CALL(__dbgout_mediacmd)(&command);
  HOST_CHECK(debugTexts == 3 && lastDebugText == "qln-Chan3 ctStop " && warnings == 1);
  HOST_CHECK(lastWarning == "WARNING(vuMCmd): Exception: outputing mediacmd to string\n");

  const int blocksBefore = blocks;
  char* text = nullptr;
  QLNUTIL_CALL(MediaCmdToXMLString)(&text, &command, 0);
  HOST_CHECK(warnings == 2 && lastWarning == "WARNING(XMLmCmd): Exception:  MediaCmdToXML(ClipID) \n");
  HOST_CHECK(text != nullptr && blocks == blocksBefore + 1);
  QLNUTIL_CALL(MediaCmdFreeXMLString)(&text);
  HOST_CHECK(text == nullptr && blocks == blocksBefore);
}

#ifndef HOST_LOADS_KXUTIL
void CheckDiskCache() {
  fileText = std::string(5000, 'a') + "here";
  CKXDiskCache cache;
  HOST_CHECK(cache.SetHandleAndCacheSize(kHandle, 8192, false) == 0);
  char bytes[4] = {};
  uint32_t delivered = 0;
  seeks = reads = 0;
  HOST_CHECK(cache.Read(bytes, 5000, 4, &delivered, 0) == 0 && delivered == 4);
  HOST_CHECK(std::memcmp(bytes, "here", 4) == 0 && seeks == 1 && reads > 0);
}
#endif

}  // namespace

int main() {
  // From inside libkxutil: the store's file comes through the calls above.
  fileText = "<settings><section path='S'><value key='K' number='9'/></section></settings>";
  const KXConfigHandle store = KXUTIL_CALL(kxCFGOpen)(kFileName, 0);
  HOST_CHECK(store != 0);
  HOST_CHECK(opened == 1 && sizes == 1 && reads == 1 && closed == 1);
  HOST_CHECK(allocations == 1 && blocks == 0);
  uint32_t value = 0;
  HOST_CHECK(KXUTIL_CALL(kxCFGValueDword)(store, "S", "K", &value, 0) == 0 && value == 9);
  HOST_CHECK(KXUTIL_CALL(kxCFGClose)(store, 0) == 0);

  fileText = "no document";
  HOST_CHECK(KXUTIL_CALL(kxCFGOpen)(kFileName, 0) == 0);
  HOST_CHECK(errors == 1 && lastMessage.find(kFileName) != std::string::npos);
  HOST_CHECK(blocks == 0);

  // From inside libqlnutil: blocks of this host, whose sizes nobody else knows.
  QLNInfo source = {}, destination = {};
  source.Title = static_cast<char*>(KXAlloc(5));
  std::memcpy(source.Title, "Dawn", 5);
  allocations = 0;
  QLNUTIL_CALL(qlnInfoSet)(&destination, &source);
  HOST_CHECK(allocations == 1 && std::strcmp(destination.Title, "Dawn") == 0);
  QLNUTIL_CALL(qlnInfoReadReg)(&destination, 0, 1);
  HOST_CHECK(lookups == 1);
  QLNUTIL_CALL(qlnInfoDelete)(&source);
  QLNUTIL_CALL(qlnInfoDelete)(&destination);
  HOST_CHECK(blocks == 0);
  HOST_CHECK(warnings == 0 && debugTexts == 0);

  CheckSave();
  CheckCommand();
#ifndef HOST_LOADS_KXUTIL
  CheckDiskCache();
#endif
  HOST_CHECK(blocks == 0);
  return 0;
}
