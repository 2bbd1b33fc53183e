// Looks at the last units of a raw stream and puts its last picture to a decoder.

#include "container/raw_end.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "base/error.h"
#include "container/whole_picture.h"
#include "units/access_unit.h"

namespace qlnmedia {

namespace {

// Units where they lie: of the megabytes that are looked through, a few pictures are copied.
using Units = std::vector<ByteSpan>;

Units UnitsIn(ByteSpan data) {
  Units units;
  VisitUnits(data, Framing{}, [&units](ByteSpan unit) { units.push_back(unit); });
  return units;
}

void Append(std::vector<Unit>& out, ByteSpan unit) {
  out.push_back({.bytes = Bytes(unit.begin(), unit.end())});
}

// Pictures of other layers and views do not count.
bool IsBaseSlice(Codec codec, ByteSpan unit) {
  return IsSlice(codec, UnitType(codec, unit)) && IsBaseLayer(codec, unit);
}

bool BeginsBasePicture(Codec codec, ByteSpan unit) {
  return IsBaseSlice(codec, unit) && BeginsPicture(codec, unit);
}

// Whether decoding can begin at a slice's picture: IDR, BLA and CRA.
bool IsEntry(Codec codec, ByteSpan unit) {
  const int type = UnitType(codec, unit);
  return codec == Codec::kH264 ? type == 5 : type >= 16 && type <= 21;
}

// Whether a unit may stand behind the last picture of a stream (ITU-T H.264 clause 7.4.1.2.3, H.265 clause
// 7.4.2.4.4); all others announce another picture.
bool MayEndStream(Codec codec, int type) {
  if (IsSlice(codec, type)) return true;
  if (codec == Codec::kH264) return (type >= 10 && type <= 12) || (type >= 19 && type <= 31);
  return (type >= 36 && type <= 38) || type == hevc::kSuffixSei || (type >= 45 && type <= 47) || type >= 56;
}

// Whether a unit that may end a stream lacks its own end, as far as its form alone shows that.
bool BreaksOff(Codec codec, ByteSpan unit) {
  const int type = UnitType(codec, unit);
  const size_t header = codec == Codec::kH264 ? 1 : 2;
  if (IsSlice(codec, type)) return unit.size() == header;
  if (type == (codec == Codec::kH264 ? 12 : 38)) return unit.back() != 0x80;  // filler data
  if (codec != Codec::kHevc || type != hevc::kSuffixSei) return false;
  bool whole = false;
  ReadSeiMessages(codec, unit, &whole);
  return !whole;
}

// The units of the picture whose first slice is at `first`, that slice and the following ones.
size_t EndOfPicture(Codec codec, const Units& units, size_t first) {
  size_t end = first + 1;
  for (size_t i = end; i < units.size() && !BeginsBasePicture(codec, units[i]); ++i) {
    if (IsBaseSlice(codec, units[i])) end = i + 1;
  }
  return end;
}

// Parameter sets of a run, and its SEI: decoders know encoders by it.
void AppendHeaders(Codec codec, const Units& units, size_t from, size_t end, std::vector<Unit>& out) {
  for (size_t i = from; i < end; ++i) {
    const int type = UnitType(codec, units[i]);
    if (IsParameterSet(codec, type) || IsSei(codec, type)) Append(out, units[i]);
  }
}

// The slices of one picture alone. A leading picture that is skipped where decoding begins behind its
// reference has the syntax of a trailing one.
std::vector<Unit> Slices(Codec codec, const Units& units, size_t first, size_t end) {
  std::vector<Unit> slices;
  for (size_t i = first; i < end; ++i) {
    if (!IsBaseSlice(codec, units[i])) continue;
    Append(slices, units[i]);
    const int type = UnitType(codec, units[i]);
    if (codec == Codec::kHevc && (type == 8 || type == 9))
      slices.back().bytes[0] = static_cast<uint8_t>((type - 8) << 1);
  }
  return slices;
}

// Where a run's first picture begins; its size if it has none.
size_t FirstPicture(Codec codec, const Units& units) {
  size_t first = 0;
  while (first < units.size() && !BeginsBasePicture(codec, units[first])) ++first;
  return first;
}

// Whether a stream may have the slices of a picture in any order, and has pictures of several: where its last
// picture begins then does not show. So it is in the Baseline and Extended profiles of H.264.
bool SlicesInAnyOrder(const Units& head, const Units& tail) {
  constexpr uint8_t kBaseline = 66;
  constexpr uint8_t kExtended = 88;
  const bool profile = std::any_of(head.begin(), head.end(), [](ByteSpan unit) {
    return UnitType(Codec::kH264, unit) == h264::kSps && unit.size() > 2 &&
           (unit[1] == kBaseline || unit[1] == kExtended) &&
           (unit[2] & 0x40) == 0;  // constraint_set1_flag: Main as well, which knows one order only
  });
  return profile && std::any_of(tail.begin(), tail.end(), [](ByteSpan unit) {
           return IsBaseSlice(Codec::kH264, unit) && !BeginsPicture(Codec::kH264, unit);
         });
}

// The last picture, and one to decode it behind: the nearest entry in front of it, else the stream's first
// picture. The picture is empty where the units do not hold it.
PictureTrial LastPicture(Codec codec, const Units& head, const Units& tail) {
  PictureTrial trial;
  trial.codec = codec;
  size_t last = tail.size();
  while (last > 0 && !BeginsBasePicture(codec, tail[last - 1])) --last;
  if (last-- == 0) return trial;
  size_t entry = last;
  while (entry > 0 && !(BeginsBasePicture(codec, tail[entry - 1]) && IsEntry(codec, tail[entry - 1])))
    --entry;
  const size_t first = FirstPicture(codec, head);

  std::vector<Unit> sets;
  AppendHeaders(codec, head, 0, first, sets);
  std::vector<Unit> picture;
  if (entry > 0) {
    AppendHeaders(codec, tail, 0, entry, sets);
    trial.reference = ToMarkerForm(Slices(codec, tail, entry - 1, EndOfPicture(codec, tail, entry - 1)));
  } else if (first < head.size() &&
             !std::equal(head[first].begin(), head[first].end(), tail[last].begin(), tail[last].end())) {
    trial.reference = ToMarkerForm(Slices(codec, head, first, EndOfPicture(codec, head, first)));
  }
  AppendHeaders(codec, tail, entry, last, picture);
  for (Unit& unit : Slices(codec, tail, last, tail.size())) picture.push_back(std::move(unit));
  trial.sets = ToMarkerForm(sets);
  trial.picture = ToMarkerForm(picture);
  return trial;
}

Bytes ReadPart(const std::string& path, std::ifstream& file, uint64_t from, uint64_t size) {
  Bytes bytes(size);
  file.seekg(static_cast<std::streamoff>(from));
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size));
  if (!file) throw Error(path, "cannot be read to its end", "copy it again");
  return bytes;
}

}  // namespace

std::string RawEndNote(ByteSpan head, ByteSpan tail, Codec codec) {
  const Units units = UnitsIn(tail);
  if (units.empty()) return "";
  const ByteSpan end = units.back();
  const int type = UnitType(codec, end);
  if (type < 0) return "the file ends early: behind its last start code there is no unit";
  const std::string name = UnitTypeName(codec, type);
  if (!MayEndStream(codec, type))
    return fmt::format("the file ends early: its last unit ({}) has no picture behind it", name);
  if (BreaksOff(codec, end)) return fmt::format("the file ends early: its last unit ({}) breaks off", name);
  const Units first = UnitsIn(head);
  const PictureTrial trial = LastPicture(codec, first, units);
  if (codec == Codec::kH264 && SlicesInAnyOrder(first, units)) return "";
  if (trial.picture.empty()) return "";
  // So few bytes hold a slice header at most, which a decoder passes over.
  constexpr size_t kBareHeader = 5;
  const Wholeness wholeness = TryPicture(trial);
  const bool bare = wholeness == Wholeness::kUnknown && IsSlice(codec, type) && end.size() <= kBareHeader;
  return wholeness == Wholeness::kCutOff || bare ? "the file ends early: its last picture is cut off" : "";
}

std::string EndNote(const MediaFile& file) {
  constexpr uint64_t kHeadBytes = uint64_t{8} << 20;
  constexpr uint64_t kTailBytes = uint64_t{16} << 20;
  const std::string note = file.TruncationNote();
  const VideoCodec coded = file.streams()[0].coded.codec;
  const Codec codec = coded == VideoCodec::kH264 ? Codec::kH264 : Codec::kHevc;
  if (!note.empty() || !file.isRawStream() || (coded != VideoCodec::kH264 && coded != VideoCodec::kHevc))
    return note;
  if (file.isPipe()) {
    const PipeTape& tape = file.input().tape();
    const Bytes tail = tape.Tail();
    const Bytes& head = tape.head();
    return RawEndNote(ByteSpan(head).first(std::min<size_t>(head.size(), kHeadBytes)), tail, codec);
  }
  std::ifstream data(file.path(), std::ios::binary | std::ios::ate);
  if (!data) throw Error(file.path(), std::strerror(errno));
  const auto size = static_cast<uint64_t>(data.tellg());
  if (size <= kTailBytes) {
    const Bytes all = ReadPart(file.path(), data, 0, size);
    return RawEndNote(all, all, codec);
  }
  const Bytes head = ReadPart(file.path(), data, 0, kHeadBytes);
  return RawEndNote(head, ReadPart(file.path(), data, size - kTailBytes, kTailBytes), codec);
}

}  // namespace qlnmedia
