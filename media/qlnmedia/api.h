// What marks the classes and functions that leave libqlnmedia.
#ifndef QLNMEDIA_API_H
#define QLNMEDIA_API_H

/// Default visibility; everything without it stays inside the library.
#define QLNMEDIA_API __attribute__((visibility("default")))

#endif
