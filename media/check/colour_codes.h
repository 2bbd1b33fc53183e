// Code points of ITU-T H.273 that findings turn on.
#ifndef MEDIA_CHECK_COLOUR_CODES_H
#define MEDIA_CHECK_COLOUR_CODES_H

namespace qlnmedia {

inline constexpr int kUnspecified = 2;  // of primaries, transfer characteristics and matrix
inline constexpr int kPq = 16;          // transfer_characteristics
inline constexpr int kHlg = 18;

}  // namespace qlnmedia

#endif
