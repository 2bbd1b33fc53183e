// Caption files as pictures and back, for hosts that have them in memory.

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "base/error.h"
#include "captions/caption_track.h"
#include "captions/decoder.h"
#include "qlnmedia/caption_file.h"

namespace qlnmedia {

namespace {

// The rate of a list whose pictures can be written and decoded; throws Error where there is none.
captions::Rate RateOfList(const CaptionPictureList& list) {
  const std::optional<captions::Rate> rate = captions::RateOf(list.rate.numerator, list.rate.denominator);
  if (!rate)
    throw Error({}, fmt::format("captions have no rate of {}/{}", list.rate.numerator, list.rate.denominator),
                "take 24000/1001, 24, 25, 30000/1001, 30, 50, 60000/1001 or 60");
  const int64_t day = int64_t{captions::InfoOf(*rate).nominal} * 24 * 60 * 60;
  int64_t before = -1;
  for (const CaptionPicture& picture : list.pictures) {
    if (picture.number <= before || picture.number >= day)
      throw Error(
          {}, fmt::format("picture {} does not stand behind the one before it in one day", picture.number));
    if (picture.triplets.size() > captions::kMostTriplets)
      throw Error({}, fmt::format("picture {} has {} triplets", picture.number, picture.triplets.size()),
                  fmt::format("{} are the most", captions::kMostTriplets));
    before = picture.number;
  }
  return *rate;
}

}  // namespace

CaptionPictureList ParseCaptionFile(const std::string& text, const std::string& where) {
  std::string reason;
  std::optional<captions::CaptionTrack> track = captions::ReadCaptionTrack(text, &reason);
  if (!track) throw Error(where, reason);
  const captions::RateInfo& info = captions::InfoOf(track->rate);
  CaptionPictureList list{{info.numerator, info.denominator}, track->dropFrame, {}};
  list.pictures.reserve(track->events.size());
  for (captions::CaptionEvent& event : track->events)
    list.pictures.push_back({event.at, std::move(event.triplets)});
  return list;
}

std::string CaptionFileText(const CaptionPictureList& list, CaptionFileKind kind) {
  const captions::Rate rate = RateOfList(list);
  const bool scc = kind == CaptionFileKind::kScc;
  if (!scc && kind != CaptionFileKind::kMcc) throw Error({}, "pictures become .mcc and .scc files alone");
  if (list.dropFrame && !scc && !captions::InfoOf(rate).dropFrameAllowed)
    throw Error({}, fmt::format("there are no drop-frame labels at {} pictures a second",
                                captions::InfoOf(rate).name));
  if (scc) {
    captions::SccTrackWriter writer(rate, list.dropFrame);
    for (const CaptionPicture& picture : list.pictures) writer.Add(picture.triplets, picture.number);
    return writer.Text();
  }
  captions::MccTrackWriter writer(rate, list.dropFrame);
  std::string text = writer.Heading();
  for (const CaptionPicture& picture : list.pictures) text += writer.Lines(picture.triplets, picture.number);
  return text;
}

std::vector<CaptionService> DecodeCaptionPictures(const CaptionPictureList& list) {
  const captions::RateInfo& info = captions::InfoOf(RateOfList(list));
  const auto seconds = [&info](int64_t number) {
    return static_cast<double>(number) * info.denominator / info.numerator;
  };
  CaptionDecoder decoder;
  for (const CaptionPicture& picture : list.pictures) decoder.Add(picture.triplets, seconds(picture.number));
  if (!list.pictures.empty()) decoder.Finish(seconds(list.pictures.back().number + 1));
  return decoder.services();
}

}  // namespace qlnmedia
