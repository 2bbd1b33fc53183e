// Takes the head for a small file of its own.

#include "container/mkv/live_head.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <span>

#include "container/live/arriving_source.h"
#include "container/mkv/carrier.h"
#include "container/mp4/memory_sink.h"

namespace qlnmedia::mkv {

namespace {

// Attachments and chapters in front of the pictures are part of a head.
constexpr uint64_t kLongestElement = uint64_t{64} << 20;
constexpr uint64_t kLongestHead = uint64_t{256} << 20;
// More than any element ends at.
constexpr uint64_t kNoEnd = UINT64_MAX >> 1;
constexpr size_t kVoidHead = 9;  // with a size of 8 bytes

void Put(Bytes& bytes, uint64_t at, const Bytes& fresh) {
  std::copy(fresh.begin(), fresh.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
}

// Whether an index names what stands behind the head.
bool NamesBehind(Reader& reader, const Element& index, const Element& segment, const Limits& limits) {
  if (index.id != id::kSeekHead) return true;
  bool behind = false;
  ForEachElement(reader, index.body, index.end, limits, [&](const Element& seek) {
    if (seek.id != id::kSeek) return;
    ForEachElement(reader, seek.body, seek.end, limits, [&](const Element& child) {
      if (child.id == id::kSeekPosition)
        behind = behind || ReadUnsigned(reader, child) >= reader.size() - segment.body;
    });
  });
  return behind;
}

}  // namespace

Bytes UnknownSize(size_t bytes) {
  Bytes size(bytes, 0xFF);
  size.front() = static_cast<uint8_t>((1U << (9 - bytes)) - 1);
  return size;
}

Bytes VoidOf(size_t bytes) {
  const size_t width = bytes < kVoidHead ? 1 : 8;
  Bytes made{static_cast<uint8_t>(id::kVoid)};
  const Bytes size = NumberOf(bytes - 1 - width, width);
  made.insert(made.end(), size.begin(), size.end());
  made.resize(bytes);
  return made;
}

std::optional<Element> AwaitElement(const Source& source, uint64_t at, const Limits& limits) {
  Bytes head;  // identifier and size
  for (int numbers = 0; numbers < 2; ++numbers) {
    const uint64_t from = at + head.size();
    if (AvailableOf(source, from, 1) == 0) return {};
    uint8_t first = 0;
    source.Read(from, {&first, 1});
    const size_t bytes = std::min<size_t>(static_cast<size_t>(std::countl_zero(first)) + 1, 8);
    if (AvailableOf(source, from, bytes) < bytes) return {};
    head.resize(head.size() + bytes);
    source.Read(from, std::span(head).last(bytes));
  }
  const mp4::MemorySource told(head, source.name());
  Reader reader(told);
  std::optional<Element> element = FindElement(reader, 0, kNoEnd - at, {limits.idBytes, limits.sizeBytes, 0});
  if (!element) throw source.Fault(at, "there is no EBML element");
  element->at += at;
  element->body += at;
  element->end = element->open ? kNoEnd : element->end + at;
  if (element->id == id::kSegment || element->id == id::kCluster) return element;
  if (element->open)
    throw source.Fault(at, fmt::format("the element {} does not say its size", IdName(element->id)));
  if (element->end - at > kLongestElement)
    throw source.Fault(at, fmt::format("the element {} is longer than makes sense", IdName(element->id)));
  if (AvailableOf(source, at, element->end - at) < element->end - at) return {};
  return element;
}

Bytes ReadLiveHead(const Source& source) {
  uint64_t at = 0;
  const Limits limits;
  bool segment = false;
  while (const std::optional<Element> element = AwaitElement(source, at, limits)) {
    if (element->id == id::kCluster) {
      if (!segment) break;
      Bytes head(static_cast<size_t>(at));
      source.Read(0, head);
      return head;
    }
    if (element->id == id::kSegment && segment) throw source.Fault(at, "a segment has no cluster");
    segment = segment || element->id == id::kSegment;
    at = element->id == id::kSegment ? element->body : element->end;
    if (at > kLongestHead) throw source.Fault(at, "there is no cluster so far");
  }
  throw source.Fault(at, "the stream ends in front of its first cluster");
}

Bytes MakeLiveHead(const Bytes& head, const mp4::Change& change, const std::string& name) {
  const mp4::MemorySource was(head, name);
  Carrier carrier(was);
  carrier.Prepare(change);
  mp4::MemorySink sink;
  carrier.Write(sink);
  Bytes made = sink.bytes();
  const mp4::MemorySource is(made, name);
  const Layout layout = mkv::ReadLayout(is);
  const Segment& segment = layout.segments.front();
  Reader reader(is);
  Bytes out = made;
  Put(out, segment.element.sizeAt(), UnknownSize(segment.element.sizeBytes));
  for (const Element& index : segment.indexes) {
    if (NamesBehind(reader, index, segment.element, segment.limits))
      Put(out, index.at, VoidOf(static_cast<size_t>(index.end - index.at)));
  }
  if (segment.element.body < segment.element.end &&
      out[static_cast<size_t>(segment.element.body)] == id::kCrc)
    out[static_cast<size_t>(segment.element.body)] = static_cast<uint8_t>(id::kVoid);
  return out;
}

}  // namespace qlnmedia::mkv
