// Loads libav, and keeps its log lines about our work off the terminal.

#include "container/libav_calls.h"

#include <dlfcn.h>

#include <cstring>
#include <new>
#include <string>

#include "base/error.h"

namespace qlnmedia {

namespace {

#define QLNMEDIA_LIBRARY_NAME(library, version) "lib" library ".so." AV_STRINGIFY(version)
constexpr char kUtilities[] = QLNMEDIA_LIBRARY_NAME("avutil", LIBAVUTIL_VERSION_MAJOR);
constexpr char kCodecs[] = QLNMEDIA_LIBRARY_NAME("avcodec", LIBAVCODEC_VERSION_MAJOR);
constexpr char kFormats[] = QLNMEDIA_LIBRARY_NAME("avformat", LIBAVFORMAT_VERSION_MAJOR);
#undef QLNMEDIA_LIBRARY_NAME

[[noreturn]] void FailLoading(const char* library) {
  const char* const reason = dlerror();
  // The loader has no other sign of it.
  for (const char* const memory : {"annot allocate memory", "failed to map segment", "annot create"}) {
    if (reason != nullptr && std::strstr(reason, memory) != nullptr) throw std::bad_alloc();
  }
  throw Error(library,
              std::string("cannot be loaded") + (reason == nullptr ? "" : std::string(": ") + reason),
              "install FFmpeg's libraries of that version to read media files");
}

// Never closed: objects of the libraries live until the process ends, and so does their log callback.
void* Load(const char* library) {
  // They need more than a hundred others; to look for each function that any of these could call takes longer
  // than to read a small file.
  void* const handle = dlopen(library, RTLD_LAZY | RTLD_LOCAL);
  if (handle == nullptr) FailLoading(library);
  return handle;
}

template <typename Function>
void Find(void* handle, const char* library, const char* name, Function& place) {
  void* const found = dlsym(handle, name);
  if (found == nullptr) FailLoading(library);
  place = reinterpret_cast<Function>(found);
}

void Hear(void* object, int level, const char* format, va_list arguments) {
  if (!LibavSilence::Holds()) Libav().av_log_default_callback(object, level, format, arguments);
}

LibavCalls LoadAll() {
  LibavCalls calls;
  void* const utilities = Load(kUtilities);
  void* const codecs = Load(kCodecs);
  void* const formats = Load(kFormats);
#define QLNMEDIA_FIND(name) Find(utilities, kUtilities, #name, calls.name);
  QLNMEDIA_LIBAVUTIL_CALLS(QLNMEDIA_FIND)
#undef QLNMEDIA_FIND
#define QLNMEDIA_FIND(name) Find(codecs, kCodecs, #name, calls.name);
  QLNMEDIA_LIBAVCODEC_CALLS(QLNMEDIA_FIND)
#undef QLNMEDIA_FIND
#define QLNMEDIA_FIND(name) Find(formats, kFormats, #name, calls.name);
  QLNMEDIA_LIBAVFORMAT_CALLS(QLNMEDIA_FIND)
#undef QLNMEDIA_FIND
  return calls;
}

// A host that has libav already has decided what becomes of its lines, of ours too: there is one callback in
// a process, and nobody can ask for the one that is set.
bool IsInProcess() {
  void* const there = dlopen(kUtilities, RTLD_LAZY | RTLD_NOLOAD);
  if (there != nullptr) dlclose(there);
  return there != nullptr;
}

}  // namespace

const LibavCalls& Libav() {
  static const bool isHosts = IsInProcess();
  static const LibavCalls calls = LoadAll();
  static const bool isHeard = (isHosts ? void() : calls.av_log_set_callback(Hear), true);
  static_cast<void>(isHeard);
  return calls;
}

}  // namespace qlnmedia
