// The stand-ins. They take the place of the shared libraries' functions by their plain C names, as a host's
// own would.

#include "format/recorded_services.h"

#include <dlfcn.h>

#include <cstdio>

#include "kxutil/kxutil.h"
#include "timecode/kxtimecode.h"

namespace qln::test {

RecordedServices& Services() {
  static RecordedServices services;
  return services;
}

void ResetServices() { Services() = {}; }

namespace {

// The definition that stands behind the one of this program.
template <class Function>
Function* Real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::string Hexadecimal(uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%X", value);
  return text;
}

int32_t AskClass(const char* name, uint32_t fourcc) {
  Services().calls.push_back(name);
  if (Services().fourccClass) return Services().fourccClass(name);
  return Real<int32_t(uint32_t)>(name)(fourcc);
}

}  // namespace
}  // namespace qln::test

using qln::test::AskClass;
using qln::test::Hexadecimal;
using qln::test::Real;
using qln::test::Services;

int32_t TimeCodeToString(uint32_t timecode, uint32_t flags, char* output) {
  Services().calls.push_back("TimeCodeToString " + std::to_string(timecode) + " " + Hexadecimal(flags));
  if (Services().timeCodeToString) return Services().timeCodeToString(timecode, output);
  return Real<int32_t(uint32_t, uint32_t, char*)>("TimeCodeToString")(timecode, flags, output);
}

int32_t TimeCodeFromString(const char* text, uint32_t flags, uint32_t* timecode) {
  Services().calls.push_back("TimeCodeFromString " + std::string(text) + " " + Hexadecimal(flags));
  if (Services().timeCodeFromString) return Services().timeCodeFromString(text, timecode);
  return Real<int32_t(const char*, uint32_t, uint32_t*)>("TimeCodeFromString")(text, flags, timecode);
}

int32_t fccIsDv25(uint32_t fourcc) { return AskClass("fccIsDv25", fourcc); }
int32_t fccIsDv50(uint32_t fourcc) { return AskClass("fccIsDv50", fourcc); }
int32_t fccIsDv100(uint32_t fourcc) { return AskClass("fccIsDv100", fourcc); }
int32_t fccIsJpeg(uint32_t fourcc) { return AskClass("fccIsJpeg", fourcc); }
int32_t fccIsAvidJpeg(uint32_t fourcc) { return AskClass("fccIsAvidJpeg", fourcc); }
int32_t fccIsAvidJfif(uint32_t fourcc) { return AskClass("fccIsAvidJfif", fourcc); }
int32_t fccIsXAVC(uint32_t fourcc) { return AskClass("fccIsXAVC", fourcc); }
int32_t fccIsAVCi(uint32_t fourcc) { return AskClass("fccIsAVCi", fourcc); }
int32_t fccIsDolbyVision(uint32_t fourcc) { return AskClass("fccIsDolbyVision", fourcc); }
int32_t fccIsHEVC(uint32_t fourcc) { return AskClass("fccIsHEVC", fourcc); }
int32_t fccIsh264(uint32_t fourcc) { return AskClass("fccIsh264", fourcc); }
int32_t fccIsHDCamSR(uint32_t fourcc) { return AskClass("fccIsHDCamSR", fourcc); }
int32_t fccIsBayer(uint32_t fourcc) { return AskClass("fccIsBayer", fourcc); }
int32_t fccIsDPX(uint32_t fourcc) { return AskClass("fccIsDPX", fourcc); }
int32_t fccIsRawRGB(uint32_t fourcc) { return AskClass("fccIsRawRGB", fourcc); }
int32_t fccIsYCbCr10(uint32_t fourcc) { return AskClass("fccIsYCbCr10", fourcc); }
int32_t fccIsYCbCr8(uint32_t fourcc) { return AskClass("fccIsYCbCr8", fourcc); }
int32_t fccIs8BitD1YUV(uint32_t fourcc) { return AskClass("fccIs8BitD1YUV", fourcc); }

int32_t kxCFGValueDword(KXConfigHandle handle, const char* section, const char* key, uint32_t* value,
                        uint32_t mode) {
  Services().calls.push_back("kxCFGValueDword " + std::to_string(handle) + " " + section + " " + key +
                             (mode == 0 ? " read" : " write " + std::to_string(*value)));
  if (Services().asksRealStore) {
    return Real<int32_t(KXConfigHandle, const char*, const char*, uint32_t*, uint32_t)>("kxCFGValueDword")(
        handle, section, key, value, mode);
  }
  if (mode != 0) return 0;
  if (!Services().storedDword) return 1;
  *value = *Services().storedDword;
  return 0;
}
