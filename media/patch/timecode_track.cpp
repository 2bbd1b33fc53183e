// Says in the units of a timecode track what the messages of the stream say.

#include "patch/timecode_track.h"

#include <fmt/format.h>

#include "base/error.h"
#include "container/mp4/timecode_track.h"
#include "patch/carried_input.h"
#include "timecode/timecode_types.h"
#include "timing/frame_rate.h"
#include "timing/timecode.h"
#include "timing/timecode_rate.h"
#include "units/coded_stream.h"

namespace qlnmedia {

namespace {

// The rate that a measured one stands for, where that is one of those that timecodes count by.
Rational Exact(Rational rate) {
  const std::optional<captions::Rate> known = captions::RateOf(rate.numerator, rate.denominator);
  if (!known) return rate;
  return {captions::InfoOf(*known).numerator, captions::InfoOf(*known).denominator};
}

mp4::TimecodeFacts FactsOf(const StreamDescription& stream, const PatchOptions& options) {
  const Codec codec = *UnitCodecOf(stream.codec);
  const KnownRates known = RatesOf(stream, codec, ConfigOf(stream).units());
  Rational rate = known.container;
  if (options.timecodeType.empty() || !options.rate.empty()) rate = TimecodeRate(known, options.rate);
  const TimecodeStart start = ParseTimecode(options.timecode, options.timecodeType, rate);
  const qln::TimecodeType& counting = *qln::FindTimecodeType(start.type);
  rate = Exact(rate.numerator > 0 ? rate : Rational{static_cast<int32_t>(counting.numbers), 1});
  mp4::TimecodeFacts facts;
  facts.firstFrame = start.count;
  facts.timescale = static_cast<uint32_t>(rate.numerator);
  facts.frameDuration = static_cast<uint32_t>(rate.denominator);
  facts.numbers = static_cast<uint8_t>(counting.numbers);
  facts.dropFrame = counting.skipped != 0;
  return facts;
}

const char* NewsText(mp4::TimecodeTrackNews news) {
  switch (news) {
    case mp4::TimecodeTrackNews::kAdded:
      return "timecode track put in";
    case mp4::TimecodeTrackNews::kCorrected:
      return "timecode track corrected";
    case mp4::TimecodeTrackNews::kSame:
      break;
  }
  return "timecode track as it was";
}

}  // namespace

TimecodedInput PutTimecodeTrack(const mp4::Source& file, const MediaFile& in, const PatchOptions& options) {
  const mp4::Carrier plain(file);
  const CarriedInput input(in.streams(), options.in, plain);
  for (const MediaStream& stream : in.streams()) {
    if (!stream.movingPictures || !UnitCodecOf(stream.coded.codec)) continue;
    const mp4::TimecodeFacts facts = FactsOf(input.Describe(stream.index), options);
    mp4::FileWithTimecode made = mp4::PutTimecodeTrack(file, input.TrackId(stream.index), facts);
    return {std::move(made.source), fmt::format("stream {}: {}", stream.index, NewsText(made.news)),
            made.news == mp4::TimecodeTrackNews::kAdded};
  }
  throw Error(options.in, "has no H.264 or HEVC stream");
}

}  // namespace qlnmedia
