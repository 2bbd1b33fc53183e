// Takes groups apart and puts them together with sizes that fit.

#include "container/mkv/live_block.h"

#include <algorithm>
#include <utility>

namespace qlnmedia::mkv {

namespace {

void Append(Bytes& out, ByteSpan bytes) { out.insert(out.end(), bytes.begin(), bytes.end()); }

// An element of that identifier around a body, its size no shorter than it was.
Bytes Around(ByteSpan identifier, size_t sizeBytes, const Bytes& body) {
  Bytes out(identifier.begin(), identifier.end());
  Append(out, NumberOf(body.size(), std::max(sizeBytes, SizeBytesFor(body.size()))));
  Append(out, body);
  return out;
}

}  // namespace

LiveBlock::LiveBlock(Bytes bytes, const Limits& limits, std::string name)
    : bytes_(std::move(bytes)), name_(std::move(name)), limits_(limits) {
  const mp4::MemorySource source(bytes_, name_);
  Reader reader(source);
  element_ = ReadSizedElement(reader, 0, bytes_.size(), limits_);
  if (element_.id == id::kSimpleBlock) {
    block_ = ReadBlockHead(reader, element_);
    key_ = (block_.flags & kKeyframe) != 0;
    return;
  }
  bool found = false;
  key_ = true;
  ForEachElement(reader, element_.body, element_.end, limits_, [&](const Element& child) {
    if (child.id == id::kBlock && !found) {
      block_ = ReadBlockHead(reader, child);
      found = true;
    }
    if (child.id == id::kReferenceBlock) key_ = false;
  });
  if (!found) throw source.Fault(0, "a group has no block");
}

std::vector<Bytes> LiveBlock::Frames(const Encodings& encodings) {
  const mp4::MemorySource source(bytes_, name_);
  Reader reader(source);
  if (block_.frames.empty()) ReadFrames(reader, block_);
  std::vector<Bytes> frames;
  for (const FramePlace& place : block_.frames) {
    frames.push_back(reader.Run(place.at, place.size));
    if (encodings.touchesFrames()) frames.back() = encodings.Undo(source, place.at, frames.back(), false);
  }
  return frames;
}

Bytes LiveBlock::BlockWith(const std::vector<Bytes>& frames) const {
  const ByteSpan all(bytes_);
  const Element& element = block_.element;
  Bytes body(all.begin() + static_cast<std::ptrdiff_t>(element.body),
             all.begin() + static_cast<std::ptrdiff_t>(block_.flagsAt));
  if (block_.laced()) {
    Append(body, MakeLaced(block_, frames));
  } else {
    body.push_back(block_.flags);
    Append(body, frames.front());
  }
  return Around(all.subspan(static_cast<size_t>(element.at), element.idBytes), element.sizeBytes, body);
}

Bytes LiveBlock::With(const std::vector<Bytes>& frames, const Encodings& encodings) const {
  const mp4::MemorySource source(bytes_, name_);
  std::vector<Bytes> coded = frames;
  if (encodings.touchesFrames()) {
    for (Bytes& frame : coded) frame = encodings.Do(source, block_.flagsAt, frame, false);
  }
  const Bytes block = BlockWith(coded);
  if (element_.id == id::kSimpleBlock) return block;
  const ByteSpan all(bytes_);
  Bytes body;
  Reader reader(source);
  ForEachElement(reader, element_.body, element_.end, limits_, [&](const Element& child) {
    if (child.at == block_.element.at) return Append(body, block);
    const size_t from = body.size();
    Append(body, all.subspan(static_cast<size_t>(child.at), static_cast<size_t>(child.end - child.at)));
    // A checksum of what was.
    if (child.id == id::kCrc) body[from] = static_cast<uint8_t>(id::kVoid);
  });
  return Around(all.first(element_.idBytes), element_.sizeBytes, body);
}

}  // namespace qlnmedia::mkv
