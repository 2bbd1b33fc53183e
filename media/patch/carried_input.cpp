// Brings streams and tracks together.

#include "patch/carried_input.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <utility>

#include "base/error.h"
#include "base/progress.h"

namespace qlnmedia {

CarriedInput::CarriedInput(const std::vector<MediaStream>& streams, std::string path,
                           const mp4::Carrier& carrier)
    : streams_(streams), path_(std::move(path)), carrier_(carrier) {}

uint32_t CarriedInput::TrackId(unsigned stream) const { return static_cast<uint32_t>(streams_[stream].id); }

const mp4::Track& CarriedInput::TrackOf(unsigned stream) const {
  const mp4::Track* const track = carrier_.FindTrack(TrackId(stream));
  if (track == nullptr)
    throw Error(path_, fmt::format("stream {}: there is no track {}", stream, TrackId(stream)));
  return *track;
}

std::vector<CarriedInput::Private> CarriedInput::PrivateOf(unsigned stream) const {
  const MediaStream& described = streams_[stream];
  const uint32_t wanted =
      described.coded.codec == VideoCodec::kHevc ? mp4::FourCc("hvcC") : mp4::FourCc("avcC");
  std::vector<Private> all;
  for (const mp4::Description& description : TrackOf(stream).descriptions) {
    Private found{0, described.coded.privateData};
    for (mp4::DescriptionBox& box : mp4::ReadDescriptionBoxes(carrier_.described(), description)) {
      if (box.type != wanted || found.box != 0) continue;
      found = {wanted, std::move(box.body)};
    }
    all.push_back(std::move(found));
  }
  if (all.empty()) all.push_back({0, described.coded.privateData});
  return all;
}

std::vector<uint32_t> CarriedInput::RecordBoxes(unsigned stream) const {
  std::vector<uint32_t> boxes;
  for (const Private& data : PrivateOf(stream)) boxes.push_back(data.box);
  return boxes;
}

SampleUnits CarriedInput::UnitsOf(unsigned stream) const {
  std::vector<Bytes> records;
  for (Private& data : PrivateOf(stream)) records.push_back(std::move(data.data));
  return {streams_[stream].coded.codec, std::move(records)};
}

std::vector<std::vector<uint8_t>> CarriedInput::OtherPrivateData(unsigned stream) const {
  std::vector<std::vector<uint8_t>> records;
  for (Private& data : PrivateOf(stream)) records.push_back(std::move(data.data));
  records.erase(records.begin());
  return records;
}

// Of a segment that is read without libavformat nothing is known of its rate.
void CarriedInput::FillInRate(const mp4::Track& track, StreamDescription& stream) const {
  if (stream.averageRate.numerator > 0) return;
  mp4::TrackSamples samples(carrier_.source(), carrier_.layout(), track.id);
  uint64_t duration = 0;
  uint64_t count = 0;
  for (mp4::Sample sample; samples.Next(sample) && count < 100000; ++count) duration += sample.duration;
  if (duration == 0 || count < 2) return;
  const uint64_t ticks = count * track.timescale;
  const uint64_t shared = std::gcd(ticks, duration);
  if (ticks / shared > INT32_MAX || duration / shared > INT32_MAX) return;
  stream.averageRate = {static_cast<int32_t>(ticks / shared), static_cast<int32_t>(duration / shared)};
}

StreamDescription CarriedInput::Describe(unsigned index) const {
  const MediaStream& described = streams_[index];
  const mp4::Track& track = TrackOf(index);
  StreamDescription stream = described.coded;
  stream.ownMarks = true;
  if (described.container.height > 0) stream.height = static_cast<uint32_t>(described.container.height);
  stream.bottomFirst = described.container.fieldOrder == kBottomFirst ||
                       described.container.fieldOrder == kTopCodedBottomShownFirst;
  stream.privateData = PrivateOf(index).front().data;
  stream.lengthBytes = UnitsOf(index).lengthBytes();
  if (track.timescale != 0 && track.timescale <= INT32_MAX)
    stream.timeBase = {1, static_cast<int32_t>(track.timescale)};
  FillInRate(track, stream);
  return stream;
}

void CarriedInput::Read(const std::set<unsigned>& streams, const ProgressCallback& progress,
                        const Take& take) const {
  Progress meter(progress, "reading", static_cast<int64_t>(carrier_.source().size()));
  int64_t done = 0;
  Bytes bytes;
  SampleUnits::Given given;
  for (const unsigned index : streams) {
    SampleUnits units = UnitsOf(index);
    mp4::TrackSamples samples(carrier_.source(), carrier_.layout(), TrackId(index));
    for (mp4::Sample sample; samples.Next(sample);) {
      meter.At(done);
      mp4::ReadSample(carrier_.source(), TrackId(index), sample, bytes);
      done += sample.size;
      if (units.Take(sample, bytes, given)) take(index, ViewOf(sample, given.bytes));
    }
  }
  meter.Done();
}

}  // namespace qlnmedia
