// The texts of the timecode types, shared by all that write or read them.
#ifndef QLNUTIL_FORMAT_TC_TYPE_H
#define QLNUTIL_FORMAT_TC_TYPE_H

#include "qlnutil/qlnformat.h"

namespace qln {

struct TcTypeName {
  TcType type;
  const char* text;
};

inline constexpr TcTypeName kTcTypeNames[] = {
    {QLN_TC_FRAMES, "frames"},         {QLN_TC_FILM, "film"}, {QLN_TC_NON_DROP_FRAME, "non-drop-frame"},
    {QLN_TC_DROP_FRAME, "drop-frame"}, {QLN_TC_PAL, "pal"},   {QLN_TC_50, "50"},
    {QLN_TC_59_94, "59.94"},           {QLN_TC_60, "60"},     {QLN_TC_FILM_DROP, "film-drop"},
    {QLN_TC_23_98, "23.98"},
};

// The text of a type by its low 8 bits; null for a type that has none.
constexpr const char* TcTypeText(uint32_t tcType) {
  for (const TcTypeName& name : kTcTypeNames) {
    if (name.type == (tcType & 0xFF)) return name.text;
  }
  return nullptr;
}

}  // namespace qln

#endif
