// Puts sets in and takes them out, by units.

#include "patch/sample_units.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "base/error.h"
#include "patch/kept_packets.h"
#include "units/access_unit.h"
#include "units/mpeg2.h"

namespace qlnmedia {

namespace {

bool IsSet(Codec codec, ByteSpan unit) {
  const int type = UnitType(codec, unit);
  if (codec == Codec::kHevc) return type == hevc::kVps || type == hevc::kSps || type == hevc::kPps;
  return type == h264::kSps || type == h264::kPps || type == h264::kSpsExtension || type == h264::kSubsetSps;
}

bool IsDelimiter(Codec codec, ByteSpan unit) {
  return UnitType(codec, unit) == (codec == Codec::kHevc ? hevc::kDelimiter : h264::kDelimiter);
}

std::vector<Bytes> SetsOf(const ConfigRecord& record) {
  std::vector<Bytes> sets = record.units();
  sets.erase(
      std::remove_if(sets.begin(), sets.end(), [&](const Bytes& unit) { return !IsSet(record.codec, unit); }),
      sets.end());
  return sets;
}

// More than any slice header takes, entry points of many tiles aside, which no editor looks at.
constexpr size_t kSliceFront = 4096;

size_t LengthAt(ByteSpan bytes, size_t at, size_t lengthBytes) {
  return static_cast<size_t>(mp4::LoadNumber(bytes.data() + at, lengthBytes));
}

// Calls `take` with the place of the length field of each unit and the unit, up to where lengths no longer
// fit, which comes back.
template <typename Take>
size_t ForEachUnit(ByteSpan bytes, size_t lengthBytes, Take take) {
  size_t at = 0;
  while (bytes.size() - at >= lengthBytes) {
    const size_t size = LengthAt(bytes, at, lengthBytes);
    if (size > bytes.size() - at - lengthBytes) break;
    take(at, bytes.subspan(at + lengthBytes, size));
    at += lengthBytes + size;
  }
  return at;
}

void AppendUnit(Bytes& to, size_t length, size_t lengthBytes, ByteSpan bytes) {
  mp4::PutNumber(to, length, lengthBytes);
  to.insert(to.end(), bytes.begin(), bytes.end());
}

}  // namespace

SampleUnits::SampleUnits(VideoCodec codec, std::vector<Bytes> records) : codec_(UnitCodecOf(codec)) {
  if (!codec_) return;
  bool differ = false;
  for (const Bytes& record : records) {
    records_.push_back(ReadConfigRecord(*codec_, record));
    differ = differ || records_.back().framing.lengthBytes != records_.front().framing.lengthBytes;
    framing_.lengthBytes = std::max(framing_.lengthBytes, records_.back().framing.lengthBytes);
  }
  if (differ) lengthBytes_ = framing_.lengthBytes;
  current_ = records_.data();
}

const ConfigRecord& SampleUnits::RecordOf(uint32_t description) const {
  return records_[description == 0 || description > records_.size() ? 0 : description - 1];
}

bool SampleUnits::Take(const mp4::Sample& sample, mp4::ByteSpan bytes, Given& given) {
  if (bytes.empty() || sample.encrypted) return false;
  given = {};
  if (!codec_) {
    given.bytes.assign(bytes.begin(), bytes.end());
    return true;
  }
  const ConfigRecord& record = RecordOf(sample.description);
  std::vector<Bytes> sets;
  if (&record != current_ && record.units() != current_->units()) sets = SetsOf(record);
  current_ = &record;
  if (sets.empty() && record.framing.lengthBytes == framing_.lengthBytes) {
    given.bytes = CutSlices(bytes, given.cuts);
    return true;
  }
  UnitRun run = TakeApart(bytes, record.framing);
  const bool delimited = !run.units.empty() && IsDelimiter(*codec_, run.units.front().bytes);
  given.borrowed = sets.size();
  std::vector<Unit> borrowed;
  for (Bytes& set : sets) borrowed.push_back({.bytes = std::move(set)});
  run.units.insert(run.units.begin() + (delimited ? 1 : 0), std::make_move_iterator(borrowed.begin()),
                   std::make_move_iterator(borrowed.end()));
  given.bytes = PutTogether(run, framing_);
  return true;
}

Bytes SampleUnits::CutSlices(ByteSpan bytes, std::vector<Cut>& cuts) const {
  const auto lengthBytes = static_cast<size_t>(framing_.lengthBytes);
  Bytes out;
  bool joined = lengthBytes == 0;
  size_t slices = 0;
  const auto take = [&](size_t, ByteSpan unit) {
    joined = joined || HoldsStartCode(unit);
    const bool slice = !joined && IsSlice(*codec_, UnitType(*codec_, unit));
    const bool cut = slice && unit.size() > 2 * kSliceFront;
    if (cut) cuts.push_back({out.size(), slices, unit.size(), unit.back()});
    if (slice) ++slices;
    if (cut) unit = unit.first(kSliceFront);
    if (!joined) AppendUnit(out, unit.size(), lengthBytes, unit);
  };
  const size_t end = joined ? 0 : ForEachUnit(bytes, lengthBytes, take);
  if (joined) {
    cuts.clear();
    return {bytes.begin(), bytes.end()};
  }
  const ByteSpan rest = bytes.subspan(end);
  out.insert(out.end(), rest.begin(), rest.end());
  return out;
}

std::vector<mp4::SamplePart> SampleUnits::PartsOf(const Given& given, const Bytes& edited,
                                                  const std::string& where) const {
  const auto lengthBytes = static_cast<size_t>(framing_.lengthBytes);
  std::vector<size_t> slices;  // their length fields
  ForEachUnit(edited, lengthBytes, [&](size_t at, ByteSpan unit) {
    if (IsSlice(*codec_, UnitType(*codec_, unit))) slices.push_back(at);
  });
  std::vector<mp4::SamplePart> parts;
  mp4::SamplePart part;
  size_t was = 0;  // how far the parts go in what was given,
  size_t is = 0;   // in what came back,
  for (const Cut& cut : given.cuts) {
    const ByteSpan head = ByteSpan(given.bytes).subspan(cut.at + lengthBytes, kSliceFront);
    const size_t at = cut.slice < slices.size() ? slices[cut.slice] : edited.size();
    const bool same =
        at >= is && edited.size() - at >= lengthBytes + head.size() &&
        LengthAt(edited, at, lengthBytes) == head.size() &&
        std::equal(head.begin(), head.end(), edited.begin() + static_cast<std::ptrdiff_t>(at + lengthBytes));
    if (!same) throw Error(where, "a slice came back changed; nothing was written");
    // The length as it is in the sample, and the slice's first byte, so that the part is not empty.
    const auto take = [&](Bytes& to, ByteSpan from) {
      to.insert(to.end(), from.begin(), from.end());
      AppendUnit(to, cut.size, lengthBytes, head.first(1));
    };
    take(part.was, ByteSpan(given.bytes).subspan(was, cut.at - was));
    take(part.is, ByteSpan(edited).subspan(is, at - is));
    const size_t end = part.was.size();
    if (part.was != part.is) parts.push_back(part);
    // The next one begins with the slice's last byte.
    part = {part.at + end + cut.size - 2, {cut.last}, {cut.last}};
    was = cut.at + lengthBytes + head.size();
    is = at + lengthBytes + head.size();
  }
  part.was.insert(part.was.end(), given.bytes.begin() + static_cast<std::ptrdiff_t>(was), given.bytes.end());
  part.is.insert(part.is.end(), edited.begin() + static_cast<std::ptrdiff_t>(is), edited.end());
  if (part.was != part.is) parts.push_back(std::move(part));
  return parts;
}

bool SampleUnits::IsKept(const mp4::Sample& sample, ByteSpan before, ByteSpan after,
                         const EditOptions& changes) const {
  const auto rest = [&](ByteSpan bytes) {
    std::vector<Bytes> kept;
    const auto keep = [&kept](ByteSpan unit) { kept.emplace_back(unit.begin(), unit.end()); };
    if (!codec_) {
      for (const Mpeg2Unit& unit : Mpeg2Units(bytes)) {
        if (unit.code != kMpeg2UserData) keep(bytes.subspan(unit.at, unit.size));
      }
      return kept;
    }
    const UnitRun run = TakeApart(bytes, RecordOf(sample.description).framing);
    for (const Unit& unit : run.units) {
      if (!MayChange(*codec_, UnitType(*codec_, unit.bytes), changes)) keep(unit.bytes);
    }
    keep(run.rest);
    return kept;
  };
  return std::equal(before.begin(), before.end(), after.begin(), after.end()) || rest(before) == rest(after);
}

bool SampleUnits::MayHoldSets(mp4::Reader& reader, const mp4::Sample& sample) const {
  if (!codec_ || sample.encrypted) return false;
  const auto length = static_cast<size_t>(RecordOf(sample.description).framing.lengthBytes);
  if (length == 0) return true;
  const size_t head = UnitHeaderBytes(*codec_);
  uint64_t at = sample.offset;
  uint64_t left = sample.size;
  while (left >= length + head) {
    const uint64_t size = reader.Number(at, length);
    // What is not as it should be is for the editor to see.
    if (size < head || size > left - length) return true;
    Bytes bytes;
    mp4::PutNumber(bytes, reader.Number(at + length, head), head);
    // A delimiter this long is the first of several units that one length covers.
    constexpr uint64_t kMostOfDelimiter = 16;
    if (IsSet(*codec_, bytes) || (IsDelimiter(*codec_, bytes) && size > kMostOfDelimiter)) return true;
    at += length + size;
    left -= length + size;
  }
  return left != 0;
}

SampleUnits::Returned SampleUnits::GiveBack(uint32_t description, const Given& given, const Bytes& edited,
                                            const std::string& where) const {
  if (!codec_) return {.bytes = edited};
  if (!given.cuts.empty()) return {.bytes = {}, .parts = PartsOf(given, edited, where)};
  const Framing own = RecordOf(description).framing;
  if (given.borrowed == 0 && own.lengthBytes == framing_.lengthBytes) return {.bytes = edited};
  Returned returned;
  UnitRun run = TakeApart(edited, framing_);
  const std::vector<Bytes> sets = given.borrowed == 0 ? std::vector<Bytes>{} : SetsOf(RecordOf(description));
  std::vector<Unit> kept;
  size_t taken = 0;
  for (Unit& unit : run.units) {
    if (taken == given.borrowed || !IsSet(*codec_, unit.bytes)) {
      kept.push_back(std::move(unit));
      continue;
    }
    const bool changed = unit.bytes != sets[taken++];
    const int type = UnitType(*codec_, unit.bytes);
    if (changed && type == (*codec_ == Codec::kHevc ? hevc::kSps : h264::kSps)) ++returned.sequenceSets;
    if (changed && *codec_ == Codec::kHevc && type == hevc::kVps) ++returned.videoSets;
  }
  run.units = std::move(kept);
  if (const size_t outgrown = OutgrownUnit(run, own); outgrown != 0)
    throw Error(where, fmt::format("a unit of {} bytes does not fit its {}-byte length field", outgrown,
                                   own.lengthBytes));
  returned.bytes = PutTogether(run, own);
  return returned;
}

PacketView ViewOf(const mp4::Sample& sample, ByteSpan bytes) {
  return {bytes, sample.compositionTime, sample.decodeTime, sample.sync, static_cast<int64_t>(sample.offset)};
}

}  // namespace qlnmedia
