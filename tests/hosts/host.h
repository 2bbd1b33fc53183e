// What both hosts share: the way to a library's function, and checks that end the program.
#ifndef TESTS_HOSTS_HOST_H
#define TESTS_HOSTS_HOST_H

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#define HOST_CHECK(condition)                                              \
  do {                                                                     \
    if (!(condition)) {                                                    \
      std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
      std::exit(1);                                                        \
    }                                                                      \
  } while (0)

#ifdef HOST_LOADS_KXUTIL
// The function of that name from a library that is opened here.
template <typename Function>
Function* FromLibrary(const char* library, const char* name, Function*) {
  void* const handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) std::fprintf(stderr, "%s\n", dlerror());
  HOST_CHECK(handle != nullptr);
  void* const symbol = dlsym(handle, name);
  HOST_CHECK(symbol != nullptr);
  return reinterpret_cast<Function*>(symbol);
}
#define KXUTIL_CALL(name) (*FromLibrary(HOST_LOADS_KXUTIL, #name, static_cast<decltype(&name)>(nullptr)))
#define QLNUTIL_CALL(name) (*FromLibrary(HOST_LOADS_QLNUTIL, #name, static_cast<decltype(&name)>(nullptr)))
#else
#define KXUTIL_CALL(name) name
#define QLNUTIL_CALL(name) name
#endif

#endif
