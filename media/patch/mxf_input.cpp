// Brings streams and tracks together, by the tracks of the material package that libavformat names.

#include "patch/mxf_input.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "base/error.h"
#include "base/progress.h"
#include "container/coded_stream.h"
#include "container/mxf/order_told.h"

namespace qlnmedia {

namespace {

constexpr uint8_t kPictureItem = 0x15;
constexpr uint8_t kClip = 0x06, kCustom = 0x07;  // types of its elements of SMPTE ST 381-1

// How labels of MPEG, AVC and HEVC wrapping end: the last byte is 1 for frames.
constexpr uint8_t kFrames = 1, kClips = 2;

uint8_t WrappingOf(const mxf::PictureTrack& track) {
  const uint8_t item = static_cast<uint8_t>(track.number >> 24);
  const uint8_t type = static_cast<uint8_t>(track.number >> 8);
  if (item == kPictureItem && (type == kClip || type == kCustom)) return type == kClip ? kClips : type;
  if (!track.container || !mxf::BeginsWith(*track.container, {0x06, 0x0E, 0x2B, 0x34, 0x04, 0x01, 0x01, 0,
                                                              0x0D, 0x01, 0x03, 0x01, 0x02}))
    return kFrames;
  const uint8_t mapping = (*track.container)[13];
  const bool named = mapping == 0x04 || mapping == 0x0F || mapping == 0x10;
  return named && (*track.container)[15] > kFrames ? (*track.container)[15] : kFrames;
}

}  // namespace

MxfInput::MxfInput(const MediaFile& in, const mxf::Carrier& carrier)
    : in_(in), carrier_(carrier), ordered_(mxf::TellsOrder(carrier.source())) {
  const std::vector<mxf::PictureTrack>& tracks = carrier.tracks();
  std::vector<unsigned> shown;
  for (const MediaStream& stream : in.streams()) {
    if (!stream.movingPictures) continue;
    shown.push_back(stream.index);
    for (size_t i = 0; i < tracks.size(); ++i) {
      if (tracks[i].materialTrack != 0 && static_cast<uint32_t>(stream.id) == tracks[i].materialTrack)
        trackOf_.emplace(stream.index, i);
    }
  }
  if (trackOf_.empty() && shown.size() == 1 && tracks.size() == 1) trackOf_[shown[0]] = 0;
  for (const mxf::PictureTrack& track : tracks) {
    times_.emplace_back(carrier.source(), carrier.layout(), track.bodySid);
    const auto count = carrier.layout().elements.find({track.bodySid, track.number});
    timed_.push_back(count != carrier.layout().elements.end() &&
                     times_.back().Complete(count->second.elements));
  }
}

size_t MxfInput::TrackOf(unsigned stream) const {
  const auto found = trackOf_.find(stream);
  if (found == trackOf_.end())
    throw Error(path(), fmt::format("stream {}: its essence is not in the file", stream));
  return found->second;
}

void MxfInput::RequireFrames(unsigned stream, size_t index) const {
  const mxf::PictureTrack& track = carrier_.tracks()[index];
  const uint8_t wrapping = WrappingOf(track);
  const auto count = carrier_.layout().elements.find({track.bodySid, track.number});
  const bool whole =
      count != carrier_.layout().elements.end() && count->second.elements == 1 && track.duration > 1;
  if (wrapping == kClips || whole)
    throw Error(path(),
                fmt::format("stream {}: its essence is clip-wrapped, all pictures in one element", stream),
                "rewrap it frame by frame");
  if (wrapping != kFrames)
    throw Error(path(), fmt::format("stream {}: its essence is wrapped in a way of its own (custom)", stream),
                "rewrap it frame by frame");
}

StreamDescription MxfInput::Describe(unsigned index) const {
  const size_t place = TrackOf(index);
  RequireFrames(index, place);
  const mxf::PictureTrack& track = carrier_.tracks()[place];
  StreamDescription stream = DescribeStream(in_, index);
  if (track.editRate.numerator > 0) {
    stream.timeBase = {track.editRate.denominator, track.editRate.numerator};
    if (stream.averageRate.numerator <= 0) stream.averageRate = track.editRate;
  }
  stream.raw = !timed_[place];
  stream.ownOrder = !ordered_;
  stream.ownMarks = timed_[place];
  return stream;
}

PacketView MxfInput::ViewOf(const mxf::Picture& picture) const {
  const mxf::UnitTimes& times = times_[picture.track];
  PacketView view;
  view.data = picture.bytes;
  view.dts = static_cast<int64_t>(picture.number);
  view.pts = times.ShownAt(picture.number).value_or(kNoTime);
  view.key = times.IsEntry(picture.number);
  view.position = static_cast<int64_t>(picture.klv.valueAt());
  return view;
}

void MxfInput::Read(const std::set<unsigned>& streams, const ProgressCallback& progress,
                    const Take& take) const {
  Progress meter(progress, "reading", static_cast<int64_t>(carrier_.source().size()));
  mxf::PictureReader pictures(carrier_.source(), carrier_.layout(), carrier_.tracks());
  std::map<size_t, unsigned> streamOf;
  for (const unsigned stream : streams) streamOf[TrackOf(stream)] = stream;
  for (mxf::Picture picture; pictures.Next(picture);) {
    meter.At(static_cast<int64_t>(picture.klv.at));
    const auto stream = streamOf.find(picture.track);
    if (stream != streamOf.end()) take(stream->second, ViewOf(picture));
  }
  meter.Done();
}

}  // namespace qlnmedia
