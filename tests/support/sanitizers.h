// Which sanitizers a test is built with; GCC and clang say it differently.
#ifndef TESTS_SUPPORT_SANITIZERS_H
#define TESTS_SUPPORT_SANITIZERS_H

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QLN_ADDRESS_SANITIZER 1
#endif
#if __has_feature(thread_sanitizer)
#define QLN_THREAD_SANITIZER 1
#endif
#endif
#ifdef __SANITIZE_ADDRESS__
#define QLN_ADDRESS_SANITIZER 1
#endif
#ifdef __SANITIZE_THREAD__
#define QLN_THREAD_SANITIZER 1
#endif

#endif
