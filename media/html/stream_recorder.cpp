// Packs each packet's facts as it comes; puts them in presentation order at the end.

#include "html/stream_recorder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "captions/decoder.h"
#include "html/clocks.h"

namespace qlnmedia::html {

namespace {

// A stream that changes its looks or sets with every picture has something else to look at.
constexpr size_t kMostTexts = 4096;
constexpr size_t kMostRuns = 100000;

Json RunsJson(const std::vector<std::pair<int64_t, int64_t>>& runs) {
  Column from, value;
  for (const auto& [packet, place] : runs) {
    from.Add(packet);
    value.Add(place);
  }
  return Json{{"count", runs.size()}, {"from", from.Text()}, {"value", value.Text()}};
}

}  // namespace

StreamRecorder::StreamRecorder(const MediaStream& stream, StreamDescription description, OwnOrder order)
    : stream_(stream),
      description_(std::move(description)),
      reader_(MakePictureReader(description_, stream.encrypted)),
      counter_(description_, SIZE_MAX),
      order_(std::move(order)) {
  last_.pts = last_.dts = last_.position = 0;
}

void StreamRecorder::TakeTimes(const PacketView& packet, uint8_t& flags) {
  if (packet.key) flags |= kMarkedKey;
  if (packet.pts == kNoTime) flags |= kNoPts;
  if (packet.dts == kNoTime) flags |= kNoDts;
  if (packet.position < 0) flags |= kNoPosition;
  if (packet.pts != kNoTime) last_.pts = packet.pts;
  if (packet.dts != kNoTime) last_.dts = packet.dts;
  if (packet.position >= 0) last_.position = packet.position;
  size_.Add(static_cast<int64_t>(packet.data.size()));
  if (order_.doesAnything()) {
    storedTimes_.push_back(last_.pts);
  } else {
    pts_.Add(last_.pts);
  }
  dts_.Add(last_.dts);
  position_.Add(last_.position);
}

int64_t StreamRecorder::TextPlace(const std::string& text) {
  const auto known = textPlaces_.find(text);
  if (known != textPlaces_.end()) return known->second;
  if (texts_.size() >= kMostTexts) return static_cast<int64_t>(texts_.size()) - 1;
  texts_.push_back(text);
  return textPlaces_[text] = static_cast<int64_t>(texts_.size()) - 1;
}

void StreamRecorder::TakeRuns() {
  const auto go = [&](Runs& runs, int64_t value) {
    if (runs.size() < kMostRuns && (runs.empty() || runs.back().second != value))
      runs.emplace_back(packets_, value);
  };
  std::string sets;
  for (const int place : reader_->setsInForce()) sets += fmt::format("{} ", place);
  go(sets_, TextPlace(sets));
  go(looks_, TextPlace(reader_->look()));
}

void StreamRecorder::TakeBuffer(bool end) {
  for (const std::optional<CpbState>& state : reader_->Buffer(end)) {
    buffer_.Add(state ? static_cast<int64_t>(std::llround(state->before)) : -1);
    bufferMarks_.Add(!state ? 0 : (state->underflow ? 1 : 0) + (state->overflow ? 2 : 0));
    if (state && state->underflow) ++underflows_;
    if (state && state->overflow) ++overflows_;
  }
}

void StreamRecorder::Take(const PacketView& packet, int64_t frame) {
  const ShownPicture& picture = reader_->Take(packet);
  uint8_t flags = picture.flags;
  TakeTimes(packet, flags);
  flags_.Add(flags);
  slices_.Add(picture.slices);
  entry_.Add(static_cast<int64_t>(picture.entry));
  structure_.Add(static_cast<int64_t>(picture.structure));
  picStruct_.Add(picture.picStruct);
  clock_.Add(picture.clock);
  clocks_.push_back(picture.clock);
  TakeRuns();
  TakeBuffer(false);
  unitBlocks_.Add(picture.units);
  counter_.Add(packet);
  order_.Add(packet);
  // From here on packets and frames are further apart.
  if (frame + behind_ < packets_) {
    laterFrames_.push_back(packets_);
    ++behind_;
  }
  ++packets_;
}

void StreamRecorder::Finish() {
  TakeBuffer(true);
  blocks_ = unitBlocks_.Finish();
  survey_ = counter_.Finish();
  order_.Apply(survey_);
  survey_.stream = stream_.index;
  packetsOfPlaces_.assign(survey_.order.pictures, -1);
  for (size_t i = 0; i < survey_.order.places.size(); ++i) {
    const uint32_t place = survey_.order.places[i];
    if (place < packetsOfPlaces_.size()) packetsOfPlaces_[place] = static_cast<int64_t>(i);
  }
  if (order_.doesAnything()) PutShownTimes();
}

// The earliest time goes to the picture that is shown first, and so on.
void StreamRecorder::PutShownTimes() {
  std::vector<int64_t> times;
  for (const int64_t packet : packetsOfPlaces_) {
    if (packet >= 0) times.push_back(storedTimes_[static_cast<size_t>(packet)]);
  }
  std::sort(times.begin(), times.end());
  size_t next = 0;
  for (const int64_t packet : packetsOfPlaces_) {
    if (packet >= 0) storedTimes_[static_cast<size_t>(packet)] = times[next++];
  }
  for (const int64_t time : storedTimes_) pts_.Add(time);
}

int64_t StreamRecorder::PacketOfFrame(int64_t frame) const {
  int64_t packet = frame;
  for (const int64_t later : laterFrames_) {
    if (later <= packet) ++packet;
  }
  return frame >= 0 && packet < packets_ ? packet : -1;
}

int64_t StreamRecorder::PacketOfPlace(int64_t place) const {
  return place >= 0 && place < static_cast<int64_t>(packetsOfPlaces_.size())
             ? packetsOfPlaces_[static_cast<size_t>(place)]
             : -1;
}

Json StreamRecorder::BufferJson() const {
  const Hrd* const hrd = reader_->hrd();
  if (hrd == nullptr) return nullptr;
  return Json{{"before", buffer_.Text()},
              {"marks", bufferMarks_.Text()},
              {"underflows", underflows_},
              {"overflows", overflows_},
              {"bitRate", hrd->schedule.bitRate},
              {"size", hrd->schedule.cpbSize},
              {"constant", hrd->schedule.constant},
              {"lowDelay", hrd->schedule.lowDelay},
              {"nal", hrd->nal},
              {"schedules", hrd->schedules}};
}

Json StreamRecorder::CaptionsJson() const {
  if (survey_.captioned() == 0) return nullptr;
  CaptionDecoder decoder;
  PictureClock clock(survey_.order, survey_.pace);
  std::vector<std::pair<double, int64_t>> times;
  CaptionSorter sorter(survey_, [&](const CaptionedPicture& picture) {
    decoder.Add(picture.triplets, picture.seconds);
    clock.Next();
  });
  for (const Triplets& triplets : survey_.kept) sorter.Add(triplets);
  sorter.Finish();
  decoder.Finish(clock.seconds());
  Json services = Json::array();
  for (const CaptionService& service : decoder.services()) {
    Json lines = Json::array();
    for (const CaptionLine& line : service.lines) lines.push_back({line.begin, line.end, line.text});
    services.push_back({{"name", service.name}, {"lines", std::move(lines)}});
  }
  Column counts;
  for (const uint8_t count : survey_.counts) counts.Add(count == CaptionSurvey::kNone ? -1 : count);
  Json wanted = nullptr;
  if (survey_.pace.rate) wanted = captions::InfoOf(*survey_.pace.rate).triplets;
  return Json{{"services", std::move(services)},
              {"counts", counts.Text()},
              {"captioned", survey_.captioned()},
              {"wanted", wanted}};
}

Json StreamRecorder::ClocksJson() const {
  Json jumps = Json::array();
  if (description_.codec == VideoCodec::kMpeg2) return jumps;  // one clock a group, of its first picture
  std::vector<uint32_t> shown;
  for (const int64_t packet : packetsOfPlaces_)
    shown.push_back(packet < 0 ? 0 : clocks_[static_cast<size_t>(packet)]);
  constexpr size_t kMostJumps = 10000;
  for (const uint32_t place : ClockJumps(shown, survey_.pace.picturesPerSecond)) {
    if (jumps.size() < kMostJumps) jumps.push_back(place);
  }
  return jumps;
}

Json StreamRecorder::ToJson() const {
  Column places;
  for (const uint32_t place : survey_.order.places)
    places.Add(place == kNoPlace ? -1 : static_cast<int64_t>(place));
  Json columns{{"size", size_.Text()},
               {"pts", pts_.Text()},
               {"dts", dts_.Text()},
               {"position", position_.Text()},
               {"flags", flags_.Text()},
               {"slices", slices_.Text()},
               {"entry", entry_.Text()},
               {"structure", structure_.Text()},
               {"picStruct", picStruct_.Text()},
               {"clock", clock_.Text()},
               {"place", places.Text()}};
  Json unitNames = Json::object();
  const std::optional<Codec> codec = UnitCodecOf(description_.codec);
  const int lastType = !codec ? -1 : *codec == Codec::kH264 ? h264::kLastType : hevc::kLastType;
  for (int type = 0; type <= lastType; ++type) unitNames[std::to_string(type)] = UnitTypeName(*codec, type);
  const SetList* const sets = reader_->sets();
  return Json{{"index", stream_.index},
              {"codec", stream_.codecName},
              {"width", stream_.width},
              {"height", stream_.height},
              {"encrypted", stream_.encrypted},
              {"timeBase", {description_.timeBase.numerator, description_.timeBase.denominator}},
              {"rate", survey_.pace.picturesPerSecond},
              {"packets", packets_},
              {"pictures", survey_.order.pictures},
              {"columns", std::move(columns)},
              {"unitNames", std::move(unitNames)},
              {"texts", texts_},
              {"setsInForce", RunsJson(sets_)},
              {"looks", RunsJson(looks_)},
              {"jumps", ClocksJson()},
              {"buffer", BufferJson()},
              {"captions", CaptionsJson()},
              {"sets", sets == nullptr ? Json(nullptr) : sets->ToJson()}};
}

}  // namespace qlnmedia::html
