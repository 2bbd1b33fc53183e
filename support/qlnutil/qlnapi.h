/// @file qlnapi.h
/// The mark of an exported name, and the C linkage that all plain functions of qlnutil have.
#ifndef QLNUTIL_QLNAPI_H
#define QLNUTIL_QLNAPI_H

#include <stddef.h>
#include <stdint.h>

/// The mark of an exported name.
#define QLN_API __attribute__((visibility("default")))

#ifdef __cplusplus
/// Begins declarations with C linkage.
#define QLN_C_BEGIN extern "C" {
/// Ends them.
#define QLN_C_END }
/// Ends the compilation with a text where a condition does not hold, in C and in C++.
#define QLN_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define QLN_C_BEGIN
#define QLN_C_END
#define QLN_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

#endif
