// Finds the first picture's clock among the first packets.

#include "check/timecode.h"

#include <fmt/format.h>

#include <algorithm>

#include "pictures/presentation_order.h"
#include "timing/frame_rate.h"

namespace qlnmedia {

namespace {

// No picture is held back by more packets than these.
constexpr size_t kLooked = 64;

// The timecode of the container's own track, or a tag of that name; empty for what is no timecode.
std::string TimecodeOf(const MediaStream& stream) {
  for (const Tag& tag : stream.tags) {
    std::string name = tag.name;
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    bool dropFrame = false;
    if (name == "timecode" && captions::ParseTimecode(tag.text, &dropFrame)) return tag.text;
  }
  return {};
}

}  // namespace

TimecodeChecker::TimecodeChecker(const MediaStream& stream, Codec codec, const std::vector<Bytes>& sets,
                                 FindingList& findings)
    : stream_(stream), findings_(findings), codec_(codec), tracker_(codec), said_(TimecodeOf(stream)) {
  for (const Bytes& unit : sets) tracker_.TakeSet(unit);
}

void TimecodeChecker::Take(const std::vector<Unit>& units, const PacketView& packet) {
  // What an edit leaves out has a time below 0.
  if (said_.empty() || packets_++ >= kLooked) return;
  const std::vector<CodedPicture> pictures = tracker_.Take(units);
  const CodedPicture* const picture = FirstPlaced(pictures);
  if (picture == nullptr || packet.pts == kNoTime || packet.pts < 0) return;
  if (firstTime_ && packet.pts >= *firstTime_) return;
  firstTime_ = packet.pts;
  first_ = ReadClock(codec_, units, *picture->head->sps);
}

void TimecodeChecker::Finish() {
  if (!first_) return;
  std::string said = said_;
  std::replace_if(
      said.begin() + 8, said.begin() + 9, [](char c) { return c != ':'; }, ';');
  const std::string is = first_->Text();
  if (said == is) return;
  findings_.Add(stream_.index, FindingKind::kTimecode,
                fmt::format("the container begins with timecode {}, the stream with {}", said, is), -1);
}

}  // namespace qlnmedia
