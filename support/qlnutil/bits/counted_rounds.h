// Loops whose count comes from a stream, in time that the data allows.
#ifndef QLNUTIL_BITS_COUNTED_ROUNDS_H
#define QLNUTIL_BITS_COUNTED_ROUNDS_H

#include <algorithm>
#include <cstdint>

#include "qlnutil/bits/bit_reader.h"

namespace qln {

// Rounds of a loop from 0 to `last` inclusive; none for a count with its top bit set.
constexpr uint64_t InclusiveRounds(uint32_t last) { return last > 0x7FFFFFFFu ? 0 : uint64_t{last} + 1; }

// Runs round(i) for i from 0 to count - 1, with the very result of doing so but without running rounds that
// cannot differ: where a round saw nothing but the end of the data, or nothing but the zero bits between the
// data and the limit, all following ones read the same values and move bitPos as far, and are one addition.
//
// storing: rounds from this one on store nothing of their own (values of which the last one stands are fine).
// round: reads a fixed run of elements and keeps no state but what it reads.
template <class Round>
void RunCountedRounds(BitReader& reader, uint64_t count, uint64_t storing, Round round) {
  constexpr uint64_t kPositions = uint64_t{1} << 32;
  // Past the limit a round takes fewer bits than this. One that begins closer to the end of all positions may
  // wrap inside and still end behind its start, so that it tells nothing of those behind it.
  constexpr uint64_t kLongestRound = 1024;
  // The position may wrap, again and again: under a limit near 2^32 that has zero bits up to it, and past any
  // limit where the count has that many rounds. A round depends on its position alone, so a position that
  // comes back after a wrap begins a cycle; it is looked for at growing distances.
  uint64_t anchor = kPositions;
  uint64_t anchorRound = 0;
  uint64_t wraps = 0;
  uint64_t nextAnchor = 1;
  uint64_t i = 0;
  const auto wrapped = [&](uint64_t position) {
    if (position == anchor) {
      i = count - (count - i) % (i - anchorRound);
      anchor = kPositions;
    } else if (++wraps == nextAnchor) {
      anchor = position;
      anchorRound = i;
      nextAnchor *= 2;
    }
  };
  while (i < count) {
    const uint64_t before = reader.bitPos;
    const bool pastLimit = reader.PastLimit();
    round(i);
    ++i;
    if (i < storing) continue;
    const uint64_t after = reader.bitPos;
    if (after < before) {
      wrapped(after);
      continue;
    }
    const uint64_t moved = after - before;
    if (moved == 0) return;  // nor will any other
    uint64_t end;            // rounds that end at or in front of it equal the one just run
    if (before > kPositions - kLongestRound) {
      continue;
    } else if (pastLimit) {
      end = kPositions;
    } else if (before >= reader.byteCount() * 8 && after <= reader.bitLength) {
      end = reader.bitLength;
    } else {
      continue;
    }
    const uint64_t skipped = std::min(count - i, (end - after) / moved);
    const uint64_t position = after + skipped * moved;
    reader.bitPos = static_cast<uint32_t>(position);
    i += skipped;
    if (position == kPositions) wrapped(0);
  }
}

}  // namespace qln

#endif
