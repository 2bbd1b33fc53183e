// Adds delimiters and recovery points, by the order rules of the standards.

#include "edit/unit_adder.h"

#include <algorithm>
#include <memory>
#include <new>

#include "qlnutil/qlnh264.h"
#include "units/access_unit.h"
#include "units/library_frame.h"
#include "units/unit_types.h"

namespace qlnmedia {

namespace {

constexpr int kDecodingUnitInfo = 130;

constexpr int kCra = 21;

// Types of frames, as the library's adder takes them.
constexpr uint32_t kIntraFrame = 0x10000000u;
constexpr uint32_t kFirstInterFrame = 0x80000000u;
constexpr uint32_t kSecondInterFrame = 0x20000000u;

// Lets the library put one unit in front of a slice.
Bytes MakeByLibrary(uint32_t frameType, bool delimiter, bool recoveryPoint) {
  LibraryFrame made({SliceStub(Codec::kH264)});
  made.frame().frameType = frameType;
  // A recovery point says nothing that depends on the set, but is not made without one.
  const auto sps = std::make_unique<H264SpsRecord>();
  qlnutilAddNalUnits(&made.frame(), sps.get(), -1, delimiter ? 1 : 0, 0, recoveryPoint ? 1 : 0, 0, 0, 0, 0, 0,
                     0);
  if (made.frame().frameSize == made.sizeBefore()) throw std::bad_alloc();
  return made.units().front().bytes;
}

bool HasMessage(Codec codec, const Unit& unit, int type) {
  if (!IsSei(codec, UnitType(codec, unit.bytes))) return false;
  const std::vector<SeiMessage> messages = ReadSeiMessages(codec, unit.bytes);
  return std::any_of(messages.begin(), messages.end(),
                     [type](const SeiMessage& message) { return message.type == type; });
}

bool HasDelimiter(const PictureUnits& part, size_t begin, size_t slice) {
  for (size_t i = begin; i < slice; ++i) {
    if (IsDelimiter(part.codec, UnitType(part.codec, part.units[i].bytes))) return true;
  }
  return false;
}

}  // namespace

Bytes MakeH264Delimiter(unsigned kinds) {
  uint32_t frameType = 0;
  if (kinds == kSliceI) {
    frameType = kIntraFrame;
  } else if (kinds != 0 && (kinds & kSliceSwitching) == 0) {
    frameType = (kinds & kSliceB) != 0 ? kSecondInterFrame : kFirstInterFrame;
  }
  return MakeByLibrary(frameType, true, false);
}

Bytes MakeHevcDelimiter(unsigned kinds, uint8_t temporalPlus1) {
  // pic_type of ITU-T H.265 table 7-2: it names the types that may be there.
  const unsigned picType = kinds == kSliceI ? 0 : kinds != 0 && (kinds & kSliceB) == 0 ? 1 : 2;
  return {35 << 1, temporalPlus1, static_cast<uint8_t>(picType << 5 | 0x10)};
}

Bytes MakeH264RecoveryPoint() { return MakeByLibrary(kIntraFrame, false, true); }

Bytes MakeHevcRecoveryPoint(uint8_t temporalPlus1) {
  // recovery_poc_cnt 0 as se(v), exact_match_flag, no broken link, and the payload's own stop bit. What
  // follows a CRA picture in output order uses nothing in front of it, so that the match is exact.
  const Bytes header = {39 << 1, temporalPlus1};
  return MakeSeiUnit(header, {{sei::kRecoveryPoint, {0xD0}}});
}

bool UnitAdder::NeedsRecoveryPoint(const PictureUnits& part, PacketMark mark) {
  const size_t begin = part.begin();
  const size_t slice = part.slice();
  bool ownSps = false;
  for (size_t i = begin; i < part.units.size(); ++i) {
    if (HasMessage(part.codec, part.units[i], sei::kRecoveryPoint)) return false;
    if (i < slice) ownSps = ownSps || IsSps(part.codec, UnitType(part.codec, part.units[i].bytes));
  }
  const int type = UnitType(part.codec, part.units[slice].bytes);
  if (part.codec == Codec::kHevc) return type == kCra;
  if (type == 5 || part.kinds != kSliceI) return false;
  // A picture of intra slices alone is none: what follows may still refer to what stands in front of it.
  if (mark.byContainer ? mark.key : ownSps) return true;
  ++counts_.intraWithoutRecovery;
  return false;
}

UnitAdder::Added UnitAdder::Add(std::vector<PictureUnits>& parts, PacketMark mark) {
  Added added;
  for (PictureUnits& part : parts) {
    if (!part.picture) continue;
    const size_t begin = part.begin();
    const size_t slice = part.slice();
    const bool hevc = part.codec == Codec::kHevc;
    const uint8_t temporalPlus1 = TemporalPlus1(part.units[slice].bytes);
    const bool lacksDelimiter = delimiters_ && !HasDelimiter(part, begin, slice);
    // A frame of two fields is entered at the first one.
    if (recoveryPoints_ && &part == &parts.front() && NeedsRecoveryPoint(part, mark)) {
      InsertSei(part.units,
                SeiPlace(part.codec, part.units, begin, slice,
                         {sei::kActiveParameterSets, sei::kBufferingPeriod, sei::kPictureTiming,
                          kDecodingUnitInfo}),
                hevc ? MakeHevcRecoveryPoint(temporalPlus1) : MakeH264RecoveryPoint());
      ++counts_.recoveryPoints;
      added.any = added.start = true;
    }
    if (!lacksDelimiter) continue;
    Unit delimiter;
    delimiter.bytes = hevc ? MakeHevcDelimiter(part.kinds, temporalPlus1) : MakeH264Delimiter(part.kinds);
    part.units.insert(part.units.begin() + static_cast<std::ptrdiff_t>(begin), std::move(delimiter));
    ++counts_.delimiters;
    added.any = true;
  }
  return added;
}

}  // namespace qlnmedia
