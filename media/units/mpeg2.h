// The start codes of an MPEG-2 picture (ITU-T H.262) as far as its user data needs them.
#ifndef MEDIA_UNITS_MPEG2_H
#define MEDIA_UNITS_MPEG2_H

#include <functional>
#include <vector>

#include "units/units.h"

namespace qlnmedia {

// What stands between one start code and the next.
struct Mpeg2Unit {
  int code = -1;  // the byte behind 00 00 01; -1 for bytes in front of the first start code
  size_t at = 0;  // of its first byte, start code included
  size_t size = 0;
};

inline constexpr int kMpeg2PictureStart = 0x00;
inline constexpr int kMpeg2UserData = 0xB2;
inline constexpr int kMpeg2GroupStart = 0xB8;
inline bool IsMpeg2Slice(int code) { return code >= 0x01 && code <= 0xAF; }

// The units of a packet up to its first slice, and the rest of it as one slice unit.
std::vector<Mpeg2Unit> Mpeg2Head(ByteSpan data);
// All units of a packet.
std::vector<Mpeg2Unit> Mpeg2Units(ByteSpan data);

struct Mpeg2Picture {
  bool found = false;
  bool beginsGroup = false;
  int temporalReference = 0;
};
Mpeg2Picture ReadMpeg2Picture(ByteSpan data);

}  // namespace qlnmedia

#endif
