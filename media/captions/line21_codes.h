// Codes of CTA-608 that readers and writers of line 21 share: second bytes of control codes, and how preamble
// address codes name rows.
#ifndef MEDIA_CAPTIONS_LINE21_CODES_H
#define MEDIA_CAPTIONS_LINE21_CODES_H

#include <cstdint>

namespace qlnmedia::captions {

inline constexpr uint8_t kControl = 0x14;  // first byte, of field 1, channel 1
inline constexpr uint8_t kResumeLoading = 0x20;
inline constexpr uint8_t kEraseDisplayed = 0x2C;
inline constexpr uint8_t kEraseNotDisplayed = 0x2E;
inline constexpr uint8_t kEndOfCaption = 0x2F;
inline constexpr uint8_t kItalics = 7;  // where a colour may stand

// First byte of the preamble address code of rows 1 to 15, and whether the second is the higher of its two.
inline constexpr int kLastRow = 15;
inline constexpr uint8_t kRowCode[kLastRow + 1] = {0,    0x11, 0x11, 0x12, 0x12, 0x15, 0x15, 0x16,
                                                   0x16, 0x17, 0x17, 0x10, 0x13, 0x13, 0x14, 0x14};
inline constexpr bool kRowIsSecond[kLastRow + 1] = {false, false, true, false, true,  false, true,  false,
                                                    true,  false, true, false, false, true,  false, true};

}  // namespace qlnmedia::captions

#endif
