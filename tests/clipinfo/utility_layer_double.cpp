// The replacements, defined in the test program and so called in place of the utility layer's own.

#include "clipinfo/utility_layer_double.h"

#include <dlfcn.h>

namespace qln::test {
namespace {

int failCountdown = -1;
bool failAllBehind = false;
bool hideSizes = false;
ScriptedStore* scripted = nullptr;

// The utility layer's own function of that name.
template <typename Function>
Function* Real(const char* name, Function*) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

#define QLN_REAL(name) (*Real(#name, &name))

bool FailsNow() {
  if (failCountdown < 0) return false;
  if (failCountdown > 0) {
    --failCountdown;
    return false;
  }
  if (!failAllBehind) failCountdown = -1;
  return true;
}

std::string Where(KXConfigHandle handle, const char* section, const char* key) {
  return std::to_string(handle) + " " + section + " " + key;
}

}  // namespace

FailAllocations::FailAllocations(int countdown, bool andAllBehind) {
  failCountdown = countdown;
  failAllBehind = andAllBehind;
}
FailAllocations::~FailAllocations() { failCountdown = -1; }
HideBlockSizes::HideBlockSizes() { hideSizes = true; }
HideBlockSizes::~HideBlockSizes() { hideSizes = false; }
ScriptedStore::ScriptedStore() { scripted = this; }
ScriptedStore::~ScriptedStore() { scripted = nullptr; }

}  // namespace qln::test

using namespace qln::test;

void* KXAlloc(size_t size) { return FailsNow() ? nullptr : QLN_REAL(KXAlloc)(size); }
void KXFree(void* block) { QLN_REAL(KXFree)(block); }
size_t KXAllocSize(const void* block) { return hideSizes ? 0 : QLN_REAL(KXAllocSize)(block); }

int32_t kxOSFileExists(const char* path) {
  if (scripted == nullptr) return QLN_REAL(kxOSFileExists)(path);
  scripted->calls.push_back(std::string("exists ") + path);
  return scripted->fileExists ? 1 : 0;
}

KXConfigHandle kxCFGOpen(const char* name, uint32_t reserved) {
  if (scripted == nullptr) return QLN_REAL(kxCFGOpen)(name, reserved);
  scripted->calls.push_back(std::string("open ") + name + " " + std::to_string(reserved));
  return scripted->openResult;
}

int32_t kxCFGClose(KXConfigHandle handle, uint32_t save) {
  if (scripted == nullptr) return QLN_REAL(kxCFGClose)(handle, save);
  scripted->calls.push_back("close " + std::to_string(handle) + " " + std::to_string(save));
  return 0;
}

int32_t kxCFGValueDword(KXConfigHandle handle, const char* section, const char* key, uint32_t* value,
                        uint32_t mode) {
  if (scripted == nullptr) return QLN_REAL(kxCFGValueDword)(handle, section, key, value, mode);
  if (mode == 1) {
    scripted->calls.push_back("dword write " + Where(handle, section, key) + " " + std::to_string(*value));
    return scripted->writeResult;
  }
  scripted->calls.push_back((value == nullptr ? "dword probe " : "dword read ") +
                            Where(handle, section, key));
  return scripted->readDword ? scripted->readDword(key, value) : -1;
}

int32_t kxCFGValueString(KXConfigHandle handle, const char* section, const char* key, char* buffer,
                         uint32_t* size, uint32_t mode) {
  if (scripted == nullptr) return QLN_REAL(kxCFGValueString)(handle, section, key, buffer, size, mode);
  if (mode == 1) {
    scripted->calls.push_back("string write " + Where(handle, section, key) + " " + std::to_string(*size));
    // All of the told size may be looked at.
    if (scripted->wroteString) scripted->wroteString(key, std::string(buffer, *size));
    return scripted->writeResult;
  }
  scripted->calls.push_back((buffer == nullptr ? "string size " : "string read ") +
                            Where(handle, section, key) + " " + std::to_string(*size));
  return scripted->readString ? scripted->readString(key, buffer, size) : -1;
}

int32_t kxCFGDeleteValue(KXConfigHandle handle, const char* section, const char* key) {
  if (scripted == nullptr) return QLN_REAL(kxCFGDeleteValue)(handle, section, key);
  scripted->calls.push_back("delete " + Where(handle, section, key));
  return scripted->writeResult;
}

int32_t kxCFGBegin(KXConfigHandle handle) {
  if (scripted == nullptr) return QLN_REAL(kxCFGBegin)(handle);
  if (!scripted->beginResult) return -1;
  scripted->calls.push_back("begin " + std::to_string(handle));
  return *scripted->beginResult;
}

int32_t kxCFGEnd(KXConfigHandle handle) {
  if (scripted == nullptr) return QLN_REAL(kxCFGEnd)(handle);
  scripted->calls.push_back("end " + std::to_string(handle));
  return scripted->writeResult;
}
