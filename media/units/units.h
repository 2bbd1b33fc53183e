// NAL units as they lie in packets, files and configuration records: taken apart and put together again
// without losing a byte.
#ifndef MEDIA_UNITS_UNITS_H
#define MEDIA_UNITS_UNITS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "units/unit_types.h"

namespace qlnmedia {

// How units are told apart: by start codes, or by a big-endian length of 1, 2 or 4 bytes in front of each.
struct Framing {
  int lengthBytes = 0;  // 0: start codes
  bool startCodes() const { return lengthBytes == 0; }
};

// Some writers let one length cover several units with start codes between them, which no standard knows.
enum class Join {
  kNone,       // the unit has a length of its own, or is the first one that its length covers
  kBegins,     // the same, with a start code between length and unit
  kContinues,  // a start code stands in front, and the length is that of a unit before
};

// One unit with what stood around it.
struct Unit {
  Bytes bytes;             // from the NAL header on, emulation prevention included
  int startCodeBytes = 4;  // 3 or 4; of no meaning where lengths alone tell units apart
  int trailingZeros = 0;   // zero bytes behind the unit, in front of the next start code or at the end
  Join join = Join::kNone;
};

// The units of one packet.
struct UnitRun {
  Bytes lead;  // bytes in front of the first start code; empty in length form
  std::vector<Unit> units;
  Bytes rest;  // length form: bytes at the end that no length covers, or whose length leads past the end
  bool damaged() const { return !rest.empty(); }
};

// Takes a packet apart; PutTogether of the result gives the same bytes. In length form a unit whose length
// leads past the end goes to `rest` with all behind it, and start codes inside of a length part units as
// well: emulation prevention keeps them out of a unit.
UnitRun TakeApart(ByteSpan data, Framing framing);
// Calls `take` for each unit of a packet in order, without a copy: spans point into `data`.
void VisitUnits(ByteSpan data, Framing framing, const std::function<void(ByteSpan unit)>& take);
Bytes PutTogether(const UnitRun& run, Framing framing);
// True where a start code stands anywhere in the bytes, which a unit by itself never holds.
bool HoldsStartCode(ByteSpan bytes);
// In length form: the end of the units that one length covers from `first` on, and how many `bytes` they are.
size_t CoveredUnits(const std::vector<Unit>& units, size_t first, size_t* bytes);

// All units with lengths of 4 bytes, or with start codes of 4 bytes: the two forms in which the library takes
// frames.
Bytes ToLengthForm(const std::vector<Unit>& units);
Bytes ToMarkerForm(const std::vector<Unit>& units);

// The payload of a unit without its emulation prevention bytes, by the full rule of the standards: the 3 of
// each 00 00 03 goes.
Bytes Unescape(ByteSpan unit);
// The reverse, by the full rule: a 3 in front of each byte of 3 or less behind 00 00, and behind a last 00
// 00.
Bytes Escape(ByteSpan payload);

// One message of an SEI unit.
struct SeiMessage {
  int type = 0;
  Bytes payload;  // unescaped
};
// The messages of an SEI unit of either codec; `whole`, if given, tells whether the unit was read to its end.
std::vector<SeiMessage> ReadSeiMessages(Codec codec, ByteSpan unit, bool* whole = nullptr);
// An SEI unit of the given header (1 byte for H.264, 2 for HEVC) from messages.
Bytes MakeSeiUnit(ByteSpan header, const std::vector<SeiMessage>& messages);

}  // namespace qlnmedia

#endif
