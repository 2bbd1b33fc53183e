// Frame counts to text and back: one table of counting rules, one pass each way (SMPTE ST 12-1).

#include <charconv>
#include <cstring>

#include "timecode/kxtimecode.h"
#include "timecode/timecode_types.h"

namespace {

constexpr size_t kMostDigits = 10;  // of a count, and so of its hours

// How a type counts. The numbers are constants, so that no division by them is one.
template <uint8_t kType>
struct Counting {
  static constexpr uint32_t kFramesPerSecond = qln::FindTimecodeType(kType)->numbers;
  static constexpr uint32_t kDropped = qln::FindTimecodeType(kType)->skipped;
};

// Calls `action` with the counting of a timecode type; unknown ones count as those without skipped numbers.
template <class Action>
auto WithCountingOf(uint32_t type, Action action) {
  switch (type) {
    case qln::kTcFilm:
      return action(Counting<qln::kTcFilm>());
    case qln::kTcFilmDrop:
      return action(Counting<qln::kTcFilmDrop>());
    case qln::kTc23_98:
      return action(Counting<qln::kTc23_98>());
    case qln::kTcDropFrame:
      return action(Counting<qln::kTcDropFrame>());
    case qln::kTcPal:
      return action(Counting<qln::kTcPal>());
    case qln::kTc50:
      return action(Counting<qln::kTc50>());
    case qln::kTc59_94:
      return action(Counting<qln::kTc59_94>());
    case qln::kTc60:
      return action(Counting<qln::kTc60>());
    default:
      return action(Counting<qln::kTcNonDropFrame>());
  }
}

struct Groups {
  uint64_t hours, minutes, seconds, frames;
};

template <class Counting>
Groups SplitCount(uint64_t count, Counting counting) {
  if constexpr (counting.kDropped != 0) {
    // Put the skipped numbers back in: nine times in ten minutes, and once for each full minute behind the
    // first.
    constexpr uint64_t kShortMinute = uint64_t{counting.kFramesPerSecond} * 60 - counting.kDropped;
    constexpr uint64_t kTenMinutes = kShortMinute * 10 + counting.kDropped;
    const uint64_t rest = count % kTenMinutes;
    uint64_t skips = count / kTenMinutes * 9;
    if (rest >= counting.kDropped) skips += (rest - counting.kDropped) / kShortMinute;
    count += skips * counting.kDropped;
  }
  const uint64_t seconds = count / counting.kFramesPerSecond;
  return {seconds / 3600, seconds / 60 % 60, seconds % 60, count % counting.kFramesPerSecond};
}

template <class Counting>
uint64_t JoinCount(Groups groups, Counting counting) {
  const uint64_t minutes = groups.hours * 60 + groups.minutes;
  // A skipped number is taken as the next one that exists.
  if (minutes % 10 != 0 && groups.seconds == 0 && groups.frames < counting.kDropped)
    groups.frames = counting.kDropped;
  return (minutes * 60 + groups.seconds) * counting.kFramesPerSecond + groups.frames -
         counting.kDropped * (minutes - minutes / 10);
}

// Writes a number with at least two digits. Returns the place behind it.
char* WriteGroup(char* output, uint64_t number) {
  if (number >= 100) return std::to_chars(output, output + kMostDigits, number).ptr;
  output[0] = static_cast<char>('0' + number / 10);
  output[1] = static_cast<char>('0' + number % 10);
  return output + 2;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsSeparator(char c) { return c == ':' || c == ';' || c == '.'; }

// Up to four groups of digits, the last one first in the result. Returns their number, 0 for no timecode.
int ParseGroups(const char* text, uint64_t groups[4]) {
  while (*text == ' ') ++text;
  int count = 0;
  for (;;) {
    if (!IsDigit(*text) || count == 4) return 0;
    uint64_t value = 0;
    for (; IsDigit(*text); ++text) {
      value = value * 10 + static_cast<uint64_t>(*text - '0');
      if (value > 0xFFFFFFFFu) return 0;
    }
    std::memmove(groups + 1, groups, 3 * sizeof *groups);
    groups[0] = value;
    ++count;
    if (!IsSeparator(*text)) break;
    ++text;
  }
  while (*text == ' ') ++text;
  return *text == '\0' ? count : 0;
}

}  // namespace

int32_t TimeCodeToString(uint32_t timecode, uint32_t flags, char* output) {
  if (output == nullptr) return -1;
  const uint32_t type = flags & 0xFFu;
  const bool isBinary = (flags & KX_TIMECODE_BINARY) != 0;
  if (type == 0 && !isBinary) {
    *std::to_chars(output, output + kMostDigits, timecode).ptr = '\0';
    return 0;
  }
  WithCountingOf(type, [=](auto counting) {
    const Groups groups = SplitCount(timecode, counting);
    if (isBinary) {
      output[0] = static_cast<char>(groups.hours % 24);
      output[1] = static_cast<char>(groups.minutes);
      output[2] = static_cast<char>(groups.seconds);
      output[3] = static_cast<char>(groups.frames);
      return;
    }
    // 49710 hours are the most that 32 bits hold: 14 characters.
    char* next = WriteGroup(output, groups.hours);
    *next++ = ':';
    next = WriteGroup(next, groups.minutes);
    *next++ = ':';
    next = WriteGroup(next, groups.seconds);
    *next++ = counting.kDropped != 0 ? ';' : ':';
    next = WriteGroup(next, groups.frames);
    *next = '\0';
  });
  return 0;
}

int32_t TimeCodeFromString(const char* text, uint32_t flags, uint32_t* timecode) {
  if (text == nullptr || timecode == nullptr) return -1;
  uint64_t groups[4] = {};
  const int count = ParseGroups(text, groups);
  if (count == 0) return -1;
  uint64_t value = groups[0];  // a bare number is a frame count
  if (count > 1) {
    value = WithCountingOf(flags & 0xFFu, [&](auto counting) {
      return JoinCount({groups[3], groups[2], groups[1], groups[0]}, counting);
    });
  }
  if (value > 0xFFFFFFFFu) return -1;
  *timecode = static_cast<uint32_t>(value);
  return 0;
}
