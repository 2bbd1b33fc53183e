// Looks at the units of PES packets.

#include "patch/pes_pictures.h"

#include <algorithm>
#include <set>
#include <utility>

#include "units/access_unit.h"
#include "units/coded_stream.h"

namespace qlnmedia {

namespace {

bool BeginsHere(Codec codec, ByteSpan unit) {
  const int type = UnitType(codec, unit);
  if (!IsBaseLayer(codec, unit)) return false;
  return BeginsAccessUnit(codec, type) || (IsSlice(codec, type) && BeginsPicture(codec, unit));
}

}  // namespace

bool BeginsWithPicture(Codec codec, ByteSpan bytes) {
  const auto one = std::find_if(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte != 0; });
  const auto zeros = one - bytes.begin();
  if (zeros < 2 || one == bytes.end() || *one != 1) return false;
  // As much of the unit as its first fields take.
  constexpr size_t kFirstBytes = 8;
  const ByteSpan unit = bytes.subspan(static_cast<size_t>(zeros) + 1);
  return BeginsHere(codec, unit.first(std::min(unit.size(), kFirstBytes)));
}

CountedPictures CountPictures(Codec codec, ByteSpan bytes) {
  CountedPictures counted;
  bool open = false;  // a slice of the last picture came
  VisitUnits(bytes, Framing{}, [&](ByteSpan unit) {
    const int type = UnitType(codec, unit);
    if (open && BeginsHere(codec, unit)) open = false;
    if (IsSlice(codec, type) && IsBaseLayer(codec, unit) && !open) {
      open = true;
      ++counted.pictures;
    }
    if (counted.pictures > 1 || counted.key) return;
    if (codec == Codec::kHevc) {
      counted.key = IsSlice(codec, type) && type >= hevc::kFirstIrap && type <= hevc::kLastIrap;
    } else if (type == h264::kIdrSlice) {
      counted.key = true;
    } else if (type == h264::kSei) {
      for (const SeiMessage& message : ReadSeiMessages(codec, unit))
        counted.key = counted.key || message.type == sei::kRecoveryPoint;
    }
  });
  return counted;
}

int MostPictures(Codec codec) { return codec == Codec::kH264 ? 2 : 1; }

bool IsVideoId(uint8_t streamId) { return (streamId & 0xF0) == 0xE0 || streamId == 0xFD; }

int64_t CountOn(std::optional<int64_t>& last, uint64_t time) {
  constexpr int64_t kWrap = int64_t{1} << 33;
  if (!last) last = static_cast<int64_t>(time);
  const int64_t step = (static_cast<int64_t>(time) - *last) & (kWrap - 1);
  return *last + (step < kWrap / 2 ? step : step - kWrap);
}

bool PesPictures::Knows(const PatchInput& in, const EditedStreams& streams) {
  std::set<int> identifiers;
  for (const auto& [index, edited] : streams.streams()) {
    // Whoever surveyed a stream edits the packets that were surveyed.
    if (!UnitCodecOf(edited.stream.codec) || edited.survey != nullptr) return false;
    if (!identifiers.insert(in.streams()[index].id).second) return false;
  }
  return true;
}

PesPictures::PesPictures(const PatchInput& in, EditedStreams& streams, ts::Carrier& carrier)
    : in_(in), carrier_(carrier) {
  for (auto& [index, edited] : streams.streams()) {
    Stream& stream = streams_[static_cast<uint16_t>(in.streams()[index].id)];
    stream.edited = &edited;
    stream.codec = *UnitCodecOf(edited.stream.codec);
  }
}

bool PesPictures::Carry(const std::function<void(uint64_t at)>& progress) {
  for (ts::PesView pes; carrier_.Next(pes);) {
    progress(carrier_.at());
    if (!Take(pes)) return false;
  }
  for (auto& [identifier, stream] : streams_) {
    if (!stream.picture.empty() && !Push(stream, identifier)) return false;
    stream.edited->editor->Finish();
    Send(stream, identifier);
  }
  carrier_.Finish();
  return true;
}

// What begins no picture goes on with the one before, if it has no time of its own.
bool PesPictures::Take(ts::PesView& pes) {
  Stream& stream = streams_.at(pes.identifier);
  if (!IsVideoId(pes.streamId)) return false;
  if (!BeginsWithPicture(stream.codec, pes.stream)) {
    if (stream.picture.empty() || pes.pts) return false;
    stream.picture.insert(stream.picture.end(), pes.stream.begin(), pes.stream.end());
    ++stream.packets;
    return true;
  }
  if (!stream.picture.empty() && !Push(stream, pes.identifier)) return false;
  if (!pes.pts) return false;
  stream.picture = std::move(pes.stream);
  stream.packets = 1;
  stream.dts = CountOn(stream.last, pes.dts ? *pes.dts : *pes.pts);
  stream.pts = CountOn(stream.last, *pes.pts);
  stream.last = stream.dts;
  return true;
}

bool PesPictures::Push(Stream& stream, uint16_t identifier) {
  Waiting waiting{std::exchange(stream.picture, {}), {}, stream.packets};
  waiting.cut = CutPicture(stream.codec, waiting.picture);
  const CountedPictures counted = CountPictures(stream.codec, waiting.cut.given());
  if (counted.pictures < 1 || counted.pictures > MostPictures(stream.codec)) return false;
  stream.edited->editor->Push({waiting.cut.given(), stream.pts, stream.dts, counted.key});
  stream.waiting.push_back(std::move(waiting));
  Send(stream, identifier);
  return true;
}

void PesPictures::Send(Stream& stream, uint16_t identifier) {
  std::vector<ByteSpan> pieces;
  for (; !stream.waiting.empty(); stream.waiting.pop_front()) {
    const std::optional<EditedUnit> unit = stream.edited->editor->Pull();
    if (!unit) return;
    const Waiting& waiting = stream.waiting.front();
    if (!unit->changed) {
      carrier_.Keep(identifier, waiting.packets);
      continue;
    }
    pieces.clear();
    for (const CutPicture::Part& part : waiting.cut.PartsOf(unit->unit.data, in_.path())) {
      pieces.push_back(part.is);
      pieces.push_back(ByteSpan(waiting.picture).subspan(part.at + part.was.size(), part.rest));
    }
    carrier_.Replace(identifier, waiting.packets, pieces);
  }
}

}  // namespace qlnmedia
