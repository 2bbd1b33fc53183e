// Timecode counts from one rate to another, by way of the text that is shown.

#include "qlnutil/qlnformat.h"
#include "timecode/kxtimecode.h"

namespace {

// Room for the text of any timecode service, its terminator included.
constexpr size_t kTextSize = 33;
// The text form, beside the timecode type in the low byte.
constexpr uint32_t kTextFlags = 0x32100;

}  // namespace

void vidConvertTC(uint32_t* timecode, uint32_t targetType, uint32_t rate, uint32_t scale) {
  if (timecode == nullptr) return;
  const uint32_t sourceType = vidGetTCType(static_cast<double>(rate) / static_cast<double>(scale));
  if (sourceType == (targetType & 0xFF)) return;
  char text[kTextSize] = {};
  TimeCodeToString(*timecode, sourceType | kTextFlags, text);
  TimeCodeFromString(text, targetType, timecode);
  if (sourceType == QLN_TC_59_94 || sourceType == QLN_TC_60) *timecode *= 2;
}
