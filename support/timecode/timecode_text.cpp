// Frame counts to text and back: one table of counting rules, one pass each way (SMPTE ST 12-1).

#include <cstring>

#include "timecode/kxtimecode.h"

namespace {

struct Counting {
  uint32_t framesPerSecond;
  uint32_t dropped;  // frame numbers skipped at the start of each minute but each tenth
};

Counting CountingOf(uint32_t type) {
  switch (type) {
    case 1:
    case 128:
    case 132:
      return {24, 0};
    case 4:
      return {30, 2};
    case 8:
      return {25, 0};
    case 16:
      return {50, 0};
    case 32:
      return {60, 4};
    case 64:
      return {60, 0};
    default:
      return {30, 0};
  }
}

struct Groups {
  uint64_t hours, minutes, seconds, frames;
};

Groups SplitCount(uint64_t count, const Counting& counting) {
  if (counting.dropped != 0) {
    // Put the skipped numbers back in: nine times in ten minutes, and once for each full minute behind the
    // first.
    const uint64_t shortMinute = uint64_t{counting.framesPerSecond} * 60 - counting.dropped;
    const uint64_t tenMinutes = shortMinute * 10 + counting.dropped;
    const uint64_t rest = count % tenMinutes;
    uint64_t skips = count / tenMinutes * 9;
    if (rest >= counting.dropped) skips += (rest - counting.dropped) / shortMinute;
    count += skips * counting.dropped;
  }
  const uint64_t seconds = count / counting.framesPerSecond;
  return {seconds / 3600, seconds / 60 % 60, seconds % 60, count % counting.framesPerSecond};
}

uint64_t JoinCount(Groups groups, const Counting& counting) {
  const uint64_t minutes = groups.hours * 60 + groups.minutes;
  // A skipped number is taken as the next one that exists.
  if (minutes % 10 != 0 && groups.seconds == 0 && groups.frames < counting.dropped)
    groups.frames = counting.dropped;
  return (minutes * 60 + groups.seconds) * counting.framesPerSecond + groups.frames -
         counting.dropped * (minutes - minutes / 10);
}

// Writes a number with at least `digits` digits. Returns the place behind it.
char* WriteDecimal(char* output, uint64_t number, int digits) {
  char reversed[20];
  int length = 0;
  for (; number != 0 || length < digits; number /= 10)
    reversed[length++] = static_cast<char>('0' + number % 10);
  while (length > 0) *output++ = reversed[--length];
  return output;
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
  const Counting counting = CountingOf(type);
  const Groups groups = SplitCount(timecode, counting);
  if ((flags & KX_TIMECODE_BINARY) != 0) {
    output[0] = static_cast<char>(groups.hours % 24);
    output[1] = static_cast<char>(groups.minutes);
    output[2] = static_cast<char>(groups.seconds);
    output[3] = static_cast<char>(groups.frames);
    return 0;
  }
  char* next = output;
  if (type == 0) {
    next = WriteDecimal(next, timecode, 1);
  } else {
    // 49710 hours are the most that 32 bits hold: 14 characters.
    next = WriteDecimal(next, groups.hours, 2);
    *next++ = ':';
    next = WriteDecimal(next, groups.minutes, 2);
    *next++ = ':';
    next = WriteDecimal(next, groups.seconds, 2);
    *next++ = counting.dropped != 0 ? ';' : ':';
    next = WriteDecimal(next, groups.frames, 2);
  }
  *next = '\0';
  return 0;
}

int32_t TimeCodeFromString(const char* text, uint32_t flags, uint32_t* timecode) {
  if (text == nullptr || timecode == nullptr) return -1;
  uint64_t groups[4] = {};
  const int count = ParseGroups(text, groups);
  if (count == 0) return -1;
  uint64_t value = groups[0];  // a bare number is a frame count
  if (count > 1) value = JoinCount({groups[3], groups[2], groups[1], groups[0]}, CountingOf(flags & 0xFFu));
  if (value > 0xFFFFFFFFu) return -1;
  *timecode = static_cast<uint32_t>(value);
  return 0;
}
