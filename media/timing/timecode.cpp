// Makes the SEI messages of timecodes.

#include "timing/timecode.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <new>

#include "base/error.h"
#include "base/numbers.h"
#include "qlnutil/qlnbits.h"
#include "qlnutil/qlninband.h"
#include "timecode/kxtimecode.h"
#include "timecode/timecode_types.h"
#include "units/library_frame.h"
#include "units/mpeg2.h"

namespace qlnmedia {

namespace {

constexpr uint32_t kReadFlags = 0x100;
constexpr uint32_t kTextFlags = 0x32100;

constexpr uint32_t kTwoLowest = 4;  // counting_type: each minute but each tenth lacks its first two numbers
constexpr uint32_t kOtherNumbers = 6;  // counting_type: it lacks others, as the first four

using qln::TimecodeType;

std::string DigitsOf(const std::string& text) {
  std::string digits;
  for (const char c : text) {
    if (std::isdigit(static_cast<unsigned char>(c)) != 0) digits += c;
  }
  return digits;
}

// Which types count at the pace of a type; kTcFrames for none.
struct RateTypes {
  uint8_t pace;
  uint8_t type;
  uint8_t dropType;
};

uint8_t TypeOfRate(double rate, bool drop) {
  static constexpr RateTypes kRates[] = {
      {qln::kTc23_98, qln::kTc23_98, qln::kTcFrames},
      {qln::kTcFilm, qln::kTcFilm, qln::kTcFrames},
      {qln::kTcPal, qln::kTcPal, qln::kTcFrames},
      {qln::kTcDropFrame, qln::kTcNonDropFrame, qln::kTcDropFrame},
      {qln::kTcNonDropFrame, qln::kTcNonDropFrame, qln::kTcFrames},
      {qln::kTc50, qln::kTc50, qln::kTcFrames},
      {qln::kTc59_94, qln::kTc60, qln::kTc59_94},
      {qln::kTc60, qln::kTc60, qln::kTcFrames},
  };
  for (const RateTypes& entry : kRates) {
    if (std::abs(qln::FindTimecodeType(entry.pace)->framesPerSecond - rate) < 0.005)
      return drop ? entry.dropType : entry.type;
  }
  return qln::kTcFrames;
}

// The type of that name; throws Error, naming those that there are.
uint8_t TypeNamed(const std::string& name) {
  const TimecodeType* const found = qln::FindTimecodeTypeNamed(name);
  if (found != nullptr && found->type != qln::kTcFrames) return found->type;
  std::string names;
  for (const TimecodeType& type : qln::kTimecodeTypes) {
    if (type.type != qln::kTcFrames) names += (names.empty() ? "" : ", ") + std::string(type.word);
  }
  throw Error("--timecode-type " + name, "is no timecode type", "there are " + names);
}

// The counting of a type; of one that is none, the one that the timecode service takes.
const TimecodeType& CountingOf(uint8_t tcType) {
  const TimecodeType* const found = qln::FindTimecodeType(tcType);
  return found != nullptr ? *found : *qln::FindTimecodeType(qln::kTcNonDropFrame);
}

uint32_t FramesOfADay(const TimecodeType& type) {
  constexpr uint32_t kMinutes = 24 * 60;
  return kMinutes * 60 * type.numbers - (kMinutes - kMinutes / 10) * type.skipped;
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

// What a message says of a count.
struct Clock {
  uint8_t hours, minutes, seconds, frames;
  bool dropped;        // cnt_dropped_flag: it follows numbers that are left out
  bool discontinuity;  // discontinuity_flag: midnight, where the clock goes back
};

Clock ClockOf(uint32_t count, uint8_t tcType) {
  const TimecodeType& type = CountingOf(tcType);
  const uint32_t day = FramesOfADay(type);
  std::array<char, 4> bytes{};
  TimeCodeToString(count % day, tcType | KX_TIMECODE_BINARY, bytes.data());
  Clock clock{static_cast<uint8_t>(bytes[0]),
              static_cast<uint8_t>(bytes[1]),
              static_cast<uint8_t>(bytes[2]),
              static_cast<uint8_t>(bytes[3]),
              false,
              count != 0 && count % day == 0};
  clock.dropped =
      type.skipped != 0 && clock.minutes % 10 != 0 && clock.seconds == 0 && clock.frames == type.skipped;
  return clock;
}

uint32_t CountingType(uint8_t tcType) {
  const uint32_t skipped = CountingOf(tcType).skipped;
  return skipped == 0 ? 0 : skipped == 2 ? kTwoLowest : kOtherNumbers;
}

// The elements of a clock timestamp from counting_type to hours_value, which both codecs lay out alike but
// for the width of n_frames.
ClockTime ReadStamp(QLNBitState* state, int frameBits) {
  ClockTime time;
  const uint32_t counting = ReadBits(state, 5);
  time.drop = counting == kTwoLowest || counting == kOtherNumbers;
  const bool full = ReadBit(state) == 1;
  SkipBits(state, 1);  // discontinuity_flag
  time.dropped = ReadBit(state) == 1;
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

TimecodeCounting CountingNamed(const std::string& typeName) {
  const TimecodeType& type = CountingOf(TypeNamed(typeName));
  return {type.numbers, type.skipped != 0};
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
    if (TypeOfRate(perSecond, false) == qln::kTcFrames)
      throw Error(where, fmt::format("no timecode counts {} frames a second", PlainNumber(perSecond)),
                  "say the rate with --rate, or how to count with --timecode-type");
    start.type = TypeOfRate(perSecond, drop);
    if (start.type == qln::kTcFrames)
      throw Error(
          where, fmt::format("there is no drop-frame counting at {} frames a second", PlainNumber(perSecond)),
          "write a colon");
  } else {
    start.type = TypeNamed(typeName);
    if (drop && !qln::SkipsNumbers(start.type))
      throw Error(where, "there is no drop-frame counting in " + typeName, "write a colon");
  }
  const TimecodeType& type = CountingOf(start.type);
  std::array<char, 32> back{};
  // Texts of this shape are always read; a number above its place's carries.
  TimeCodeFromString(text.c_str(), start.type | kReadFlags, &start.count);
  const bool ofADay = text.substr(0, 2) <= "23" && text[3] <= '5' && text[6] <= '5';
  if (!ofADay || start.count >= FramesOfADay(type)) {
    TimeCodeToString(FramesOfADay(type) - 1, start.type | kTextFlags, back.data());
    throw Error(where, "is no time of day", fmt::format("the last one is {}", back.data()));
  }
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
      timing.times[i] = ReadStamp(&state, 8);
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
    WriteBits(&state, 5, CountingType(tcType));
    WriteBit(&state, 1);  // full_timestamp_flag
    WriteBit(&state, clock.discontinuity ? 1 : 0);
    WriteBit(&state, clock.dropped ? 1 : 0);
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
    const ClockTime time = ReadStamp(&state, 9);
    const uint32_t offsetLength = ReadBits(&state, 5);
    SkipBits(&state, offsetLength);
    if (state.bitPos > state.bitLength) break;
    times.push_back(time);
  }
  return times;
}

std::optional<ClockTime> ReadClock(Codec codec, const std::vector<Unit>& units, const SpsFacts& sps) {
  for (const Unit& unit : units) {
    if (!IsSei(codec, UnitType(codec, unit.bytes))) continue;
    for (const SeiMessage& message : ReadSeiMessages(codec, unit.bytes)) {
      std::vector<ClockTime> times;
      if (codec == Codec::kHevc && message.type == sei::kTimeCode) {
        times = ReadTimeCode(message.payload);
      } else if (codec == Codec::kH264 && message.type == sei::kPictureTiming) {
        const std::optional<PictureTiming> timing = ReadPictureTiming(message.payload, sps);
        if (timing) times.assign(std::begin(timing->times), std::end(timing->times));
      }
      const auto whole =
          std::find_if(times.begin(), times.end(), [](const ClockTime& time) { return time.whole; });
      if (whole != times.end()) return *whole;
    }
  }
  return {};
}

Bytes MakeHevcTimecodeUnit(uint32_t count, uint8_t tcType, bool field, uint32_t temporalId) {
  // The bits of the payload: num_clock_ts 2, clock_timestamp_flag, units_field_based_flag, counting_type 5,
  // full_timestamp_flag, discontinuity_flag, cnt_dropped_flag.
  constexpr uint8_t kUnitsFieldBased = 0x10;
  constexpr uint8_t kDiscontinuity = 0x20;
  constexpr uint8_t kDropped = 0x10;
  const Clock clock = ClockOf(count, tcType);
  // The unit comes to stand between a delimiter and the slice.
  LibraryFrame made({{0x46, 0x01, 0x50}, {0x26, 0x01, 0xAF, 0x80}});
  made.frame().timeCodeA = count % FramesOfADay(CountingOf(tcType));
  made.frame().timeCodeB = QLN_NO_TIMECODE;
  qlnutilAddHEVCTimeCode(&made.frame(), tcType);
  for (const Unit& unit : made.units()) {
    if (UnitType(Codec::kHevc, unit.bytes) != 39) continue;
    std::vector<SeiMessage> messages = ReadSeiMessages(Codec::kHevc, unit.bytes);
    Bytes& payload = messages.at(0).payload;
    if (field) payload.at(0) |= kUnitsFieldBased;
    // The library drops elsewhere than the standard says.
    payload.at(1) &= static_cast<uint8_t>(~(kDiscontinuity | kDropped));
    if (clock.discontinuity) payload.at(1) |= kDiscontinuity;
    if (clock.dropped) payload.at(1) |= kDropped;
    const Bytes header{unit.bytes[0], static_cast<uint8_t>(temporalId + 1)};
    return MakeSeiUnit(header, messages);
  }
  throw std::bad_alloc();
}

DropFrameFinder::DropFrameFinder(const StreamDescription& stream) : codec_(stream.codec) {
  const std::optional<Codec> codec = UnitCodecOf(codec_);
  if (!codec) return;
  const ConfigRecord config = ConfigOf(stream);
  framing_ = config.framing;
  tracker_.emplace(*codec);
  for (const Bytes& unit : config.units()) tracker_->TakeSet(unit);
}

void DropFrameFinder::Add(ByteSpan packet) {
  constexpr size_t kMostPackets = 120;  // the clocks of a stream that has some come with its first pictures
  constexpr size_t kDropFlagAt = 4;     // drop_frame_flag is the first bit behind group_start_code
  if (dropFrame_ || packets_++ >= kMostPackets) return;
  if (codec_ == VideoCodec::kMpeg2) {
    for (const Mpeg2Unit& unit : Mpeg2Head(packet)) {
      if (unit.code == kMpeg2GroupStart && unit.size > kDropFlagAt)
        dropFrame_ = (packet[unit.at + kDropFlagAt] & 0x80) != 0;
    }
    return;
  }
  if (!tracker_) return;
  const std::vector<Unit> units = TakeApart(packet, framing_).units;
  const std::vector<CodedPicture> pictures = tracker_->Take(units);
  const CodedPicture* const first = FirstPlaced(pictures);
  if (first == nullptr) return;
  const std::optional<ClockTime> clock = ReadClock(*UnitCodecOf(codec_), units, *first->head->sps);
  if (clock) dropFrame_ = clock->drop;
}

}  // namespace qlnmedia
