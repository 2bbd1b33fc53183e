// Forms without sizes: units between start codes, lines, and the codes of one unit.

#include <algorithm>
#include <cstring>

#include "mutators/formats.h"

namespace qln::fuzz {

namespace {

constexpr size_t kUnitHead = 4;  // header, profile and level of most sets, which no code is
constexpr int kMostZeros = 31;

void PutAll(const Piece& whole, Bytes& out) {
  for (const Piece& part : whole.parts) {
    out.insert(out.end(), part.name.begin(), part.name.end());
    out.insert(out.end(), part.rest.begin(), part.rest.end());
  }
  out.insert(out.end(), whole.rest.begin(), whole.rest.end());
}

// Without the bytes 3 that keep start codes out, clause 7.4.1 of H.264.
Bytes WithoutEscapes(const uint8_t* data, size_t size) {
  Bytes out;
  int zeros = 0;
  for (size_t i = 0; i < size; ++i) {
    if (zeros >= 2 && data[i] == 3) {
      zeros = 0;
      continue;
    }
    zeros = data[i] == 0 ? zeros + 1 : 0;
    out.push_back(data[i]);
  }
  return out;
}

}  // namespace

Piece Units::Read(const uint8_t* data, size_t size) const {
  Piece whole;
  Piece unit;
  for (size_t at = 0; at < size;) {
    const size_t zeros = static_cast<size_t>(
        std::find_if(data + at, data + size, [](uint8_t b) { return b != 0; }) - (data + at));
    const bool marks = zeros >= 2 && at + zeros < size && data[at + zeros] == 1;
    if (!marks) {
      const size_t step = std::max<size_t>(zeros, 1);
      unit.rest.insert(unit.rest.end(), data + at, data + at + step);
      at += step;
      continue;
    }
    whole.parts.push_back(std::move(unit));
    unit = {};
    unit.name.assign(data + at, data + at + zeros + 1);
    at += zeros + 1;
  }
  whole.parts.push_back(std::move(unit));
  return whole;
}

void Units::Write(const Piece& whole, Bytes& out) const { PutAll(whole, out); }

Piece Lines::Read(const uint8_t* data, size_t size) const {
  Piece whole;
  for (size_t at = 0; at < size;) {
    const auto* const end = static_cast<const uint8_t*>(std::memchr(data + at, '\n', size - at));
    const size_t next = end == nullptr ? size : static_cast<size_t>(end - data) + 1;
    Piece line;
    line.rest.assign(data + at, data + next);
    whole.parts.push_back(std::move(line));
    at = next;
  }
  return whole;
}

void Lines::Write(const Piece& whole, Bytes& out) const { PutAll(whole, out); }

// Bits are bytes of 0 and 1 in the pieces, of whose values the lowest bit counts.
Piece Codes::Read(const uint8_t* data, size_t size) const {
  const Bytes bytes = WithoutEscapes(data, size);
  Piece whole;
  const size_t head = std::min(kUnitHead, bytes.size());
  whole.prefix.assign(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(head));
  Bytes bits;
  for (size_t i = head; i < bytes.size(); ++i) {
    for (int bit = 7; bit >= 0; --bit) bits.push_back(bytes[i] >> bit & 1);
  }
  for (size_t at = 0; at < bits.size();) {
    const auto from = bits.begin() + static_cast<std::ptrdiff_t>(at);
    const auto zeros = static_cast<size_t>(std::find(from, bits.end(), 1) - from);
    const size_t length = 2 * zeros + 1;
    if (zeros > kMostZeros || length > bits.size() - at) {
      whole.rest.assign(from, bits.end());
      break;
    }
    Piece code;
    code.rest.assign(from, from + static_cast<std::ptrdiff_t>(length));
    whole.parts.push_back(std::move(code));
    at += length;
  }
  return whole;
}

void Codes::Write(const Piece& whole, Bytes& out) const {
  Bytes bits;
  PutAll(whole, bits);
  Bytes bytes = whole.prefix;
  for (size_t at = 0; at < bits.size(); at += 8) {
    int byte = 0;
    for (size_t i = at; i < at + 8; ++i) byte = byte << 1 | (i < bits.size() ? bits[i] & 1 : 0);
    bytes.push_back(static_cast<uint8_t>(byte));
  }
  int zeros = 0;
  for (const uint8_t byte : bytes) {
    if (zeros >= 2 && byte <= 3) {
      out.push_back(3);
      zeros = 0;
    }
    out.push_back(byte);
    zeros = byte == 0 ? zeros + 1 : 0;
  }
}

}  // namespace qln::fuzz
