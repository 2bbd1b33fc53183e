// Reads the first packets of each coded video stream and collects its parameter sets.

#include "inspect/coded_frames.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "sets/set_elements.h"
#include "units/packet_units.h"

namespace qlnmedia {

std::string CodedStream::configName() const {
  if (!config.box) return "private data";
  return codec == Codec::kH264 ? "avcC" : "hvcC";
}

CodedStream MakeCodedStream(const MediaStream& stream) {
  CodedStream coded;
  coded.index = stream.index;
  coded.codec = stream.coded.codec == VideoCodec::kH264 ? Codec::kH264 : Codec::kHevc;
  coded.timeBase = stream.coded.timeBase;
  coded.width = static_cast<uint32_t>(stream.width);
  coded.height = static_cast<uint32_t>(stream.height);
  coded.privateData = stream.coded.privateData;
  coded.config = ReadConfigRecord(coded.codec, coded.privateData);
  return coded;
}

namespace {

// A packet with the heads of its slices, and whether one of its lengths covers several units.
CodedPacket HeadsOf(const PacketView& view, const CodedStream& coded, bool& joined) {
  const UnitRun run = TakeApartHeads(coded.codec, view.data, coded.config.framing);
  joined = joined || std::any_of(run.units.begin(), run.units.end(),
                                 [](const Unit& unit) { return unit.join != Join::kNone; });
  return {PutTogether(run, coded.config.framing), view.pts, view.dts, view.key, view.data.size()};
}

}  // namespace

FirstPictures ReadFirstPictures(MediaFile& file, int frames,
                                const std::function<void(const MediaPacket&)>& also) {
  // What the summary looks at: a second of pictures, unless a stream is thinly spread over its file.
  static constexpr size_t kForSummary = 30;
  static constexpr size_t kMostBytes = size_t{32} << 20;
  const auto wanted = static_cast<size_t>(frames);
  FirstPictures first;
  for (const MediaStream& stream : file.streams()) {
    if (stream.coded.codec == VideoCodec::kMpeg2) first.mpeg2[stream.index];
    if (stream.coded.codec == VideoCodec::kH264 || stream.coded.codec == VideoCodec::kHevc)
      first.coded.push_back(MakeCodedStream(stream));
  }
  size_t bytes = 0;
  const auto missing = [&] {
    const auto lacks = [&](const CodedStream& coded) {
      return coded.packets.size() < wanted ||
             (bytes < kMostBytes && coded.packets.size() + coded.more.size() < kForSummary);
    };
    return std::any_of(first.coded.begin(), first.coded.end(), lacks) ||
           (bytes < kMostBytes && std::any_of(first.mpeg2.begin(), first.mpeg2.end(), [](const auto& stream) {
              return stream.second.size() < kForSummary;
            }));
  };
  MediaPacket packet;
  while (missing() && file.Next(packet)) {
    if (also) also(packet);
    const PacketView& view = packet.view;
    bytes += view.data.size();
    for (CodedStream& coded : first.coded) {
      if (packet.stream != coded.index) continue;
      const bool laidOut = coded.packets.size() < wanted;
      if (!laidOut && coded.more.size() >= std::max(wanted, kForSummary)) continue;
      CodedPacket heads = HeadsOf(view, coded, coded.joined);
      if (laidOut) heads.data.assign(view.data.begin(), view.data.end());
      (laidOut ? coded.packets : coded.more).push_back(std::move(heads));
    }
    const auto mpeg2 = first.mpeg2.find(packet.stream);
    if (mpeg2 != first.mpeg2.end() && mpeg2->second.size() < kForSummary)
      mpeg2->second.emplace_back(view.data.begin(), view.data.end());
  }
  return first;
}

std::string FoundSet::Places() const { return fmt::format("{}", fmt::join(places, ", ")); }

SetCollector::SetCollector(const CodedStream& stream) {
  for (const Bytes& unit : stream.config.units()) Add(stream.codec, unit, stream.configName());
  for (const Bytes& unit : stream.layeredUnits) Add(stream.codec, unit, "lhvC");
  for (size_t n = 0; n < stream.packets.size(); ++n) {
    for (const Unit& unit : TakeApart(stream.packets[n].data, stream.config.framing).units)
      Add(stream.codec, unit.bytes, fmt::format("frame {}", n));
  }
}

void SetCollector::Add(Codec codec, const Bytes& unit, const std::string& place) {
  const int type = UnitType(codec, unit);
  if (!HasSetSyntax(codec, type)) return;
  for (FoundSet& set : sets_) {
    if (set.bytes != unit) continue;
    if (set.places.back() != place) set.places.push_back(place);
    return;
  }
  sets_.push_back({unit, type, {place}});
}

void AddMessages(Section& section, MessageSink& messages) {
  for (const LibraryMessage& message : messages.Take()) {
    section.AddNote("the library says: " + message.text);
    section.MarkLast(ReportPart::kLibrary);
  }
}

std::string TimeText(int64_t timestamp, Rational timeBase) {
  if (timestamp == kNoTime) return "-";
  return fmt::format("{:.3f}", SecondsOf(timestamp, timeBase));
}

Json TimeJson(int64_t timestamp, Rational timeBase) {
  if (timestamp == kNoTime) return nullptr;
  return SecondsOf(timestamp, timeBase);
}

}  // namespace qlnmedia
