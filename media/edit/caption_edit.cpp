// Changes the captions of packets.

#include "edit/caption_edit.h"

#include <fmt/format.h>

#include <utility>

#include "captions/old_user_data.h"
#include "captions/units.h"
#include "edit/survey_facts.h"
#include "units/access_unit.h"
#include "units/mpeg2.h"

namespace qlnmedia {

CaptionEdit::CaptionEdit(const StreamChanges& changes, const StreamSurvey* survey, std::string where,
                         EditCounts& counts)
    : provider_(changes.captionProvider),
      replace_(changes.replaceCaptions),
      survey_(survey),
      where_(std::move(where)),
      counts_(counts) {
  if (!provider_ || survey_ == nullptr) return;
  if (survey_->captioned() != 0 && !replace_)
    throw Error(where_, fmt::format("has captions on {} pictures", survey_->captioned()),
                "have them replaced");
}

void CaptionEdit::NextPacket() {
  wanted_ = false;
  if (!provider_ || survey_ == nullptr) return;
  const std::vector<uint32_t>& places = survey_->facts().captions.order.places;
  if (packets_ >= places.size()) throw Error(where_, "has more packets than were surveyed");
  const uint32_t place = places[packets_++];
  if (place == kNoPlace) return;
  wanted_ = true;
  triplets_ = TripletsAt(place);
}

// Each place is asked for once.
std::vector<captions::Triplet> CaptionEdit::TripletsAt(uint32_t place) {
  for (; made_ <= place; ++made_) {
    waiting_[made_] = provider_(made_);
    if (waiting_[made_].size() > captions::kMostTriplets) waiting_[made_].resize(captions::kMostTriplets);
  }
  const auto found = waiting_.find(place);
  if (found == waiting_.end()) return {};
  std::vector<captions::Triplet> triplets = std::move(found->second);
  waiting_.erase(found);
  return triplets;
}

bool CaptionEdit::PutAt(uint32_t place, Codec codec, std::vector<PictureUnits>& parts) {
  std::vector<Unit>& units = parts.front().units;
  const size_t first = FirstPictureUnit(codec, units);
  const std::vector<captions::Triplet> triplets = TripletsAt(place);
  if (first == units.size()) return false;
  InsertSei(codec, units, MakeCaptionUnit(codec, units[first].bytes, triplets));
  ++counts_.captions;
  return true;
}

Bytes CaptionEdit::ChangeMpeg2(ByteSpan data) {
  Bytes out;
  bool missing = wanted_;
  for (const Mpeg2Unit& unit : replace_ ? Mpeg2Units(data) : Mpeg2Head(data)) {
    const ByteSpan bytes = data.subspan(unit.at, unit.size);
    const bool userData = replace_ && unit.code == kMpeg2UserData;
    if (userData && (captions::ReadUserData(bytes.subspan(4)) || captions::IsOldUserData(bytes.subspan(4)))) {
      ++counts_.captionsRemoved;
      continue;
    }
    if (missing && IsMpeg2Slice(unit.code)) {
      const Bytes captionData = captions::MakePictureUserData(triplets_);
      out.insert(out.end(), captionData.begin(), captionData.end());
      missing = false;
      ++counts_.captions;
    }
    out.insert(out.end(), bytes.begin(), bytes.end());
  }
  return out;
}

bool CaptionEdit::ChangeUnits(Codec codec, std::vector<Unit>& units) {
  const int removed = replace_ ? RemoveSei(codec, units, IsCaptionMessage) : 0;
  counts_.captionsRemoved += removed;
  const size_t first = FirstPictureUnit(codec, units);
  if (!wanted_ || first == units.size()) return removed != 0;
  InsertSei(codec, units, MakeCaptionUnit(codec, units[first].bytes, triplets_));
  ++counts_.captions;
  return true;
}

}  // namespace qlnmedia
