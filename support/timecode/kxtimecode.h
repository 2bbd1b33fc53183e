/// @file kxtimecode.h
/// The timecode text service: frame counts to text and back, by SMPTE ST 12-1 counting.
///
/// libqlnutil imports both functions by name through the dynamic linker; a host may bring its own.
/// Threads: stateless; any thread at any time.
#ifndef TIMECODE_KXTIMECODE_H
#define TIMECODE_KXTIMECODE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Set in the flags of TimeCodeToString: four binary bytes instead of text.
#define KX_TIMECODE_BINARY 0x400u

/// Writes a frame count as text "HH:MM:SS:FF", or as four binary bytes.
///
/// The low byte of @p flags is the timecode type: 0 plain decimal count, 1 film (24), 2 non-drop-frame (30),
/// 4 drop-frame (29.97), 8 PAL (25), 16 (50), 32 (59.94 drop-frame), 64 (60), 128 film-drop (24), 132 23.98
/// (24). Unknown types count like type 2. Types 4 and 32 skip frame numbers (two, or four, a minute but each
/// tenth) and write ";" before the frames. Hours past 23 go on counting. With KX_TIMECODE_BINARY the output
/// is hours modulo 24, minutes, seconds, frames, one byte each (type 0 counts at 30); other flag bits are
/// ignored.
///
/// @param timecode the count in frames. @param flags the type, and KX_TIMECODE_BINARY.
/// @param[out] output room for 16 bytes (4 in binary form); the text has at most 15 characters and a
/// terminator whatever the count.
/// @return 0; -1 for a null output.
__attribute__((visibility("default"))) int32_t TimeCodeToString(uint32_t timecode, uint32_t flags,
                                                                char* output);

/// Reads a timecode text; the reverse of TimeCodeToString for the same type.
///
/// Groups are separated by ":", ";" or "."; leading groups may be missing; a bare number is a frame count.
/// Blanks may stand in front and behind. Drop-frame numbers that do not exist are taken as the next one that
/// does; frames at or above the rate (and seconds or minutes above 59) carry on into the count.
///
/// @param text NUL-terminated; null is refused. @param flags the type in the low byte; other bits are
/// ignored.
/// @param[out] timecode the count in frames; null is refused.
/// @return 0; -1 for a null pointer and for text that is no timecode (anything else in it, an empty group,
/// more than four groups, a count beyond 32 bits), and then @p timecode is left alone.
__attribute__((visibility("default"))) int32_t TimeCodeFromString(const char* text, uint32_t flags,
                                                                  uint32_t* timecode);

#ifdef __cplusplus
}
#endif

#endif
