// Reads caption files into events, spreads events over pictures, and gathers pictures into files.

#include "captions/caption_track.h"

#include <algorithm>

#include "captions/mcc_file.h"
#include "captions/scc_file.h"
#include "captions/text_lines.h"

namespace qln::captions {
namespace {

// Frames a second of two rates as they are held against each other: by what timecode counts where one is a
// multiple of the other, so that a frame stays a frame; else by time.
struct Speed {
  int64_t numerator;
  int64_t denominator;
};

struct SpeedPair {
  Speed from;
  Speed to;
};

SpeedPair SpeedsOf(Rate from, Rate to) {
  const RateInfo& a = InfoOf(from);
  const RateInfo& b = InfoOf(to);
  if (a.nominal % b.nominal == 0 || b.nominal % a.nominal == 0) return {{a.nominal, 1}, {b.nominal, 1}};
  return {{a.numerator, a.denominator}, {b.numerator, b.denominator}};
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
      track.rate = packet->rate;
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
  if (events.empty()) return 0;
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
  while (lines.Next(&line) && line.empty()) {
  }
  std::optional<CaptionTrack> track;
  if (line.substr(0, 13) == "Scenarist_SCC") {
    track = FromScc(text, reason);
  } else if (line.substr(0, 11) == "File Format") {
    track = FromMcc(text, reason);
  } else {
    *reason = lines.Place("neither a Scenarist file (.scc) nor a MacCaption file (.mcc)");
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
  const int from = InfoOf(track_.rate).nominal;
  const int to = InfoOf(rate_).nominal;
  return from != to && !(track_.line21Only && to == 2 * from);
}

bool CaptionPictures::IsDue(const CaptionEvent& event) const {
  const SpeedPair speed = SpeedsOf(track_.rate, rate_);
  return (event.at - offset_) * speed.from.denominator * speed.to.numerator <=
         picture_ * speed.to.denominator * speed.from.numerator;
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

std::vector<Triplet> CaptionPictures::Next() {
  const std::vector<Triplet>* whole = nullptr;
  for (; next_ < track_.events.size() && IsDue(track_.events[next_]); ++next_) {
    if (asTheyAre_)
      whole = &track_.events[next_].triplets;
    else
      Queue(track_.events[next_]);
  }
  ++picture_;
  std::vector<Triplet> triplets = sequencer_.NextPicture();
  return whole != nullptr ? *whole : triplets;
}

std::string WriteMccTrack(const std::vector<std::vector<Triplet>>& pictures, Rate rate) {
  MccFile file;
  file.nominal = InfoOf(rate).nominal;
  file.version = file.nominal > 30 ? 2 : 1;
  file.keys = {{"Creation Program", "qlnmedia"}};
  uint16_t counter = 0;
  for (size_t i = 0; i < pictures.size(); ++i) {
    if (pictures[i].empty()) continue;
    CaptionPacket packet;
    packet.rate = rate;
    packet.counter = counter++;
    packet.triplets = pictures[i];
    MccLine line;
    line.at = TimecodeOf(static_cast<int64_t>(i), file.nominal, false);
    line.anc = WrapInAnc(WriteCdp(packet));
    line.anc.push_back(AncChecksum(line.anc));
    file.lines.push_back(std::move(line));
  }
  return WriteMcc(file);
}

std::string WriteSccTrack(const std::vector<std::vector<Triplet>>& pictures, Rate rate) {
  const SpeedPair speed = SpeedsOf(rate, Rate::k29_97);
  SccFile file;
  int64_t free = 0;  // the first frame that has no pair
  for (size_t i = 0; i < pictures.size(); ++i) {
    const int64_t frame = static_cast<int64_t>(i) * speed.from.denominator * speed.to.numerator /
                          (speed.to.denominator * speed.from.numerator);
    for (const Triplet& t : pictures[i]) {
      if (!t.valid || t.type != CcType::kField1 || IsNull(t)) continue;
      if (file.lines.empty() || frame > free) {
        free = std::max(free, frame);
        file.lines.push_back({TimecodeOf(free, 30, false), {}});
      }
      file.lines.back().pairs.push_back(static_cast<Pair>(t.first << 8 | t.second));
      ++free;
    }
  }
  return WriteScc(file);
}

}  // namespace qln::captions
