// Heads of elements, read byte by byte.

#include "container/mkv/element.h"

#include <fmt/format.h>

#include <bit>

namespace qlnmedia::mkv {

namespace {

constexpr size_t kLongestNumber = 8;

}  // namespace

std::string IdName(uint64_t id) { return fmt::format("0x{:X}", id); }

std::optional<Number> ReadNumber(Reader& reader, uint64_t at, uint64_t end) {
  if (at >= end) return {};
  const uint8_t first = reader.U8(at);
  Number number;
  number.bytes = static_cast<size_t>(std::countl_zero(first)) + 1;
  if (number.bytes > kLongestNumber || number.bytes > end - at) return {};
  const uint64_t most = (uint64_t{1} << (7 * number.bytes)) - 1;
  number.value = reader.Number(at, number.bytes) & most;
  number.allOnes = number.value == most;
  return number;
}

size_t SizeBytesFor(uint64_t size) {
  size_t bytes = 1;
  while (bytes < kLongestNumber && size >= (uint64_t{1} << (7 * bytes)) - 1) ++bytes;
  return bytes;
}

Bytes NumberOf(uint64_t value, size_t bytes) {
  return mp4::NumberBytes(value | uint64_t{1} << (7 * bytes), bytes);
}

std::optional<Element> FindElement(Reader& reader, uint64_t at, uint64_t end, const Limits& limits) {
  const std::optional<Number> head = ReadNumber(reader, at, end);
  if (!head || head->bytes > limits.idBytes) return {};
  Element element;
  element.at = at;
  element.idBytes = static_cast<uint8_t>(head->bytes);
  element.id = reader.Number(at, head->bytes);
  const std::optional<Number> size = ReadNumber(reader, at + head->bytes, end);
  if (!size || size->bytes > limits.sizeBytes) return {};
  element.sizeBytes = static_cast<uint8_t>(size->bytes);
  element.body = at + head->bytes + size->bytes;
  element.open = size->allOnes;
  const bool mayGoOn = end == limits.cutEnd && (element.id == id::kSegment || element.id == id::kCluster);
  if (!element.open && size->value > end - element.body && mayGoOn) {
    element.missing = size->value - (end - element.body);
    element.end = end;
    return element;
  }
  if (!element.open && size->value > end - element.body)
    throw reader.source().Fault(
        at, fmt::format("the element {} is longer than what holds it", IdName(element.id)));
  element.end = element.open ? end : element.body + size->value;
  return element;
}

Element ReadElement(Reader& reader, uint64_t at, uint64_t end, const Limits& limits) {
  const std::optional<Element> element = FindElement(reader, at, end, limits);
  if (!element) throw reader.source().Fault(at, "there is no EBML element");
  return *element;
}

Element ReadSizedElement(Reader& reader, uint64_t at, uint64_t end, const Limits& limits) {
  const Element element = ReadElement(reader, at, end, limits);
  if (element.open)
    throw reader.source().Fault(at, fmt::format("the element {} does not say its size", IdName(element.id)));
  return element;
}

uint64_t ReadUnsigned(Reader& reader, const Element& element) {
  if (element.size() > 8)
    throw reader.source().Fault(element.at, fmt::format("the element {} is no number", IdName(element.id)));
  return element.size() == 0 ? 0 : reader.Number(element.body, static_cast<size_t>(element.size()));
}

size_t UnsignedBytesFor(uint64_t value) {
  size_t bytes = 1;
  while (bytes < 8 && value >> (8 * bytes) != 0) ++bytes;
  return bytes;
}

}  // namespace qlnmedia::mkv
