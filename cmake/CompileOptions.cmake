# Language level, warnings, visibility and sanitizers, shared by every target through qln_options.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_BUILD_WITH_INSTALL_RPATH OFF)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

add_library(qln_options INTERFACE)
target_compile_options(qln_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
  -fvisibility=hidden $<$<COMPILE_LANGUAGE:CXX>:-fvisibility-inlines-hidden>
  -ffp-contract=off
  # Tables are checked while compiling; Clang's step limit is below what the longest one takes.
  $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-fconstexpr-steps=20000000>)
if(QLN_WERROR)
  target_compile_options(qln_options INTERFACE -Werror)
endif()
if(QLN_SANITIZE)
  # Applied to all targets, so that everything in the process is instrumented alike.
  add_compile_options(-fsanitize=${QLN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QLN_SANITIZE})
  # GCC takes the checks that it put into library templates for reads of unset variables.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()
if(QLN_HARDENED)
  # What distributions build with; the optimisation that fortified calls need is the preset's. Here again without their
  # own setting, which may be a lower level.
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 -fstack-protector-strong -fstack-clash-protection)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|i.86|AMD64")
    add_compile_options(-fcf-protection=full)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
    add_compile_options(-mbranch-protection=standard)
  endif()
  add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie>)
endif()
if(QLN_LIBFUZZER)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
