// Takes caption samples apart and puts them together, atom by atom.

#include "captions/caption_sample.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace qlnmedia::captions {

namespace {

constexpr size_t kHead = 8;  // size and type

uint32_t Number32(std::span<const uint8_t> bytes) {
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

constexpr uint32_t TypeOf(const char (&name)[5]) {
  uint32_t type = 0;
  for (int i = 0; i < 4; ++i) type = type << 8 | static_cast<uint8_t>(name[i]);
  return type;
}

void AddPairs(std::span<const uint8_t> bytes, CcType field, CaptionSample* sample) {
  const size_t count = bytes.size() / 2;
  if (sample->pictures.size() < count) sample->pictures.resize(count);
  for (size_t i = 0; i < count; ++i)
    sample->pictures[i].push_back({true, field, bytes[2 * i], bytes[2 * i + 1]});
}

void AddAtom(const char (&name)[5], const Bytes& pairs, Bytes* sample) {
  const auto size = static_cast<uint32_t>(kHead + pairs.size());
  for (const uint32_t word : {size, TypeOf(name)}) {
    for (int shift = 24; shift >= 0; shift -= 8) sample->push_back(static_cast<uint8_t>(word >> shift));
  }
  sample->insert(sample->end(), pairs.begin(), pairs.end());
}

}  // namespace

std::optional<CaptionSample> ReadCaptionSample(std::span<const uint8_t> sample, std::string* reason) {
  const auto refuse = [reason](const char* what) {
    *reason = what;
    return std::nullopt;
  };
  CaptionSample read;
  while (!sample.empty()) {
    if (sample.size() < kHead) return refuse("bytes behind the last atom");
    const uint32_t size = Number32(sample);
    if (size < kHead || size > sample.size()) return refuse("an atom's size is not within the sample");
    const uint32_t type = Number32(sample.subspan(4));
    const std::span<const uint8_t> body = sample.subspan(kHead, size - kHead);
    sample = sample.subspan(size);
    const bool first = type == TypeOf("cdat");
    if (first || type == TypeOf("cdt2")) {
      if (body.size() % 2 != 0) return refuse("a pair of line 21 breaks off");
      AddPairs(body, first ? CcType::kField1 : CcType::kField2, &read);
    } else if (type == TypeOf("ccdp")) {
      std::optional<CaptionPacket> packet = ReadCdp(Bytes(body.begin(), body.end()), reason);
      if (!packet) return {};
      read.pictures.push_back(packet->triplets);
      read.packets.push_back(std::move(*packet));
    }
  }
  return read;
}

Bytes WriteCaptionSample(std::span<const Triplet> triplets) {
  constexpr uint8_t kNull = 0x80;  // nothing, with its parity
  Bytes first, second;
  for (const Triplet& triplet : triplets) {
    if (!triplet.valid) continue;
    if (triplet.type == CcType::kField1) first.insert(first.end(), {triplet.first, triplet.second});
    if (triplet.type == CcType::kField2) second.insert(second.end(), {triplet.first, triplet.second});
  }
  if (first.empty()) first = {kNull, kNull};
  Bytes sample;
  AddAtom("cdat", first, &sample);
  if (!second.empty()) AddAtom("cdt2", second, &sample);
  return sample;
}

size_t FirstFieldBytes(std::span<const uint8_t> sample) {
  return sample.size() < kHead ? sample.size() : std::min<size_t>(Number32(sample), sample.size());
}

}  // namespace qlnmedia::captions
