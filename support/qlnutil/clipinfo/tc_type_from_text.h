// The timecode type that a command's XML text carries, taken without parsing it.
#ifndef QLNUTIL_CLIPINFO_TC_TYPE_FROM_TEXT_H
#define QLNUTIL_CLIPINFO_TC_TYPE_FROM_TEXT_H

#include <cstdint>

namespace qln {

// The value of the first "TcType" attribute in raw text (also written "tctype" or "TCTYPE"); 0 for null, for
// a text without it, and for a word that is none of the types'. "non-drop-frame" gives 4, as hosts expect it.
uint32_t QLNInfoTcTypeFromText(const char* text);

}  // namespace qln

#endif
