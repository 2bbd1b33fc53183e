// Takes packets apart into NAL units and puts them together again.

#include "units/units.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <optional>

#include "nalstream/nalstream.h"

namespace qlnmedia {

namespace {

void Append(Bytes& out, ByteSpan bytes) { out.insert(out.end(), bytes.begin(), bytes.end()); }

void AppendLength(Bytes& out, size_t length, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) out.push_back(static_cast<uint8_t>(length >> 8 * i));
}

// Offset behind the next 00 00 01 at or behind `from`; 0 if there is none.
size_t BehindStartCode(ByteSpan data, size_t from) {
  const ByteSpan left = data.subspan(from);
  if (left.size() == 3) return left[0] == 0 && left[1] == 0 && left[2] == 1 ? from + 3 : 0;
  if (left.size() < 3) return 0;
  int start = 0;
  int end = 0;
  find_nal_unit(left.data(), static_cast<int>(std::min<size_t>(left.size(), INT_MAX)), &start, &end);
  return start == 0 ? 0 : from + static_cast<size_t>(start);
}

// Where a unit between start codes lies.
struct UnitPlace {
  size_t at = 0;
  size_t size = 0;
  int startCodeBytes = 4;
  int trailingZeros = 0;
};

std::vector<UnitPlace> FindUnits(ByteSpan data) {
  std::vector<UnitPlace> places;
  size_t start = BehindStartCode(data, 0);
  // Zeros in front of a start code belong to what stands before it, but for the one that makes it 4 bytes.
  const auto codeBytes = [&data](size_t behindCode, size_t floor) {
    return behindCode - 3 > floor && data[behindCode - 4] == 0 ? 4 : 3;
  };
  int startCodeBytes = start == 0 ? 3 : codeBytes(start, 0);
  while (start != 0) {
    const size_t next = BehindStartCode(data, start);
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

UnitRun TakeApartStartCodes(ByteSpan data) {
  UnitRun run;
  const std::vector<UnitPlace> places = FindUnits(data);
  const size_t lead =
      places.empty() ? data.size() : places[0].at - static_cast<size_t>(places[0].startCodeBytes);
  run.lead.assign(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(lead));
  for (const UnitPlace& place : places) {
    const ByteSpan unit = data.subspan(place.at, place.size);
    run.units.push_back({Bytes(unit.begin(), unit.end()), place.startCodeBytes, place.trailingZeros});
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
void AppendUnits(ByteSpan covered, std::vector<Unit>& units) {
  const auto bytes = [&covered](size_t at, size_t size) {
    const ByteSpan part = covered.subspan(at, size);
    return Bytes(part.begin(), part.end());
  };
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

UnitRun TakeApartLengths(ByteSpan data, size_t lengthBytes) {
  UnitRun run;
  while (!data.empty()) {
    const std::optional<ByteSpan> unit = NextLengthUnit(data, lengthBytes);
    if (!unit) break;
    AppendUnits(*unit, run.units);
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
  return framing.startCodes() ? TakeApartStartCodes(data)
                              : TakeApartLengths(data, static_cast<size_t>(framing.lengthBytes));
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

bool HoldsStartCode(ByteSpan bytes) { return BehindStartCode(bytes, 0) != 0; }

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
