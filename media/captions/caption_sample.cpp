// Takes caption samples apart, atom by atom.

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
      read.rate = packet->rate;
      read.pictures.push_back(std::move(packet->triplets));
    }
  }
  return read;
}

}  // namespace qlnmedia::captions
