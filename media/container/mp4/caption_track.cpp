// Makes the boxes of a caption track and puts it beside the others.

#include "container/mp4/caption_track.h"

#include <algorithm>
#include <numeric>
#include <string>
#include <utility>

#include "container/mp4/companion_boxes.h"
#include "container/mp4/track_addition.h"

namespace qlnmedia::mp4 {

namespace {

constexpr uint32_t kInMovie = 2;
constexpr uint32_t kEnabledInMovie = 3;

// What a track's header says of its choice among others.
struct Choice {
  uint16_t group = 0;  // alternate_group
  bool enabled = false;
};

Choice ChoiceOf(Reader& reader, const Track& track) {
  const auto head = FindBox(reader, track.box, FourCc("tkhd"));
  if (!head || head->bodySize() < 4) return {};
  const uint64_t groupAt = reader.U8(head->body) == 1 ? 46 : 34;
  if (head->bodySize() < groupAt + 2) return {};
  return {reader.U16(head->body + groupAt), (reader.U8(head->body + 3) & 1) != 0};
}

bool IsCaptions(const Track& track) {
  if (track.handler == FourCc("clcp")) return true;
  return std::any_of(track.descriptions.begin(), track.descriptions.end(), [](const Description& one) {
    return one.format == FourCc("c608") || one.format == FourCc("c708");
  });
}

bool IsSubtitles(const Track& track) {
  return IsCaptions(track) || track.handler == FourCc("sbtl") || track.handler == FourCc("subt");
}

// With the captions and subtitles that are there players show one at a time; else a group of its own. One of
// a group is enabled.
void Choose(TrackAddition& addition, const Track* replaced, CompanionTrack& track) {
  uint16_t highest = 0;
  for (const Track& other : addition.movie().tracks) {
    const Choice choice = ChoiceOf(addition.reader(), other);
    highest = std::max(highest, choice.group);
    if (!IsSubtitles(other) || choice.group == 0 || &other == replaced) continue;
    if (track.alternateGroup == 0) track.alternateGroup = choice.group;
    if (choice.group == track.alternateGroup && choice.enabled) track.flags = kInMovie;
  }
  if (track.alternateGroup == 0) track.alternateGroup = static_cast<uint16_t>(std::min(highest + 1, 0x7FFF));
}

Bytes Times(const CaptionSamples& samples) {
  BoxBody runs;
  uint32_t count = 0;
  const size_t all = samples.durations.size();
  for (size_t i = 0; i < all;) {
    size_t end = i;
    while (end < all && samples.durations[end] == samples.durations[i]) ++end;
    runs.U(end - i, 4).U(samples.durations[i], 4);
    ++count;
    i = end;
  }
  return BoxBody().Zeros(4).U(count, 4).Add(runs.Take()).Box("stts");
}

Bytes Sizes(const CaptionSamples& samples) {
  const std::vector<uint32_t>& sizes = samples.sizes;
  const bool uniform =
      std::all_of(sizes.begin(), sizes.end(), [&sizes](uint32_t size) { return size == sizes.front(); });
  BoxBody body;
  body.Zeros(4).U(uniform ? sizes.front() : 0, 4).U(sizes.size(), 4);
  for (const uint32_t size : sizes) {
    if (!uniform) body.U(size, 4);
  }
  return body.Box("stsz");
}

Bytes Chunks(const CaptionSamples& samples) {
  const size_t whole = samples.sizes.size() / samples.perChunk;
  const size_t rest = samples.sizes.size() % samples.perChunk;
  BoxBody runs;
  if (whole != 0) runs.U(1, 4).U(samples.perChunk, 4).U(1, 4);
  if (rest != 0) runs.U(whole + 1, 4).U(rest, 4).U(1, 4);
  return BoxBody().Zeros(4).U((whole != 0 ? 1 : 0) + (rest != 0 ? 1 : 0), 4).Add(runs.Take()).Box("stsc");
}

Bytes Places(const CaptionSamples& samples, uint64_t place, bool wide) {
  BoxBody places;
  uint32_t count = 0;
  for (size_t i = 0; i < samples.sizes.size(); ++i) {
    if (i % samples.perChunk == 0) {
      places.U(place, wide ? 8 : 4);
      ++count;
    }
    place += samples.sizes[i];
  }
  return BoxBody().Zeros(4).U(count, 4).Add(places.Take()).Box(wide ? "co64" : "stco");
}

Bytes SampleTable(const CaptionSamples& samples, uint64_t place, bool wide) {
  const Bytes entry = BoxBody().Zeros(6).U(1, 2).Box("c608");
  return BoxBody()
      .Add(BoxBody().Zeros(4).U(1, 4).Add(entry).Box("stsd"))
      .Add(Times(samples))
      .Add(Chunks(samples))
      .Add(Sizes(samples))
      .Add(Places(samples, place, wide))
      .Box("stbl");
}

// The one caption track that is to go; null where there is none. Throws where that is not asked for, or not
// clear.
const Track* TrackToReplace(const TrackAddition& addition, const std::string& file, bool replace) {
  const Track* found = nullptr;
  for (const Track& track : addition.movie().tracks) {
    if (!IsCaptions(track)) continue;
    if (!replace)
      throw Error(file, "has a caption track, track " + std::to_string(track.id),
                  "--replace-captions puts the new one in its place");
    if (found != nullptr)
      addition.Refuse("has several caption tracks, " + std::to_string(found->id) + " and " +
                      std::to_string(track.id) + ", and which one is to be replaced is not known");
    found = &track;
  }
  return found;
}

}  // namespace

FileWithCaptions PutCaptionTrack(const Source& file, uint32_t videoTrack, const CaptionSamples& samples,
                                 bool replace) {
  TrackAddition addition(file, videoTrack, "caption track");
  const Track* const replaced = TrackToReplace(addition, file.name(), replace);
  CompanionWriter writer(addition.reader(), addition.movie(), addition.video(), addition.video().timescale,
                         addition.layout().quickTime);
  CompanionTrack track;
  track.id = replaced != nullptr ? replaced->id : addition.FreshId();
  track.handler = "clcp";
  track.handlerName = "ClosedCaptionHandler";
  track.flags = kEnabledInMovie;
  track.language = samples.language;
  track.duration = std::accumulate(samples.durations.begin(), samples.durations.end(), uint64_t{0});
  track.generic = GenericMediaBox();
  Choose(addition, replaced, track);
  const auto make = [&](uint64_t place, bool wide) {
    track.sampleTable = SampleTable(samples, place, wide);
    return writer.Write(track, samples.first, true);
  };
  addition.Add("clcp", track.id, make, samples.bytes, replaced);
  return {addition.Joined(), track.id, replaced != nullptr};
}

std::optional<uint16_t> LanguageCode(std::string_view language) {
  if (language.size() != 3) return {};
  int code = 0;
  for (const char letter : language) {
    if (letter < 'a' || letter > 'z') return {};
    code = code << 5 | (letter - 'a' + 1);
  }
  return static_cast<uint16_t>(code);
}

}  // namespace qlnmedia::mp4
