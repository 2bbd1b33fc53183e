// Reads caption messages out of packets and puts them in presentation order.

#include "captions/reader.h"

#include <algorithm>
#include <utility>

#include "captions/old_user_data.h"
#include "captions/units.h"
#include "units/access_unit.h"
#include "units/mpeg2.h"

namespace qlnmedia {

namespace {

void Append(std::optional<Triplets>& all, const std::optional<Triplets>& more) {
  if (!more) return;
  if (!all) all.emplace();
  all->insert(all->end(), more->begin(), more->end());
}

// Whether the top field of an MPEG-2 picture is shown first (ITU-T H.262 clause 6.3.10).
bool IsTopFirst(ByteSpan data, const std::vector<Mpeg2Unit>& units) {
  constexpr int kExtensionStart = 0xB5;
  constexpr uint8_t kPictureCoding = 8;  // extension_start_code_identifier
  constexpr uint8_t kFrame = 3;
  for (const Mpeg2Unit& unit : units) {
    if (unit.code != kExtensionStart || unit.size < 8 || data[unit.at + 4] >> 4 != kPictureCoding) continue;
    const uint8_t picture_structure = data[unit.at + 6] & 3;
    if (picture_structure != kFrame) return picture_structure == 1;
    return (data[unit.at + 7] & 0x80) != 0;  // top_field_first
  }
  return true;
}

std::optional<Triplets> Mpeg2Captions(ByteSpan data) {
  std::optional<Triplets> all, old;
  const std::vector<Mpeg2Unit> units = Mpeg2Units(data);
  for (const Mpeg2Unit& unit : units) {
    if (unit.code != kMpeg2UserData) continue;
    const ByteSpan body = data.subspan(unit.at + 4, unit.size - 4);
    Append(all, captions::ReadUserData(body));
    Append(old, captions::ReadScte20UserData(body, IsTopFirst(data, units)));
    Append(old, captions::ReadDvdUserData(body));
  }
  // Streams that carry line 21 in an older form beside the newer one say the same twice.
  return all ? all : old;
}

}  // namespace

std::optional<Triplets> CaptionsOf(VideoCodec codec, PacketUnits& packet, Framing framing) {
  if (codec == VideoCodec::kMpeg2) return Mpeg2Captions(packet.data());
  std::optional<Triplets> all;
  const std::optional<Codec> ofUnits = UnitCodecOf(codec);
  if (!ofUnits) return all;
  for (const Unit& unit : packet.In(*ofUnits, framing).units) {
    if (IsSei(*ofUnits, UnitType(*ofUnits, unit.bytes))) Append(all, ReadCaptionUnit(*ofUnits, unit.bytes));
  }
  return all;
}

std::optional<Triplets> CaptionsOf(VideoCodec codec, ByteSpan packet, Framing framing) {
  PacketUnits apart(packet);
  return CaptionsOf(codec, apart, framing);
}

uint8_t CaptionCount(const std::optional<Triplets>& triplets) {
  if (!triplets) return CaptionSurvey::kNone;
  return static_cast<uint8_t>(std::min<size_t>(triplets->size(), CaptionSurvey::kNone - 1));
}

uint8_t SumOfCounts(uint8_t a, uint8_t b) {
  if (a == CaptionSurvey::kNone) return b;
  if (b == CaptionSurvey::kNone) return a;
  return static_cast<uint8_t>(std::min(a + b, CaptionSurvey::kNone - 1));
}

size_t CaptionSurvey::captioned() const {
  return counts.size() - static_cast<size_t>(std::count(counts.begin(), counts.end(), kNone));
}

CaptionCounter::CaptionCounter(StreamDescription stream, size_t keepBytes)
    : stream_(std::move(stream)),
      framing_(ConfigOf(stream_).framing),
      order_(stream_),
      dropFrame_(stream_),
      shown_(stream_),
      keepBytes_(keepBytes) {}

void CaptionCounter::Add(const PacketView& packet) {
  PacketUnits apart(packet.data);
  Add(packet, apart);
}

void CaptionCounter::Add(const PacketView& packet, PacketUnits& apart) {
  order_.Add(packet, apart);
  dropFrame_.Add(packet.data);
  fields_.push_back(shown_.Take(packet.data));
  const std::optional<Triplets> triplets = CaptionsOf(stream_.codec, apart, framing_);
  coded_.push_back(CaptionCount(triplets));
  if (keepBytes_ != 0) Keep(triplets.value_or(Triplets()));
}

void CaptionCounter::Keep(Triplets triplets) {
  keptBytes_ += sizeof triplets + triplets.capacity() * sizeof triplets[0];
  kept_.push_back(std::move(triplets));
  if (keptBytes_ <= keepBytes_) return;
  keepBytes_ = 0;
  kept_ = {};
}

CaptionSurvey CaptionCounter::Finish() {
  CaptionSurvey survey;
  survey.order = order_.Finish();
  survey.pace = PaceOf(stream_, survey.order);
  survey.dropFrame = dropFrame_.dropFrame();
  survey.counts.assign(survey.order.pictures, CaptionSurvey::kNone);
  survey.kept = std::move(kept_);
  if (shown_.any()) {
    survey.fields.assign(survey.order.pictures, 0);
    for (size_t i = 0; i < fields_.size(); ++i) {
      if (survey.order.places[i] != kNoPlace) survey.fields[survey.order.places[i]] = fields_[i];
    }
    survey.fieldRate = RateOfFields(survey.fields, survey.order, survey.pace.picturesPerSecond);
    if (!survey.fieldRate) survey.fields.clear();
  }
  uint32_t place = kNoPlace;
  for (size_t i = 0; i < coded_.size(); ++i) {
    // Captions of a second field belong to its frame.
    if (survey.order.places[i] != kNoPlace) place = survey.order.places[i];
    if (place != kNoPlace) survey.counts[place] = SumOfCounts(survey.counts[place], coded_[i]);
  }
  return survey;
}

CaptionSorter::CaptionSorter(const CaptionSurvey& survey, const StreamDescription& stream,
                             std::function<void(const CaptionedPicture&)> take)
    : survey_(survey),
      codec_(stream.codec),
      framing_(ConfigOf(stream).framing),
      take_(std::move(take)),
      clock_(survey.order, survey.pace) {}

void CaptionSorter::Send(uint32_t unfinished) {
  for (auto front = waiting_.begin();
       front != waiting_.end() && front->first == next_ && front->first != unfinished;
       front = waiting_.erase(front), ++next_, clock_.Next())
    take_({clock_.seconds(), clock_.number(), std::move(front->second)});
}

void CaptionSorter::Add(const PacketView& packet) {
  PacketUnits apart(packet.data);
  Add(CaptionsOf(codec_, apart, framing_).value_or(Triplets()));
}

void CaptionSorter::Add(const Triplets& more) {
  const uint32_t place = survey_.order.places[packets_++];
  if (place != kNoPlace) place_ = place;
  if (place_ == kNoPlace) return;
  Triplets& triplets = waiting_[place_];
  triplets.insert(triplets.end(), more.begin(), more.end());
  // Pictures are handed over when the one after them in coding order begins: they are whole then.
  Send(place_);
}

}  // namespace qlnmedia
