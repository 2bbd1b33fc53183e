// Makes the SEI messages of timecodes.

#include "qlnmedia/timecode.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <new>

#include "qlnmedia/tool_error.h"
#include "qlnutil/qlnbits.h"
#include "qlnutil/qlninband.h"
#include "timecode/kxtimecode.h"

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

struct Clock {
  uint8_t hours, minutes, seconds, frames;
};

Clock ClockOf(uint32_t count, uint8_t tcType) {
  std::array<char, 32> bytes{};
  TimeCodeToString(count, tcType | kBinaryFlags, bytes.data());
  return {static_cast<uint8_t>(bytes[0]), static_cast<uint8_t>(bytes[1]), static_cast<uint8_t>(bytes[2]),
          static_cast<uint8_t>(bytes[3])};
}

}  // namespace

TimecodeStart ParseTimecode(const std::string& text, const std::string& typeName, AVRational rate) {
  const std::string where = "--timecode " + text;
  const bool shape = text.size() == 11 && DigitsOf(text).size() == 8 && text[2] == ':' && text[5] == ':' &&
                     (text[8] == ':' || text[8] == ';');
  if (!shape) throw ToolError(where, "is no timecode", "write HH:MM:SS:FF, or HH:MM:SS;FF for drop-frame");
  const bool drop = text[8] == ';';
  TimecodeStart start;
  if (typeName.empty()) {
    const double perSecond = rate.den == 0 ? 0 : av_q2d(rate);
    if (TypeOfRate(perSecond, false) == 0)
      throw ToolError(where, fmt::format("no timecode counts {:.5g} frames a second", perSecond),
                      "name one with --timecode-type");
    start.type = TypeOfRate(perSecond, drop);
    if (start.type == 0)
      throw ToolError(where,
                      fmt::format("there is no drop-frame counting at {:.5g} frames a second", perSecond),
                      "write a colon");
  } else {
    const auto* const found = std::find_if(std::begin(kTypes), std::end(kTypes),
                                           [&](const TypeName& entry) { return typeName == entry.name; });
    if (found == std::end(kTypes)) {
      std::string names;
      for (const TypeName& entry : kTypes) names += (names.empty() ? "" : ", ") + std::string(entry.name);
      throw ToolError("--timecode-type " + typeName, "is no timecode type", "there are " + names);
    }
    start.type = found->type;
    if (drop && !CountsDrop(start.type))
      throw ToolError(where, "there is no drop-frame counting in " + typeName, "write a colon");
  }
  std::array<char, 32> back{};
  if (TimeCodeFromString(text.c_str(), start.type | kReadFlags, &start.count) != 0)
    throw ToolError(where, "is no timecode", "write HH:MM:SS:FF, or HH:MM:SS;FF for drop-frame");
  TimeCodeToString(start.count, start.type | kTextFlags, back.data());
  if (DigitsOf(back.data()) != DigitsOf(text))
    throw ToolError(where, "does not exist at this rate", fmt::format("the next one is {}", back.data()));
  return start;
}

std::optional<PictureTiming> ReadPictureTiming(const Bytes& payload, const SpsSummary& sps) {
  Bytes bytes = payload;
  bytes.push_back(0);
  QLNBitState state{bytes.data(), static_cast<int32_t>(payload.size()),
                    static_cast<uint32_t>(payload.size()) * 8, 0};
  PictureTiming timing;
  if (sps.hrd) {
    timing.cpbRemovalDelay = ReadBits(&state, static_cast<int32_t>(sps.cpbRemovalDelayLength));
    timing.dpbOutputDelay = ReadBits(&state, static_cast<int32_t>(sps.dpbOutputDelayLength));
  }
  if (sps.picStruct) {
    timing.picStruct = ReadBits(&state, 4);
    for (uint32_t i = 0; i < ClockCount(timing.picStruct) && state.bitPos <= state.bitLength; ++i) {
      timing.clocks[i] = ReadBit(&state) == 1;
      if (!timing.clocks[i]) continue;
      timing.scanTypes[i] = ReadBits(&state, 2);
      timing.fieldBased[i] = ReadBit(&state) == 1;
      SkipBits(&state, 5);
      const bool full = ReadBit(&state) == 1;
      SkipBits(&state, 2 + 8);
      if (full) {
        SkipBits(&state, 17);
      } else if (ReadBit(&state) == 1) {
        SkipBits(&state, 6);
        if (ReadBit(&state) == 1) {
          SkipBits(&state, 6);
          if (ReadBit(&state) == 1) SkipBits(&state, 5);
        }
      }
      SkipBits(&state, sps.timeOffsetLength);
    }
  }
  if (state.bitPos > state.bitLength) return {};
  return timing;
}

Bytes MakePictureTiming(const PictureTiming& timing, const SpsSummary& sps, uint32_t count, uint8_t tcType) {
  Bytes bytes(64);
  QLNBitState state{bytes.data(), static_cast<int32_t>(bytes.size()), static_cast<uint32_t>(bytes.size()) * 8,
                    0};
  if (sps.hrd) {
    WriteBits(&state, static_cast<int32_t>(sps.cpbRemovalDelayLength), timing.cpbRemovalDelay);
    WriteBits(&state, static_cast<int32_t>(sps.dpbOutputDelayLength), timing.dpbOutputDelay);
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
    WriteBits(&state, 2, timing.scanTypes[i]);
    WriteBits(&state, 1, timing.fieldBased[i] ? 1 : 0);
    WriteBits(&state, 5, CountsDrop(tcType) ? 4 : 0);  // counting_type
    WriteBits(&state, 3, 4);                           // full_timestamp_flag; no discontinuity, none dropped
    WriteBits(&state, 8, clock.frames);
    WriteBits(&state, 6, clock.seconds);
    WriteBits(&state, 6, clock.minutes);
    WriteBits(&state, 5, clock.hours);
    // time_offset is there also where no HRD tells its length: 24 bits then.
    if (sps.timeOffsetLength > 0) WriteBits(&state, static_cast<int32_t>(sps.timeOffsetLength), 0);
  }
  if (state.bitPos % 8 != 0) WriteBit(&state, 1);
  bytes.resize((state.bitPos + 7) / 8);
  return bytes;
}

Bytes MakeHevcTimecodeUnit(uint32_t count, uint8_t tcType) {
  // A delimiter and the beginning of a slice; the unit comes to stand between them.
  static constexpr uint8_t kFrame[] = {0, 0, 0, 1, 0x46, 0x01, 0x50, 0, 0, 0, 1, 0x26, 0x01, 0xAF, 0x80};
  Bytes data(512);
  std::copy(std::begin(kFrame), std::end(kFrame), data.begin());
  DFrame frame{};
  frame.frameData = data.data();
  frame.frameSize = sizeof kFrame;
  frame.frameCapacity = static_cast<uint32_t>(data.size());
  frame.timeCodeA = count;
  frame.timeCodeB = QLN_NO_TIMECODE;
  qlnutilAddHEVCTimeCode(&frame, tcType);
  for (const Unit& unit : TakeApart(ByteSpan(data).first(frame.frameSize), Framing{}).units) {
    if (UnitType(Codec::kHevc, unit.bytes) == 39) return unit.bytes;
  }
  throw std::bad_alloc();
}

uint32_t PresentationOrder::Take() {
  const int64_t time = pending_.front();
  pending_.pop_front();
  const auto later =
      std::count_if(taken_.begin(), taken_.end(), [time](int64_t other) { return other > time; });
  const auto earlier =
      std::count_if(pending_.begin(), pending_.end(), [time](int64_t other) { return other < time; });
  const uint32_t place = count_ - static_cast<uint32_t>(later) + static_cast<uint32_t>(earlier);
  ++count_;
  taken_.push_back(time);
  if (taken_.size() > kAhead) taken_.pop_front();
  return place;
}

}  // namespace qlnmedia
