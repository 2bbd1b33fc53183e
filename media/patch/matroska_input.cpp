// Brings streams and tracks together.

#include "patch/matroska_input.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

#include "base/error.h"
#include "base/progress.h"
#include "container/coded_stream.h"

namespace qlnmedia {

namespace {

// Kinds of tracks that libavformat makes streams of, in the order of the tracks.
bool BecomesStream(const mkv::Entry& entry) {
  constexpr uint64_t kVideo = 1, kAudio = 2, kSubtitle = 17, kMetadata = 33;
  const bool known =
      entry.type == kVideo || entry.type == kAudio || entry.type == kSubtitle || entry.type == kMetadata;
  return known && !entry.codec.empty();
}

bool IsVideo(const mkv::Entry& entry) { return entry.type == 1; }

// Of all descriptions of a track, once they are unpacked.
constexpr size_t kMostPrivateBytes = size_t{64} << 20;

}  // namespace

MatroskaInput::MatroskaInput(const MediaFile& in, const mkv::Carrier& carrier)
    : in_(in), carrier_(carrier), streams_(in.streams()) {
  const mkv::Layout& layout = carrier.layout();
  for (const uint64_t number : layout.firstTracks) {
    if (BecomesStream(layout.tracks.at(number).front())) numbers_.push_back(number);
  }
  for (MediaStream& stream : streams_) {
    if (!stream.movingPictures) continue;
    const std::vector<mkv::Entry>& entries = EntriesOf(stream.index);
    stream.encrypted = stream.encrypted || std::any_of(entries.begin(), entries.end(), [](const auto& entry) {
                         return entry.encodings.encryptsFrames();
                       });
  }
}

const std::vector<mkv::Entry>& MatroskaInput::EntriesOf(unsigned stream) const {
  const auto& tracks = carrier_.layout().tracks;
  const auto found = stream < numbers_.size() ? tracks.find(numbers_[stream]) : tracks.end();
  if (found == tracks.end() || !IsVideo(found->second.front()))
    throw Error(in_.path(), fmt::format("stream {}: there is no track of pictures for it", stream));
  return found->second;
}

uint32_t MatroskaInput::TrackId(unsigned stream) const {
  const uint64_t number = EntriesOf(stream).front().number;
  if (number > UINT32_MAX)
    throw Error(in_.path(), fmt::format("stream {}: its track has the number {}", stream, number));
  return static_cast<uint32_t>(number);
}

std::vector<const mkv::Entry*> MatroskaInput::DescriptionsOf(unsigned stream) const {
  std::vector<const mkv::Entry*> described;
  for (const mkv::Entry& entry : EntriesOf(stream)) {
    if (entry.description > described.size()) described.push_back(&entry);
  }
  return described;
}

std::vector<Bytes> MatroskaInput::PrivateOf(unsigned stream) const {
  const std::vector<const mkv::Entry*> entries = DescriptionsOf(stream);
  std::vector<Bytes> all;
  size_t bytes = 0;
  for (const mkv::Entry* const entry : entries) {
    if (entry->codec != entries.front()->codec)
      throw Error(in_.path(), fmt::format("stream {}: its track becomes one of another codec, {} behind {}",
                                          stream, entry->codec, entries.front()->codec));
    all.push_back(mkv::ReadPrivateData(carrier_.source(), *entry));
    bytes += all.back().size();
    if (bytes > kMostPrivateBytes)
      throw Error(in_.path(), fmt::format("stream {}: its descriptions are longer than makes sense", stream));
  }
  return all;
}

std::vector<uint32_t> MatroskaInput::RecordBoxes(unsigned stream) const {
  std::vector<uint32_t> held;
  for (const mkv::Entry* const entry : DescriptionsOf(stream))
    held.push_back(entry->privateData.end == 0 ? 0 : static_cast<uint32_t>(entry->privateData.id));
  return held;
}

SampleUnits MatroskaInput::UnitsOf(unsigned stream) const {
  return {streams_[stream].coded.codec, PrivateOf(stream)};
}

std::vector<std::vector<uint8_t>> MatroskaInput::OtherPrivateData(unsigned stream) const {
  std::vector<std::vector<uint8_t>> records = PrivateOf(stream);
  records.erase(records.begin());
  return records;
}

StreamDescription MatroskaInput::Describe(unsigned index) const {
  const mkv::Entry& entry = EntriesOf(index).front();
  if (entry.codec == "V_QUICKTIME")
    throw Error(in_.path(),
                fmt::format("stream {}: is described as QuickTime does, which is not changed here", index));
  StreamDescription stream = DescribeStream(in_, index);
  stream.privateData = PrivateOf(index).front();
  stream.lengthBytes = UnitsOf(index).lengthBytes();
  return stream;
}

void MatroskaInput::Read(const std::set<unsigned>& streams, const ProgressCallback& progress,
                         const Take& take) const {
  struct Reading {
    unsigned stream;
    SampleUnits units;
    uint64_t next = 0;
  };
  std::map<uint64_t, Reading> tracks;
  for (const unsigned index : streams) tracks.emplace(TrackId(index), Reading{index, UnitsOf(index)});
  const mp4::Source& source = carrier_.source();
  Progress meter(progress, "reading", static_cast<int64_t>(source.size()));
  mkv::BlockCursor cursor(source, carrier_.layout(),
                          [&](uint64_t number) { return tracks.count(number) != 0; });
  SampleUnits::Given given;
  for (mkv::BlockView view; cursor.Next(view);) {
    meter.At(static_cast<int64_t>(view.block.element.at));
    Reading& reading = tracks.at(view.block.track);
    for (size_t i = 0; i < view.block.frames.size(); ++i) {
      const mp4::Sample sample = mkv::SampleOf(view, i, reading.next++);
      if (sample.encrypted) continue;
      if (reading.units.Take(sample, mkv::ReadFrame(source, view, i), given))
        take(reading.stream, ViewOf(sample, given.bytes));
    }
  }
  meter.Done();
}

}  // namespace qlnmedia
