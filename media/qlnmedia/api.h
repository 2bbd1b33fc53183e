/// @file api.h
/// What leaves libqlnmedia: everything marked QLNMEDIA_API, and nothing else.
#ifndef QLNMEDIA_API_H
#define QLNMEDIA_API_H

#if defined(__GNUC__)
#define QLNMEDIA_API __attribute__((visibility("default")))
#else
#define QLNMEDIA_API
#endif

#endif
