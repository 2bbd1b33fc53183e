// The words of the timecode types as C texts, and that the published constants are the types' own.
#ifndef QLNUTIL_FORMAT_TC_TYPE_H
#define QLNUTIL_FORMAT_TC_TYPE_H

#include "qlnutil/qlnformat.h"
#include "timecode/timecode_types.h"

namespace qln {

static_assert(QLN_TC_FRAMES == kTcFrames && QLN_TC_FILM == kTcFilm &&
              QLN_TC_NON_DROP_FRAME == kTcNonDropFrame);
static_assert(QLN_TC_DROP_FRAME == kTcDropFrame && QLN_TC_PAL == kTcPal && QLN_TC_50 == kTc50);
static_assert(QLN_TC_59_94 == kTc59_94 && QLN_TC_60 == kTc60);
static_assert(QLN_TC_FILM_DROP == kTcFilmDrop && QLN_TC_23_98 == kTc23_98);

// The text of a type by its low 8 bits; null for a type that has none.
constexpr const char* TcTypeText(uint32_t tcType) {
  const TimecodeType* const type = FindTimecodeType(tcType);
  return type != nullptr ? type->word.data() : nullptr;
}

}  // namespace qln

#endif
