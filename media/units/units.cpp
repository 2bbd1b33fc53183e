// Takes packets apart into NAL units and puts them together again.

#include "units/units.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <optional>

#include "nalstream/nalstream.h"
#include "units/packet_units.h"

namespace qlnmedia {

namespace {

void Append(Bytes& out, ByteSpan bytes) { out.insert(out.end(), bytes.begin(), bytes.end()); }

void AppendLength(Bytes& out, size_t length, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) out.push_back(static_cast<uint8_t>(length >> 8 * i));
}

// Walks from one 00 00 01 to the next, looking at each byte once.
class StartCodes {
 public:
  explicit StartCodes(ByteSpan data) : data_(data) {}

  // Offset behind the next one; 0 if there is none.
  size_t Next() {
    const ByteSpan left = data_.subspan(at_);
    if (left.size() == 3 && left[0] == 0 && left[1] == 0 && left[2] == 1) return at_ = data_.size();
    if (left.size() <= 3) return 0;
    int start = 0;
    int end = 0;
    find_nal_unit(left.data(), static_cast<int>(std::min<size_t>(left.size(), INT_MAX)), &start, &end);
    if (start == 0) return 0;
    const size_t behind = at_ + static_cast<size_t>(start);
    // No start code stands in front of the end that was found with it.
    at_ += static_cast<size_t>(end);
    return behind;
  }

 private:
  ByteSpan data_;
  size_t at_ = 0;
};

// Where a unit between start codes lies.
struct UnitPlace {
  size_t at = 0;
  size_t size = 0;
  int startCodeBytes = 4;
  int trailingZeros = 0;
};

std::vector<UnitPlace> FindUnits(ByteSpan data) {
  std::vector<UnitPlace> places;
  StartCodes codes(data);
  size_t start = codes.Next();
  // Zeros in front of a start code belong to what stands before it, but for the one that makes it 4 bytes.
  const auto codeBytes = [&data](size_t behindCode, size_t floor) {
    return behindCode - 3 > floor && data[behindCode - 4] == 0 ? 4 : 3;
  };
  int startCodeBytes = start == 0 ? 3 : codeBytes(start, 0);
  while (start != 0) {
    const size_t next = codes.Next();
    const int nextCodeBytes = next == 0 ? 0 : codeBytes(next, start);
    const size_t last = next == 0 ? data.size() : next - static_cast<size_t>(nextCodeBytes);
    size_t end = last;
    while (end > start && data[end - 1] == 0) --end;
    places.push_back({start, end - start, startCodeBytes, static_cast<int>(last - end)});
    start = next;
    startCodeBytes = nextCodeBytes;
  }
  return places;
}

// How much of a unit is taken over: all, or of a slice its head.
class Taken {
 public:
  Taken() = default;
  explicit Taken(Codec codec) : codec_(codec) {}

  Bytes operator()(ByteSpan unit) const {
    const bool head = codec_ && unit.size() > kSliceHeadBytes && IsSlice(*codec_, UnitType(*codec_, unit));
    if (head) unit = unit.first(kSliceHeadBytes);
    return Bytes(unit.begin(), unit.end());
  }

 private:
  std::optional<Codec> codec_;
};

UnitRun TakeApartStartCodes(ByteSpan data, Taken taken) {
  UnitRun run;
  const std::vector<UnitPlace> places = FindUnits(data);
  const size_t lead =
      places.empty() ? data.size() : places[0].at - static_cast<size_t>(places[0].startCodeBytes);
  run.lead.assign(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(lead));
  for (const UnitPlace& place : places) {
    run.units.push_back(
        {taken(data.subspan(place.at, place.size)), place.startCodeBytes, place.trailingZeros});
  }
  return run;
}

// The unit at the beginning of data in length form, which then begins behind it; nothing where its length
// leads past the end, or is cut off.
std::optional<ByteSpan> NextLengthUnit(ByteSpan& data, size_t lengthBytes) {
  if (data.size() < lengthBytes) return {};
  size_t length = 0;
  for (size_t i = 0; i < lengthBytes; ++i) length = length << 8 | data[i];
  if (length > data.size() - lengthBytes) return {};
  const ByteSpan unit = data.subspan(lengthBytes, length);
  data = data.subspan(lengthBytes + length);
  return unit;
}

// Parts what one length covers.
void AppendUnits(ByteSpan covered, Taken taken, std::vector<Unit>& units) {
  const auto bytes = [&](size_t at, size_t size) { return taken(covered.subspan(at, size)); };
  const std::vector<UnitPlace> places = FindUnits(covered);
  if (places.empty()) {
    units.push_back({.bytes = bytes(0, covered.size())});
    return;
  }
  const size_t lead = places[0].at - static_cast<size_t>(places[0].startCodeBytes);
  Join join = Join::kBegins;
  if (lead != 0) {
    size_t end = lead;
    while (end > 0 && covered[end - 1] == 0) --end;
    units.push_back({.bytes = bytes(0, end), .trailingZeros = static_cast<int>(lead - end)});
    join = Join::kContinues;
  }
  for (const UnitPlace& place : places) {
    units.push_back({bytes(place.at, place.size), place.startCodeBytes, place.trailingZeros, join});
    join = Join::kContinues;
  }
}

UnitRun TakeApartLengths(ByteSpan data, size_t lengthBytes, Taken taken) {
  UnitRun run;
  while (!data.empty()) {
    const std::optional<ByteSpan> unit = NextLengthUnit(data, lengthBytes);
    if (!unit) break;
    AppendUnits(*unit, taken, run.units);
  }
  run.rest.assign(data.begin(), data.end());
  return run;
}

// Calls `take` for each unit that one length covers.
void VisitCovered(ByteSpan covered, const std::function<void(ByteSpan unit)>& take) {
  const std::vector<UnitPlace> places = FindUnits(covered);
  const size_t lead =
      places.empty() ? covered.size() : places[0].at - static_cast<size_t>(places[0].startCodeBytes);
  size_t end = lead;
  while (!places.empty() && end > 0 && covered[end - 1] == 0) --end;
  if (places.empty() || lead != 0) take(covered.first(end));
  for (const UnitPlace& place : places) take(covered.subspan(place.at, place.size));
}

}  // namespace

UnitRun TakeApart(ByteSpan data, Framing framing) {
  return framing.startCodes() ? TakeApartStartCodes(data, Taken())
                              : TakeApartLengths(data, static_cast<size_t>(framing.lengthBytes), Taken());
}

UnitRun TakeApartHeads(Codec codec, ByteSpan data, Framing framing) {
  const Taken taken(codec);
  return framing.startCodes() ? TakeApartStartCodes(data, taken)
                              : TakeApartLengths(data, static_cast<size_t>(framing.lengthBytes), taken);
}

const UnitRun& PacketUnits::In(Codec codec, Framing framing) {
  if (!run_ || codec != codec_ || framing.lengthBytes != framing_.lengthBytes) {
    codec_ = codec;
    framing_ = framing;
    run_.emplace(TakeApartHeads(codec, data_, framing));
  }
  return *run_;
}

void VisitUnits(ByteSpan data, Framing framing, const std::function<void(ByteSpan unit)>& take) {
  if (framing.startCodes()) {
    for (const UnitPlace& place : FindUnits(data)) take(data.subspan(place.at, place.size));
    return;
  }
  while (!data.empty()) {
    const std::optional<ByteSpan> unit = NextLengthUnit(data, static_cast<size_t>(framing.lengthBytes));
    if (!unit) return;
    VisitCovered(*unit, take);
  }
}

bool HoldsStartCode(ByteSpan bytes) { return StartCodes(bytes).Next() != 0; }

size_t CoveredUnits(const std::vector<Unit>& units, size_t first, size_t* bytes) {
  size_t end = first + 1;
  while (end < units.size() && units[end].join == Join::kContinues) ++end;
  if (end == first + 1 && units[first].join != Join::kBegins) {
    *bytes = units[first].bytes.size();
    return end;
  }
  *bytes = 0;
  for (size_t i = first; i < end; ++i) {
    const bool code = i != first || units[i].join == Join::kBegins;
    *bytes += units[i].bytes.size() + static_cast<size_t>(units[i].trailingZeros) +
              static_cast<size_t>(code ? units[i].startCodeBytes : 0);
  }
  return end;
}

Bytes PutTogether(const UnitRun& run, Framing framing) {
  Bytes out;
  constexpr size_t kAround = 8;  // start code or length, and zeros, of most units
  size_t size = run.lead.size() + run.rest.size();
  for (const Unit& unit : run.units) size += unit.bytes.size() + kAround;
  out.reserve(size);
  Append(out, run.lead);
  const auto zeros = [&out](int count) { out.insert(out.end(), static_cast<size_t>(count), uint8_t{0}); };
  if (framing.startCodes()) {
    for (const Unit& unit : run.units) {
      AppendLength(out, 1, unit.startCodeBytes);
      Append(out, unit.bytes);
      zeros(unit.trailingZeros);
    }
  }
  for (size_t i = 0; !framing.startCodes() && i < run.units.size();) {
    size_t bytes = 0;
    const size_t first = i;
    const size_t end = CoveredUnits(run.units, first, &bytes);
    AppendLength(out, bytes, framing.lengthBytes);
    const bool joined = end != first + 1 || run.units[first].join == Join::kBegins;
    for (; i < end; ++i) {
      const Unit& unit = run.units[i];
      if (joined && (i != first || unit.join == Join::kBegins)) AppendLength(out, 1, unit.startCodeBytes);
      Append(out, unit.bytes);
      if (joined) zeros(unit.trailingZeros);
    }
  }
  Append(out, run.rest);
  return out;
}

Bytes ToLengthForm(const std::vector<Unit>& units) {
  Bytes out;
  for (const Unit& unit : units) {
    AppendLength(out, unit.bytes.size(), 4);
    Append(out, unit.bytes);
  }
  return out;
}

Bytes ToMarkerForm(const std::vector<Unit>& units) {
  Bytes out;
  for (const Unit& unit : units) {
    AppendLength(out, 1, 4);
    Append(out, unit.bytes);
  }
  return out;
}

Bytes Unescape(ByteSpan unit) {
  Bytes out;
  out.reserve(unit.size());
  int zeros = 0;
  for (const uint8_t byte : unit) {
    if (zeros >= 2 && byte == 3) {
      zeros = 0;
      continue;
    }
    zeros = byte == 0 ? zeros + 1 : 0;
    out.push_back(byte);
  }
  return out;
}

Bytes Escape(ByteSpan payload) {
  Bytes out;
  out.reserve(payload.size() + payload.size() / 64 + 8);
  int zeros = 0;
  for (const uint8_t byte : payload) {
    if (zeros >= 2 && byte <= 3) {
      out.push_back(3);
      zeros = 0;
    }
    zeros = byte == 0 ? zeros + 1 : 0;
    out.push_back(byte);
  }
  if (zeros >= 2) out.push_back(3);
  return out;
}

std::vector<SeiMessage> ReadSeiMessages(Codec codec, ByteSpan unit, bool* whole) {
  const size_t header = codec == Codec::kH264 ? 1 : 2;
  const Bytes rbsp = Unescape(unit);
  std::vector<SeiMessage> messages;
  size_t at = header;
  bool good = rbsp.size() > header;
  const auto coded = [&](int& value) {
    value = 0;
    for (; at < rbsp.size(); ++at) {
      value += rbsp[at];
      if (rbsp[at] != 255) {
        ++at;
        return true;
      }
    }
    return false;
  };
  // Messages go on until only the stop bit and zero bytes are left.
  size_t end = rbsp.size();
  while (end > at && rbsp[end - 1] == 0) --end;
  while (good && at < end && !(at + 1 == end && rbsp[at] == 0x80)) {
    SeiMessage message;
    int size = 0;
    good = coded(message.type) && coded(size) && static_cast<size_t>(size) <= rbsp.size() - at;
    if (!good) break;
    message.payload.assign(rbsp.begin() + static_cast<std::ptrdiff_t>(at),
                           rbsp.begin() + static_cast<std::ptrdiff_t>(at) + size);
    at += static_cast<size_t>(size);
    messages.push_back(std::move(message));
  }
  if (whole != nullptr) *whole = good && at < end;
  return messages;
}

Bytes MakeSeiUnit(ByteSpan header, const std::vector<SeiMessage>& messages) {
  Bytes rbsp(header.begin(), header.end());
  const auto code = [&rbsp](size_t value) {
    for (; value >= 255; value -= 255) rbsp.push_back(255);
    rbsp.push_back(static_cast<uint8_t>(value));
  };
  for (const SeiMessage& message : messages) {
    code(static_cast<size_t>(message.type));
    code(message.payload.size());
    Append(rbsp, message.payload);
  }
  rbsp.push_back(0x80);
  return Escape(rbsp);
}

}  // namespace qlnmedia
