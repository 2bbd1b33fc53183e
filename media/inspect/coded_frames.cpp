// Reads the first packets of each coded video stream and collects its parameter sets.

#include "inspect/coded_frames.h"

#include <fmt/format.h>

#include <algorithm>

#include "sets/set_elements.h"

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

std::vector<CodedStream> ReadCodedStreams(MediaFile& file, int frames) {
  std::vector<CodedStream> streams;
  for (const MediaStream& stream : file.streams()) {
    if (stream.coded.codec == VideoCodec::kH264 || stream.coded.codec == VideoCodec::kHevc)
      streams.push_back(MakeCodedStream(stream));
  }
  const auto wanted = static_cast<size_t>(frames);
  const auto missing = [&] {
    return std::any_of(streams.begin(), streams.end(),
                       [&](const CodedStream& coded) { return coded.packets.size() < wanted; });
  };
  MediaPacket packet;
  while (missing() && file.Next(packet)) {
    for (CodedStream& coded : streams) {
      if (packet.stream != coded.index || coded.packets.size() >= wanted) continue;
      const PacketView& view = packet.view;
      coded.packets.push_back({Bytes(view.data.begin(), view.data.end()), view.pts, view.dts, view.key});
    }
  }
  return streams;
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
  for (const LibraryMessage& message : messages.Take()) section.AddNote("the library says: " + message.text);
}

std::string TimeText(int64_t timestamp, Rational timeBase) {
  if (timestamp == kNoTime) return "-";
  return fmt::format("{:.3f}", static_cast<double>(timestamp) * timeBase.value());
}

Json TimeJson(int64_t timestamp, Rational timeBase) {
  if (timestamp == kNoTime) return nullptr;
  return static_cast<double>(timestamp) * timeBase.value();
}

}  // namespace qlnmedia
