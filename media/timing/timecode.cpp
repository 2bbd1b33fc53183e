// Makes the SEI messages of timecodes.

#include "timing/timecode.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <new>

#include "base/error.h"
#include "qlnutil/qlnbits.h"
#include "qlnutil/qlninband.h"
#include "timecode/kxtimecode.h"
#include "units/library_frame.h"

namespace qlnmedia {

namespace {

constexpr uint32_t kReadFlags = 0x100;
constexpr uint32_t kTextFlags = 0x32100;
constexpr uint32_t kBinaryFlags = 0x400;

struct TypeName {
  const char* name;
  uint8_t type;
};

constexpr TypeName kTypes[] = {
    {"film", 1}, {"non-drop-frame", 2}, {"drop-frame", 4}, {"pal", 8}, {"50", 16}, {"59.94", 32},
    {"60", 64},  {"film-drop", 128},    {"23.98", 132},
};

bool CountsDrop(uint8_t type) { return type == 4 || type == 32; }

std::string DigitsOf(const std::string& text) {
  std::string digits;
  for (const char c : text) {
    if (std::isdigit(static_cast<unsigned char>(c)) != 0) digits += c;
  }
  return digits;
}

uint8_t TypeOfRate(double rate, bool drop) {
  struct RateType {
    double rate;
    uint8_t type;
    uint8_t dropType;
  };
  static constexpr RateType kRates[] = {{24000.0 / 1001, 132, 0}, {24, 1, 0}, {25, 8, 0},
                                        {30000.0 / 1001, 2, 4},   {30, 2, 0}, {50, 16, 0},
                                        {60000.0 / 1001, 64, 32}, {60, 64, 0}};
  for (const RateType& entry : kRates) {
    if (std::abs(entry.rate - rate) < 0.005) return drop ? entry.dropType : entry.type;
  }
  return 0;
}

// NumClockTS of table D-1.
uint32_t ClockCount(uint32_t picStruct) {
  static constexpr std::array<uint32_t, 9> kCounts = {1, 1, 1, 2, 2, 3, 3, 2, 3};
  return picStruct < kCounts.size() ? kCounts[picStruct] : 0;
}

// ct_type of table D-2 for pictures of a pic_struct; unknown where a field is repeated.
uint32_t ScanTypeOf(uint32_t picStruct) {
  if (picStruct >= 1 && picStruct <= 4) return 1;
  return picStruct == 5 || picStruct == 6 ? 2 : 0;
}

struct Clock {
  uint8_t hours, minutes, seconds, frames;
};

Clock ClockOf(uint32_t count, uint8_t tcType) {
  std::array<char, 32> bytes{};
  TimeCodeToString(count, tcType | kBinaryFlags, bytes.data());
  return {static_cast<uint8_t>(bytes[0]), static_cast<uint8_t>(bytes[1]), static_cast<uint8_t>(bytes[2]),
          static_cast<uint8_t>(bytes[3])};
}

// The elements of a clock timestamp from counting_type to hours_value, which both codecs lay out alike but
// for the width of n_frames.
ClockTime ReadClock(QLNBitState* state, int frameBits) {
  constexpr uint32_t kDropping = 4;
  ClockTime time;
  time.drop = ReadBits(state, 5) == kDropping;
  const bool full = ReadBit(state) == 1;
  SkipBits(state, 2);  // discontinuity_flag, cnt_dropped_flag
  time.frames = ReadBits(state, frameBits);
  if (!full && ReadBit(state) == 0) return time;
  time.seconds = ReadBits(state, 6);
  if (!full && ReadBit(state) == 0) return time;
  time.minutes = ReadBits(state, 6);
  if (!full && ReadBit(state) == 0) return time;
  time.hours = ReadBits(state, 5);
  time.whole = true;
  return time;
}

}  // namespace

std::string ClockTime::Text() const {
  return fmt::format("{:02}:{:02}:{:02}{}{:02}", hours, minutes, seconds, drop ? ';' : ':', frames);
}

bool IsTimecodeRate(Rational rate) { return rate.denominator != 0 && TypeOfRate(rate.value(), false) != 0; }

TimecodeStart ParseTimecode(const std::string& text, const std::string& typeName, Rational rate) {
  const std::string where = "--timecode " + text;
  const bool shape = text.size() == 11 && DigitsOf(text).size() == 8 && text[2] == ':' && text[5] == ':' &&
                     (text[8] == ':' || text[8] == ';');
  if (!shape) throw Error(where, "is no timecode", "write HH:MM:SS:FF, or HH:MM:SS;FF for drop-frame");
  const bool drop = text[8] == ';';
  TimecodeStart start;
  if (typeName.empty()) {
    const double perSecond = rate.value();
    if (TypeOfRate(perSecond, false) == 0)
      throw Error(where, fmt::format("no timecode counts {:.5g} frames a second", perSecond),
                  "say the rate with --rate, or how to count with --timecode-type");
    start.type = TypeOfRate(perSecond, drop);
    if (start.type == 0)
      throw Error(where, fmt::format("there is no drop-frame counting at {:.5g} frames a second", perSecond),
                  "write a colon");
  } else {
    const auto* const found = std::find_if(std::begin(kTypes), std::end(kTypes),
                                           [&](const TypeName& entry) { return typeName == entry.name; });
    if (found == std::end(kTypes)) {
      std::string names;
      for (const TypeName& entry : kTypes) names += (names.empty() ? "" : ", ") + std::string(entry.name);
      throw Error("--timecode-type " + typeName, "is no timecode type", "there are " + names);
    }
    start.type = found->type;
    if (drop && !CountsDrop(start.type))
      throw Error(where, "there is no drop-frame counting in " + typeName, "write a colon");
  }
  std::array<char, 32> back{};
  if (TimeCodeFromString(text.c_str(), start.type | kReadFlags, &start.count) != 0)
    throw Error(where, "is no timecode", "write HH:MM:SS:FF, or HH:MM:SS;FF for drop-frame");
  TimeCodeToString(start.count, start.type | kTextFlags, back.data());
  if (DigitsOf(back.data()) != DigitsOf(text))
    throw Error(where, "does not exist at this rate", fmt::format("the next one is {}", back.data()));
  return start;
}

std::optional<PictureTiming> ReadPictureTiming(const Bytes& payload, const SpsFacts& sps) {
  Bytes bytes = payload;
  bytes.push_back(0);
  QLNBitState state{bytes.data(), static_cast<int32_t>(payload.size()),
                    static_cast<uint32_t>(payload.size()) * 8, 0};
  PictureTiming timing;
  if (sps.h264.hrd) {
    timing.cpbRemovalDelay = ReadBits(&state, static_cast<int32_t>(sps.h264.cpbRemovalDelayLength));
    timing.dpbOutputDelay = ReadBits(&state, static_cast<int32_t>(sps.h264.dpbOutputDelayLength));
  }
  if (sps.h264.picStruct) {
    timing.picStruct = ReadBits(&state, 4);
    for (uint32_t i = 0; i < ClockCount(timing.picStruct) && state.bitPos <= state.bitLength; ++i) {
      timing.clocks[i] = ReadBit(&state) == 1;
      if (!timing.clocks[i]) continue;
      timing.scanTypes[i] = ReadBits(&state, 2);
      timing.fieldBased[i] = ReadBit(&state) == 1;
      timing.times[i] = ReadClock(&state, 8);
      SkipBits(&state, sps.h264.timeOffsetLength);
    }
  }
  if (state.bitPos > state.bitLength) return {};
  return timing;
}

Bytes MakePictureTiming(const PictureTiming& timing, const SpsFacts& sps, uint32_t count, uint8_t tcType) {
  Bytes bytes(64);
  QLNBitState state{bytes.data(), static_cast<int32_t>(bytes.size()), static_cast<uint32_t>(bytes.size()) * 8,
                    0};
  if (sps.h264.hrd) {
    WriteBits(&state, static_cast<int32_t>(sps.h264.cpbRemovalDelayLength), timing.cpbRemovalDelay);
    WriteBits(&state, static_cast<int32_t>(sps.h264.dpbOutputDelayLength), timing.dpbOutputDelay);
  }
  WriteBits(&state, 4, timing.picStruct);
  const uint32_t clocks = ClockCount(timing.picStruct);
  bool any = false;
  for (uint32_t i = 0; i < clocks; ++i) any = any || timing.clocks[i];
  const Clock clock = ClockOf(count, tcType);
  for (uint32_t i = 0; i < clocks; ++i) {
    const bool present = timing.clocks[i] || (!any && i == 0);
    WriteBits(&state, 1, present ? 1 : 0);
    if (!present) continue;
    WriteBits(&state, 2, timing.clocks[i] ? timing.scanTypes[i] : ScanTypeOf(timing.picStruct));
    // A tick is a field: frames are counted by two of them.
    const bool ticksAreFields = sps.numUnitsInTick != 0;
    WriteBits(&state, 1, (timing.clocks[i] ? timing.fieldBased[i] : ticksAreFields) ? 1 : 0);
    WriteBits(&state, 5, CountsDrop(tcType) ? 4 : 0);  // counting_type
    WriteBits(&state, 3, 4);                           // full_timestamp_flag; no discontinuity, none dropped
    WriteBits(&state, 8, clock.frames);
    WriteBits(&state, 6, clock.seconds);
    WriteBits(&state, 6, clock.minutes);
    WriteBits(&state, 5, clock.hours);
    // time_offset is there also where no HRD tells its length: 24 bits then.
    if (sps.h264.timeOffsetLength > 0) WriteBits(&state, static_cast<int32_t>(sps.h264.timeOffsetLength), 0);
  }
  if (state.bitPos % 8 != 0) WriteBit(&state, 1);
  bytes.resize((state.bitPos + 7) / 8);
  return bytes;
}

std::vector<ClockTime> ReadTimeCode(const Bytes& payload) {
  Bytes bytes = payload;
  bytes.push_back(0);
  QLNBitState state{bytes.data(), static_cast<int32_t>(payload.size()),
                    static_cast<uint32_t>(payload.size()) * 8, 0};
  std::vector<ClockTime> times;
  const uint32_t count = ReadBits(&state, 2);
  for (uint32_t i = 0; i < count && state.bitPos < state.bitLength; ++i) {
    if (ReadBit(&state) == 0) continue;  // clock_timestamp_flag
    SkipBits(&state, 1);                 // units_field_based_flag
    const ClockTime time = ReadClock(&state, 9);
    const uint32_t offsetLength = ReadBits(&state, 5);
    SkipBits(&state, offsetLength);
    if (state.bitPos > state.bitLength) break;
    times.push_back(time);
  }
  return times;
}

Bytes MakeHevcTimecodeUnit(uint32_t count, uint8_t tcType, bool field, uint32_t temporalId) {
  constexpr uint8_t kUnitsFieldBased = 0x10;  // behind num_clock_ts and clock_timestamp_flag
  // The unit comes to stand between a delimiter and the slice.
  LibraryFrame made({{0x46, 0x01, 0x50}, {0x26, 0x01, 0xAF, 0x80}});
  made.frame().timeCodeA = count;
  made.frame().timeCodeB = QLN_NO_TIMECODE;
  qlnutilAddHEVCTimeCode(&made.frame(), tcType);
  for (const Unit& unit : made.units()) {
    if (UnitType(Codec::kHevc, unit.bytes) != 39) continue;
    std::vector<SeiMessage> messages = ReadSeiMessages(Codec::kHevc, unit.bytes);
    if (field) messages.at(0).payload.at(0) |= kUnitsFieldBased;
    const Bytes header{unit.bytes[0], static_cast<uint8_t>(temporalId + 1)};
    return MakeSeiUnit(header, messages);
  }
  throw std::bad_alloc();
}

}  // namespace qlnmedia
