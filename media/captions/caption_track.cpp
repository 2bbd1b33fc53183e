// Reads caption files into events, spreads events over pictures, and gathers pictures into files.

#include "captions/caption_track.h"

#include <algorithm>

#include "captions/mcc_file.h"
#include "captions/text_lines.h"
#include "captions/what_it_is.h"

namespace qlnmedia::captions {
namespace {

// Frames a second of two rates as they are held against each other: by what timecode counts where one is a
// multiple of the other, so that a frame stays a frame; else, and where numbers are left out to keep to the
// clock, by time.
struct Speed {
  int64_t numerator;
  int64_t denominator;
};

struct SpeedPair {
  Speed from;
  Speed to;
};

SpeedPair SpeedsOf(Rate from, Rate to, bool dropFrame) {
  const RateInfo& a = InfoOf(from);
  const RateInfo& b = InfoOf(to);
  const bool multiple = a.nominal % b.nominal == 0 || b.nominal % a.nominal == 0;
  if (multiple && !dropFrame) return {{a.nominal, 1}, {b.nominal, 1}};
  return {{a.numerator, a.denominator}, {b.numerator, b.denominator}};
}

// Labels that leave numbers out count by the slower of the two rates that have as many numbers.
Rate RateOfLabels(Rate rate, bool dropFrame) {
  if (!dropFrame) return rate;
  return rate == Rate::k30 ? Rate::k29_97 : rate == Rate::k60 ? Rate::k59_94 : rate;
}

bool IsLine21(const Triplet& t) { return t.type == CcType::kField1 || t.type == CcType::kField2; }

// Nothing to send: both bytes are zero without their parity.
bool IsNull(const Triplet& t) { return ((t.first | t.second) & 0x7F) == 0; }

std::optional<CaptionTrack> FromScc(std::string_view text, std::string* reason) {
  const std::optional<SccFile> file = ReadScc(text, reason);
  if (!file) return std::nullopt;
  CaptionTrack track;
  track.line21Only = true;
  track.dropFrame = file->dropFrame;
  int64_t at = FirstFrame(*file);
  for (const Pair pair : PairsByFrame(*file)) {
    const Triplet triplet{true, CcType::kField1, static_cast<uint8_t>(pair >> 8), static_cast<uint8_t>(pair)};
    if (!IsNull(triplet)) track.events.push_back({at, {triplet}});
    ++at;
  }
  return track;
}

std::optional<CaptionTrack> FromMcc(std::string_view text, std::string* reason) {
  std::vector<int> places;
  const std::optional<MccFile> file = ReadMcc(text, reason, &places);
  if (!file) return std::nullopt;
  CaptionTrack track;
  track.nominal = file->nominal;
  track.dropFrame = file->dropFrame;
  for (int i = kRateCount - 1; i >= 0; --i) {
    if (InfoOf(static_cast<Rate>(i)).nominal == file->nominal) track.rate = static_cast<Rate>(i);
  }
  bool first = true;
  int64_t lastNumber = -1;
  for (size_t i = 0; i < file->lines.size(); ++i) {
    const MccLine& line = file->lines[i];
    if (line.anc.size() >= 2 && (line.anc[0] != 0x61 || line.anc[1] != 0x01)) continue;  // other packets
    std::string what;
    const std::optional<Bytes> cdp = UnwrapAnc(line.anc, &what);
    const std::optional<CaptionPacket> packet = cdp ? ReadCdp(*cdp, &what) : std::nullopt;
    if (!packet) {
      *reason = "line " + std::to_string(places[i]) + ": " + what;
      return std::nullopt;
    }
    const int nominal = InfoOf(packet->rate).nominal;
    if (first && (nominal == file->nominal || nominal == 2 * file->nominal)) {
      track.rate = RateOfLabels(packet->rate, file->dropFrame);
      track.framesPerNumber = nominal / file->nominal;
    }
    first = false;
    const int64_t number = PictureOf(line.at, file->nominal, file->dropFrame).value_or(0);
    const int64_t at = number * track.framesPerNumber;
    if (number != lastNumber) {
      track.events.push_back({at, packet->triplets});
    } else if (track.events.back().at - at + 1 < track.framesPerNumber) {
      track.events.push_back({track.events.back().at + 1, packet->triplets});
    } else {
      std::vector<Triplet>& triplets = track.events.back().triplets;
      triplets.insert(triplets.end(), packet->triplets.begin(), packet->triplets.end());
    }
    lastNumber = number;
  }
  return track;
}

}  // namespace

int64_t CaptionTrack::FirstHour() const {
  if (events.empty() || fromZero) return 0;
  const Timecode first = TimecodeOf(events.front().at / framesPerNumber, nominal, dropFrame);
  return PictureOf({first.hours, 0, 0, 0}, nominal, dropFrame).value_or(0) * framesPerNumber;
}

std::optional<int64_t> CaptionTrack::FrameOf(std::string_view timecode) const {
  bool marked = false;
  const std::optional<Timecode> parsed = ParseTimecode(timecode, &marked);
  if (!parsed) return std::nullopt;
  const std::optional<int64_t> number = PictureOf(*parsed, nominal, dropFrame);
  if (!number) return std::nullopt;
  return *number * framesPerNumber;
}

std::optional<CaptionTrack> ReadCaptionTrack(std::string_view text, std::string* reason) {
  TextLines lines(text);
  std::string_view line;
  while (lines.Next(&line) && TextLines::SaysNothing(line)) {
  }
  std::optional<CaptionTrack> track;
  if (line.substr(0, 13) == "Scenarist_SCC") {
    track = FromScc(text, reason);
  } else if (line.substr(0, 11) == "File Format") {
    track = FromMcc(text, reason);
  } else {
    *reason = lines.Place("neither a Scenarist file (.scc) nor a MacCaption file (.mcc)") + WhatItSeems(text);
    return std::nullopt;
  }
  if (track && track->events.empty()) {
    *reason = "holds no captions";
    return std::nullopt;
  }
  return track;
}

CaptionPictures::CaptionPictures(const CaptionTrack& track, Rate rate, int64_t offset)
    : track_(track), rate_(rate), offset_(offset), sequencer_(rate) {
  const RateInfo& info = InfoOf(rate);
  const auto isPicture = [&info](const CaptionEvent& event) {
    return event.triplets.size() == static_cast<size_t>(info.triplets);
  };
  asTheyAre_ = InfoOf(track.rate).nominal == info.nominal &&
               std::all_of(track.events.begin(), track.events.end(), isPicture);
  while (next_ < track.events.size() && track.events[next_].at < offset) ++next_;
  early_ = next_;
}

bool CaptionPictures::converted() const {
  const RateInfo& from = InfoOf(track_.rate);
  const RateInfo& to = InfoOf(rate_);
  const int times = track_.line21Only && to.nominal == 2 * from.nominal ? 2 : 1;
  const bool sameClock =
      int64_t{times} * from.numerator * to.denominator == int64_t{to.numerator} * from.denominator;
  return times * from.nominal != to.nominal || (track_.dropFrame && !sameClock);
}

bool CaptionPictures::IsDue(const CaptionEvent& event, int64_t number) const {
  const SpeedPair speed = SpeedsOf(track_.rate, rate_, track_.dropFrame);
  // The picture that is nearest to it; the later of two.
  const int64_t at = (event.at - offset_) * speed.from.denominator * speed.to.numerator;
  const int64_t perPicture = speed.to.denominator * speed.from.numerator;
  return at <= number * perPicture + (perPicture - 1) / 2;
}

void CaptionPictures::Queue(const CaptionEvent& event) {
  for (const Triplet& t : event.triplets) {
    if (!t.valid) continue;
    if (!IsLine21(t)) {
      sequencer_.AddService({t});
    } else if (!IsNull(t)) {
      sequencer_.AddPairs(t.type == CcType::kField1 ? 1 : 2, {static_cast<Pair>(t.first << 8 | t.second)});
    }
  }
}

std::vector<Triplet> CaptionPictures::Next(int64_t number) {
  const size_t first = next_;
  while (next_ < track_.events.size() && IsDue(track_.events[next_], number)) ++next_;
  // Where pictures are missing, several events meet on one, and what they hold is spread anew.
  const bool whole = asTheyAre_ && next_ - first == 1 && sequencer_.empty();
  if (!whole) {
    for (size_t i = first; i < next_; ++i) Queue(track_.events[i]);
  }
  std::vector<Triplet> triplets = sequencer_.NextPicture();
  return whole ? track_.events[first].triplets : triplets;
}

MccTrackWriter::MccTrackWriter(Rate rate, bool dropFrame, int64_t first)
    : rate_(rate), nominal_(InfoOf(rate).nominal), dropFrame_(dropFrame), first_(first) {}

std::string MccTrackWriter::Heading() const {
  MccFile file;
  file.nominal = nominal_;
  file.dropFrame = dropFrame_;
  file.version = nominal_ > 30 ? 2 : 1;
  file.keys = {{"Creation Program", "qlnmedia"}};
  return WriteMcc(file);
}

std::string MccTrackWriter::Lines(const std::vector<Triplet>& triplets, int64_t number) {
  std::string text;
  for (size_t at = 0; at < triplets.size(); at += kMostTriplets) {
    CaptionPacket packet;
    packet.rate = rate_;
    packet.counter = counter_++;
    const auto from = triplets.begin() + static_cast<std::ptrdiff_t>(at);
    packet.triplets.assign(from,
                           from + static_cast<std::ptrdiff_t>(std::min(kMostTriplets, triplets.size() - at)));
    MccLine line;
    line.at = TimecodeOf(first_ + number, nominal_, dropFrame_);
    line.anc = WrapInAnc(WriteCdp(packet));
    line.anc.push_back(AncChecksum(line.anc));
    text += WriteMccLine(line);
  }
  return text;
}

void SccTrackWriter::Add(const std::vector<Triplet>& triplets, int64_t number) {
  const SpeedPair speed = SpeedsOf(rate_, Rate::k29_97, file_.dropFrame);
  // The nearest one; the earlier of two.
  const int64_t labels = number * speed.from.denominator * speed.to.numerator;
  const int64_t perLabel = speed.to.denominator * speed.from.numerator;
  const int64_t frame = first_ + (2 * labels + perLabel - 1) / (2 * perLabel);
  for (const Triplet& t : triplets) {
    if (!t.valid || t.type != CcType::kField1 || IsNull(t)) continue;
    if (file_.lines.empty() || frame > free_) {
      free_ = std::max(free_, frame);
      file_.lines.push_back({TimecodeOf(free_, 30, file_.dropFrame), {}});
    }
    file_.lines.back().pairs.push_back(static_cast<Pair>(t.first << 8 | t.second));
    ++free_;
  }
}

}  // namespace qlnmedia::captions
