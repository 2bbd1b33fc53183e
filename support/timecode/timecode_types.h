// The timecode types: what each is called, how it counts, and what time a frame of it takes. The one table of
// all that write, read, count or pace timecodes.
#ifndef TIMECODE_TIMECODE_TYPES_H
#define TIMECODE_TIMECODE_TYPES_H

#include <array>
#include <cstdint>
#include <iterator>
#include <string_view>

namespace qln {

// Types as records and flags hold them, in one byte.
inline constexpr uint8_t kTcFrames = 0;
inline constexpr uint8_t kTcFilm = 1;
inline constexpr uint8_t kTcNonDropFrame = 2;
inline constexpr uint8_t kTcDropFrame = 4;
inline constexpr uint8_t kTcPal = 8;
inline constexpr uint8_t kTc50 = 16;
inline constexpr uint8_t kTc59_94 = 32;
inline constexpr uint8_t kTc60 = 64;
inline constexpr uint8_t kTcFilmDrop = 128;
inline constexpr uint8_t kTc23_98 = 132;

struct TimecodeType {
  uint8_t type;
  std::string_view word;  // in text forms; a terminator stands behind it
  uint32_t numbers;       // frame numbers in a second
  uint32_t skipped;       // of them at the start of each minute but each tenth (SMPTE ST 12-1)
  double framesPerSecond;
  double msPerFrame;
};

inline constexpr double kNtscFramesPerSecond = 29.97002997002997;
inline constexpr double kNtscMsPerFrame = 33.36666666666667;

// A plain count is taken for 30 numbers at 29.97. "non-drop-frame" keeps the milliseconds of "drop-frame":
// hosts pace both by the same clock.
inline constexpr TimecodeType kTimecodeTypes[] = {
    {kTcFrames, "frames", 30, 0, kNtscFramesPerSecond, kNtscMsPerFrame},
    {kTcFilm, "film", 24, 0, 24.0, 41.666666666666664},
    {kTcNonDropFrame, "non-drop-frame", 30, 0, 30.0, kNtscMsPerFrame},
    {kTcDropFrame, "drop-frame", 30, 2, kNtscFramesPerSecond, kNtscMsPerFrame},
    {kTcPal, "pal", 25, 0, 25.0, 40.0},
    {kTc50, "50", 50, 0, 50.0, 20.0},
    {kTc59_94, "59.94", 60, 4, 59.94005994005994, 16.68333333333333},
    {kTc60, "60", 60, 0, 60.0, 16.66666666666667},
    {kTcFilmDrop, "film-drop", 24, 0, 23.976023976023978, 41.708333333333336},
    {kTc23_98, "23.98", 24, 0, 23.976023976023978, 41.708333333333336},
};

// The place of each type in the table.
inline constexpr uint8_t kNoTimecodeRow = 0xFF;
consteval std::array<uint8_t, 256> TimecodeRows() {
  std::array<uint8_t, 256> rows{};
  rows.fill(kNoTimecodeRow);
  for (uint8_t row = 0; row < std::size(kTimecodeTypes); ++row) rows[kTimecodeTypes[row].type] = row;
  return rows;
}
inline constexpr std::array<uint8_t, 256> kTimecodeRows = TimecodeRows();

// The type in the low 8 bits of a number; null for a value that is none.
constexpr const TimecodeType* FindTimecodeType(uint32_t type) {
  const uint8_t row = kTimecodeRows[type & 0xFF];
  return row != kNoTimecodeRow ? &kTimecodeTypes[row] : nullptr;
}

// The type of a word, spelled as in the table; null for any other text.
constexpr const TimecodeType* FindTimecodeTypeNamed(std::string_view word) {
  for (const TimecodeType& type : kTimecodeTypes) {
    if (type.word == word) return &type;
  }
  return nullptr;
}

// Whether the type in the low 8 bits of a number skips frame numbers.
constexpr bool SkipsNumbers(uint32_t type) {
  const TimecodeType* const found = FindTimecodeType(type);
  return found != nullptr && found->skipped != 0;
}

}  // namespace qln

#endif
