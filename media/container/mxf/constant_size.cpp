// Filler data of ITU-T H.264 clause 7.3.2.7 and H.265 clause 7.3.2.8; trailing zeros of annex B of both, and
// stuffing of ITU-T H.262 clause 5.2.3.

#include "container/mxf/constant_size.h"

#include <algorithm>
#include <vector>

namespace qlnmedia::mxf {

namespace {

constexpr size_t kStartCode = 3;
constexpr uint8_t kFillerByte = 0xFF, kStopByte = 0x80;

struct Place {
  size_t at = 0;   // of the unit's start code, three bytes of it
  size_t end = 0;  // behind its last byte that is not zero
};

std::vector<Place> UnitsOf(const Bytes& bytes) {
  std::vector<Place> units;
  for (size_t at = 0; at + kStartCode < bytes.size(); ++at) {
    if (bytes[at] != 0 || bytes[at + 1] != 0 || bytes[at + 2] != 1) continue;
    if (!units.empty()) units.back().end = at;
    units.push_back({at, bytes.size()});
    at += kStartCode - 1;
  }
  for (Place& unit : units) {
    while (unit.end > unit.at + kStartCode && bytes[unit.end - 1] == 0) --unit.end;
  }
  return units;
}

int TypeAt(const Bytes& bytes, const Place& unit, Codec codec) {
  const uint8_t head = bytes[unit.at + kStartCode];
  return codec == Codec::kH264 ? head & 0x1F : head >> 1 & 0x3F;
}

size_t HeadBytes(Codec codec) { return codec == Codec::kH264 ? 1 : 2; }

bool IsFiller(const Bytes& bytes, const Place& unit, Codec codec) {
  return TypeAt(bytes, unit, codec) == (codec == Codec::kH264 ? h264::kFiller : hevc::kFiller) &&
         unit.end - unit.at > kStartCode + HeadBytes(codec) && bytes[unit.end - 1] == kStopByte;
}

auto Iterator(Bytes& bytes, size_t at) { return bytes.begin() + static_cast<std::ptrdiff_t>(at); }

// Takes out up to `excess` bytes of filler, whole units where that is not enough.
void TakeFiller(Bytes& bytes, size_t excess, Codec codec) {
  const std::vector<Place> units = UnitsOf(bytes);
  for (auto unit = units.rbegin(); unit != units.rend() && excess != 0; ++unit) {
    if (!IsFiller(bytes, *unit, codec)) continue;
    const size_t first = unit->at + kStartCode + HeadBytes(codec);
    const size_t inside = unit->end - 1 - first;
    if (excess <= inside) {
      bytes.erase(Iterator(bytes, first), Iterator(bytes, first + excess));
      return;
    }
    size_t begin = unit->at;
    // The start code's own leading zero, where it has four bytes.
    if (begin != 0 && bytes[begin - 1] == 0) --begin;
    bytes.erase(Iterator(bytes, begin), Iterator(bytes, unit->end));
    excess -= std::min(excess, unit->end - begin);
  }
}

void PutFiller(Bytes& bytes, size_t missing, std::optional<Codec> codec) {
  const std::vector<Place> units = codec ? UnitsOf(bytes) : std::vector<Place>();
  const bool zeros = units.empty() || units.back().end != bytes.size();
  if (!zeros && IsFiller(bytes, units.back(), *codec)) {
    bytes.insert(bytes.end() - 1, missing, kFillerByte);
    return;
  }
  const size_t least = codec ? kStartCode + HeadBytes(*codec) + 1 : 0;
  // Nothing stands behind the unit that ends a sequence or a stream.
  const int last = zeros ? 0 : TypeAt(bytes, units.back(), *codec);
  const bool ended = codec == Codec::kH264 ? last == 10 || last == 11 : last == 36 || last == 37;
  if (zeros || ended || missing < least) {
    bytes.insert(bytes.end(), missing, 0);
    return;
  }
  const uint8_t second = bytes[units.back().at + kStartCode + 1];
  bytes.insert(bytes.end(), {0, 0, 1});
  if (codec == Codec::kH264) {
    bytes.push_back(h264::kFiller);
  } else {
    bytes.push_back(hevc::kFiller << 1);
    bytes.push_back(static_cast<uint8_t>(second & 0x07));  // in the base layer
  }
  bytes.insert(bytes.end(), missing - least, kFillerByte);
  bytes.push_back(kStopByte);
}

}  // namespace

Bytes FitToSize(Bytes unit, size_t size, std::optional<Codec> codec) {
  while (unit.size() > size && unit.back() == 0) unit.pop_back();
  if (unit.size() > size && codec) TakeFiller(unit, unit.size() - size, *codec);
  if (unit.size() < size) PutFiller(unit, size - unit.size(), codec);
  return unit;
}

}  // namespace qlnmedia::mxf
