// Adds delimiters and recovery points, by the order rules of the standards.

#include "edit/unit_adder.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <new>
#include <optional>

#include "qlnutil/qlnh264.h"
#include "units/access_unit.h"
#include "units/library_frame.h"

namespace qlnmedia {

namespace {

constexpr int kBufferingPeriod = 0;
constexpr int kPictureTiming = 1;
constexpr int kRecoveryPoint = 6;
constexpr int kActiveParameterSets = 129;
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
  return MakeSeiUnit(header, {{kRecoveryPoint, {0xD0}}});
}

bool UnitAdder::HasDelimiter(const std::vector<Unit>& units, const CodedPicture& picture) const {
  for (size_t i = picture.begin; i < picture.slice; ++i) {
    if (IsDelimiter(codec_, UnitType(codec_, units[i].bytes))) return true;
  }
  return false;
}

Unit UnitAdder::MakeDelimiter(const std::vector<Unit>& units, const CodedPicture& picture) const {
  const unsigned kinds = tracker_.SlicesOf(units, picture);
  Unit unit;
  unit.bytes = codec_ == Codec::kH264 ? MakeH264Delimiter(kinds)
                                      : MakeHevcDelimiter(kinds, TemporalPlus1(units[picture.slice].bytes));
  return unit;
}

bool UnitAdder::NeedsRecoveryPoint(const std::vector<Unit>& units, const CodedPicture& picture,
                                   PacketMark mark) {
  bool ownSps = false;
  for (size_t i = picture.begin; i < picture.end; ++i) {
    if (HasMessage(codec_, units[i], kRecoveryPoint)) return false;
    if (i < picture.slice) ownSps = ownSps || IsSps(codec_, UnitType(codec_, units[i].bytes));
  }
  const int type = UnitType(codec_, units[picture.slice].bytes);
  if (codec_ == Codec::kHevc) return type == kCra;
  if (type == 5 || tracker_.SlicesOf(units, picture) != kSliceI) return false;
  // A picture of intra slices alone is none: what follows may still refer to what stands in front of it.
  if (mark.byContainer ? mark.key : ownSps) return true;
  ++intraLeft_;
  return false;
}

bool UnitAdder::Add(std::vector<Unit>& units, PacketMark mark) {
  if (!delimiters_ && !recoveryPoints_) return false;
  const std::vector<CodedPicture> pictures = tracker_.Take(units);
  bool starts = false;
  // From the last to the first, so that the places of those in front stay.
  for (size_t n = pictures.size(); n-- > 0;) {
    const CodedPicture& picture = pictures[n];
    std::optional<Unit> delimiter;
    if (delimiters_ && !HasDelimiter(units, picture)) delimiter = MakeDelimiter(units, picture);
    // A frame of two fields is entered at the first one.
    if (recoveryPoints_ && n == 0 && NeedsRecoveryPoint(units, picture, mark)) {
      InsertSei(units,
                SeiPlace(codec_, units, picture.begin, picture.slice,
                         {kActiveParameterSets, kBufferingPeriod, kPictureTiming, kDecodingUnitInfo}),
                codec_ == Codec::kH264 ? MakeH264RecoveryPoint()
                                       : MakeHevcRecoveryPoint(TemporalPlus1(units[picture.slice].bytes)));
      ++recoveryPointsAdded_;
      starts = true;
    }
    if (delimiter) {
      units.insert(units.begin() + static_cast<std::ptrdiff_t>(picture.begin), std::move(*delimiter));
      ++delimitersAdded_;
    }
  }
  return starts;
}

std::vector<std::string> UnitAdder::Summary() const {
  std::vector<std::string> pieces;
  if (delimitersAdded_ != 0) pieces.push_back(fmt::format("{} delimiters put in", delimitersAdded_));
  if (recoveryPointsAdded_ != 0)
    pieces.push_back(fmt::format("{} recovery points put in", recoveryPointsAdded_));
  if (intraLeft_ != 0)
    pieces.push_back(fmt::format(
        "{} intra pictures left alone, since nothing says that decoding can start there", intraLeft_));
  return pieces;
}

}  // namespace qlnmedia
