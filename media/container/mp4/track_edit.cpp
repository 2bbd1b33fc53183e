// Rewrites the tables of a track, entry by entry, with nothing of them in memory.

#include "container/mp4/track_edit.h"

#include <algorithm>

#include "container/mp4/memory_sink.h"

namespace qlnmedia::mp4 {

namespace {

// Gathers a table's bytes and hands them on in pieces.
class TableWriter {
 public:
  TableWriter(Splices& splices, uint64_t at, uint64_t removed) : splices_(splices) {
    splices_.Open(at, static_cast<uint32_t>(removed));
  }
  void Put(uint64_t value, size_t bytes) {
    PutNumber(piece_, value, bytes);
    if (piece_.size() >= 1 << 14) Flush();
  }
  void Close() {
    Flush();
    splices_.Close();
  }

 private:
  void Flush() {
    splices_.Append(piece_);
    piece_.clear();
  }

  Splices& splices_;
  Bytes piece_;
};

uint64_t EntryBytes(uint64_t count, uint8_t bits) { return (count * bits + 7) / 8; }

SizesShape PlanSizes(const Edit& edit, const Track& track) {
  const SizeTable& sizes = track.sizes;
  SizesShape shape;
  uint64_t largest = 0;
  uint64_t first = 0;
  bool equal = true;
  TableSamples samples(edit.source, track);
  for (Sample sample; samples.Next(sample);) {
    const uint64_t size = sample.inFile ? edit.SampleSize(sample.offset, sample.size) : sample.size;
    if (size > UINT32_MAX) {
      throw edit.source.Fault(sample.offset, "sample " + std::to_string(sample.number) + " would pass 4 GiB");
    }
    if (sample.number == 0) first = size;
    equal = equal && size == first;
    largest = std::max(largest, size);
    shape.changed = shape.changed || size != sample.size;
  }
  shape.bits = sizes.bits;
  if (!shape.changed) return shape;
  if (sizes.uniform != 0) {
    if (equal) shape.uniform = static_cast<uint32_t>(first);
    shape.growth = equal ? 0 : static_cast<int64_t>(EntryBytes(sizes.samples, 32));
  } else {
    while (shape.bits < 32 && largest >> shape.bits != 0) shape.bits = static_cast<uint8_t>(shape.bits * 2);
    shape.growth = static_cast<int64_t>(EntryBytes(sizes.samples, shape.bits)) -
                   static_cast<int64_t>(EntryBytes(sizes.samples, sizes.bits));
  }
  return shape;
}

void WriteSizes(Edit& edit, Reader& reader, const Track& track) {
  const auto found = edit.sizes.find(track.sizes.box.at);
  if (found == edit.sizes.end() || !found->second.changed) return;
  const SizesShape& shape = found->second;
  const SizeTable& sizes = track.sizes;
  const uint64_t head = sizes.box.body + 4;  // size or its bits, then the count
  if (shape.uniform != 0) return edit.PutNumber(reader, head, 4, shape.uniform, "the size of all samples");
  const bool becomesWide = shape.bits == 32 && sizes.box.type == FourCc("stz2");
  if (becomesWide) edit.PutNumber(reader, sizes.box.at + 4, 4, FourCc("stsz"), "the type of a table");
  const uint64_t oldBytes = sizes.uniform != 0 ? 0 : EntryBytes(sizes.samples, sizes.bits);
  TableWriter writer(edit.boxes, head, 8 + oldBytes);
  writer.Put(shape.bits == 32 ? 0 : reader.U32(head) >> 8 << 8 | shape.bits, 4);
  writer.Put(sizes.samples, 4);
  TableSamples samples(edit.source, track);
  uint8_t half = 0;
  for (Sample sample; samples.Next(sample);) {
    const uint64_t size = sample.inFile ? edit.SampleSize(sample.offset, sample.size) : sample.size;
    if (shape.bits != 4) {
      writer.Put(size, shape.bits / 8U);
    } else if (sample.number % 2 == 0) {
      half = static_cast<uint8_t>(size << 4);
      if (sample.number + 1 == sizes.samples) writer.Put(half, 1);
    } else {
      writer.Put(half | size, 1);
    }
  }
  writer.Close();
}

// Calls `take` with each entry of stco or co64 as it is and as it becomes; until it says false.
template <typename Take>
void ForEachChunkOffset(const Edit& edit, const Track& track, Take take) {
  const bool mixed = std::any_of(track.descriptions.begin(), track.descriptions.end(),
                                 [](const Description& description) { return !description.selfContained; });
  if (mixed) {
    ChunkCursor chunks(edit.source, track);
    for (Chunk chunk; chunks.Next(chunk);) {
      const bool here = track.IsSelfContained(chunk.description);
      if (!take(chunk.offset, here ? edit.Map(chunk.offset) : chunk.offset)) return;
    }
    return;
  }
  Reader reader(edit.source, 1 << 14);
  const size_t width = track.wideOffsets() ? 8 : 4;
  for (uint64_t i = 0; i < track.chunkOffsets.count; ++i) {
    const uint64_t old = reader.Number(track.chunkOffsets.at + i * width, width);
    if (!take(old, edit.Map(old))) return;
  }
}

void WriteChunkOffsets(Edit& edit, Reader& reader, const Track& track) {
  const Table& table = track.chunkOffsets;
  const bool widened = edit.wider.count(table.box.at) != 0;
  bool changed = widened;
  if (!changed) {
    ForEachChunkOffset(edit, track, [&](uint64_t old, uint64_t fresh) {
      changed = old != fresh;
      return !changed;
    });
  }
  if (!changed) return;
  if (widened) edit.PutNumber(reader, table.box.at + 4, 4, FourCc("co64"), "the type of a table");
  const size_t oldWidth = track.wideOffsets() ? 8 : 4;
  const size_t width = widened ? 8 : oldWidth;
  TableWriter writer(edit.boxes, table.at, table.count * oldWidth);
  uint64_t written = 0;
  ForEachChunkOffset(edit, track, [&](uint64_t, uint64_t fresh) {
    writer.Put(fresh, width);
    ++written;
    return true;
  });
  if (written != table.count) {
    throw edit.source.Fault(table.box.at, BoxName(table.box) + " names chunks that 'stsc' does not");
  }
  writer.Close();
}

struct AuxiliaryOffsets {
  uint64_t at = 0;  // of the first entry
  uint64_t count = 0;
  size_t width = 4;
};

AuxiliaryOffsets ReadAuxiliaryOffsets(Reader& reader, const Box& box) {
  RequireBody(reader, box, 8);
  AuxiliaryOffsets out;
  out.width = reader.U8(box.body) == 0 ? 4 : 8;
  const uint64_t head = (reader.U32(box.body) & 1) != 0 ? 12 : 4;  // with a type, or without
  RequireBody(reader, box, head + 4);
  out.count = reader.U32(box.body + head);
  out.at = box.body + head + 4;
  if (out.count > (box.end - out.at) / out.width) {
    throw reader.source().Fault(box.at,
                                "box 'saio' has no room for its " + std::to_string(out.count) + " entries");
  }
  return out;
}

// What moves by a place of 32 bits that has to have 64.
bool Needs64Bits(const Edit& edit, const Track& track) {
  bool needs = false;
  ForEachChunkOffset(edit, track, [&](uint64_t, uint64_t fresh) {
    needs = fresh > UINT32_MAX;
    return !needs;
  });
  return needs;
}

class TableSampleSizes final : public SampleSizes {
 public:
  TableSampleSizes(const Source& source, const Track& track) : samples_(source, track) {}
  bool Next(uint64_t& offset, uint32_t& size) override {
    Sample sample;
    if (!samples_.Next(sample)) return false;
    offset = sample.inFile ? sample.offset : UINT64_MAX - sample.size;
    size = sample.size;
    return true;
  }

 private:
  TableSamples samples_;
};

// Gives each part the growth of the changes in it; what is changed behind all of them belongs to none. False
// where a change begins in one part and ends in another.
bool GrowByChanges(const Edit& edit, uint64_t offset, uint32_t size, std::vector<uint64_t>& parts) {
  std::vector<uint64_t> grown = parts;
  size_t part = 0;
  uint64_t end = offset + (parts.empty() ? 0 : parts[0]);
  for (size_t i = edit.samples.FirstFrom(offset); i < edit.samples.size(); ++i) {
    const Splices::Splice splice = edit.samples.At(i);
    if (splice.at >= offset + size) break;
    while (part < parts.size() && splice.at >= end) end += ++part < parts.size() ? parts[part] : 0;
    if (part == parts.size()) break;
    if (splice.at + splice.removed > end) return false;
    grown[part] += splice.inserted;
    grown[part] -= splice.removed;
  }
  parts = std::move(grown);
  return true;
}

// Where each change lies within one part, that part takes its growth. Else parts are found again by their
// bytes, and what lies between two that are found belongs to the one part that is not.
std::vector<uint64_t> NewParts(const Edit& edit, uint64_t offset, uint32_t size, std::vector<uint64_t> parts,
                               uint64_t place) {
  if (GrowByChanges(edit, offset, size, parts)) return parts;
  Bytes old(size);
  edit.source.Read(offset, old);
  MemorySink sink;
  edit.samples.Apply(edit.source, offset, offset + size, sink, [](uint64_t) {});
  const Bytes& fresh = sink.bytes();
  auto at = old.cbegin();
  auto reached = fresh.begin();
  uint64_t* open = nullptr;  // the part that takes what is not found
  const auto close = [&](Bytes::const_iterator until) {
    const auto between = static_cast<uint64_t>(until - reached);
    if (open == nullptr && between != 0) return false;
    if (open != nullptr) *open = between;
    open = nullptr;
    return true;
  };
  for (uint64_t& part : parts) {
    if (part > static_cast<uint64_t>(old.end() - at))
      throw edit.source.Fault(place, "box 'subs' names more than a sample");
    const auto partEnd = at + static_cast<std::ptrdiff_t>(part);
    const auto found = part == 0 ? fresh.end() : std::search(reached, fresh.end(), at, partEnd);
    at = partEnd;
    if (found == fresh.end()) {
      if (open != nullptr)
        throw edit.source.Fault(place, "box 'subs' names parts of a sample that change together");
      open = &part;
      continue;
    }
    // What comes in front of a part that is found, and belongs to none, becomes its own.
    const bool mine = !close(found);
    const auto from = mine ? reached : found;
    reached = found + static_cast<std::ptrdiff_t>(part);
    part = static_cast<uint64_t>(reached - from);
  }
  // Behind the last part may stand what belongs to none.
  const auto rest = std::min(old.end() - at, fresh.end() - reached);
  const bool kept = std::equal(at, old.cend(), fresh.end() - rest, fresh.end());
  const auto until = kept ? fresh.end() - rest : fresh.end();
  if (!close(until) && at == old.end() && !parts.empty())
    parts.back() += static_cast<uint64_t>(fresh.end() - reached);
  return parts;
}

}  // namespace

void PlanTrack(Edit& edit, const Track& track) {
  if (edit.changedTracks.count(track.id) != 0 && track.sizes.samples != 0) {
    const SizesShape shape = PlanSizes(edit, track);
    edit.sizes[track.sizes.box.at] = shape;
    const uint64_t at = track.sizes.box.body + 4;
    edit.fixedGrowth.emplace_back(at, shape.growth);
  }
  for (const Description& description : track.descriptions) {
    const auto found = edit.descriptions.find(description.entry.at);
    if (found == edit.descriptions.end()) continue;
    const NewDescription& fresh = found->second;
    edit.fixedGrowth.emplace_back(
        fresh.at, static_cast<int64_t>(fresh.bytes.size()) - static_cast<int64_t>(fresh.end - fresh.at));
  }
}

void WidenTrack(Edit& edit, const Track& track, std::vector<std::pair<uint64_t, int64_t>>& widened) {
  if (!track.problem.empty()) return;
  const Table& chunks = track.chunkOffsets;
  if (!track.wideOffsets() && edit.wider.count(chunks.box.at) == 0 && Needs64Bits(edit, track)) {
    edit.wider.insert(chunks.box.at);
    widened.emplace_back(chunks.at, 4 * static_cast<int64_t>(chunks.count));
  }
  Reader reader(edit.source);
  for (const Box& box : track.auxiliaryOffsets) {
    const AuxiliaryOffsets offsets = ReadAuxiliaryOffsets(reader, box);
    if (offsets.width == 8 || edit.wider.count(box.at) != 0) continue;
    for (uint64_t i = 0; i < offsets.count; ++i) {
      if (edit.Map(reader.U32(offsets.at + 4 * i)) <= UINT32_MAX) continue;
      edit.wider.insert(box.at);
      widened.emplace_back(offsets.at, 4 * static_cast<int64_t>(offsets.count));
      break;
    }
  }
}

void WriteAuxiliaryOffsets(Edit& edit, Reader& reader, const Box& box, int64_t base, int64_t newBase) {
  const AuxiliaryOffsets offsets = ReadAuxiliaryOffsets(reader, box);
  const bool widened = edit.wider.count(box.at) != 0;
  bool changed = widened;
  Bytes fresh;
  for (uint64_t i = 0; i < offsets.count; ++i) {
    const uint64_t old = reader.Number(offsets.at + offsets.width * i, offsets.width);
    const uint64_t place = old + static_cast<uint64_t>(base);
    const uint64_t now = place > edit.source.size() ? old : edit.Map(place) - static_cast<uint64_t>(newBase);
    if (!widened && offsets.width == 4 && now > UINT32_MAX) {
      throw edit.source.Fault(box.at, "box 'saio' would name a place that does not fit its 32 bits");
    }
    changed = changed || now != old;
    PutNumber(fresh, now, widened ? 8 : offsets.width);
  }
  if (!changed || offsets.count == 0) return;
  if (widened) edit.boxes.Add(box.body, 1, Bytes{1});
  edit.boxes.Add(offsets.at, static_cast<uint32_t>(offsets.count * offsets.width), fresh);
}

void WriteSubSamples(Edit& edit, Reader& reader, const Box& box, SampleSizes& samples) {
  RequireBody(reader, box, 8);
  const size_t width = reader.U8(box.body) == 1 ? 4 : 2;
  const uint32_t entries = reader.U32(box.body + 4);
  uint64_t at = box.body + 8;
  uint64_t offset = 0;
  uint32_t size = 0;
  for (uint32_t i = 0; i < entries; ++i, at += 6) {
    RequireBody(reader, box, at + 6 - box.body);
    const uint32_t delta = reader.U32(at);
    const uint16_t parts = reader.U16(at + 4);
    for (uint32_t step = 0; step < delta; ++step) {
      if (!samples.Next(offset, size)) {
        throw reader.source().Fault(at, "box 'subs' names a sample that is not there");
      }
    }
    if (parts == 0) continue;
    RequireBody(reader, box, at + 6 + parts * (width + 6) - box.body);
    const size_t first = size == 0 || delta == 0 ? edit.samples.size() : edit.samples.FirstFrom(offset);
    const bool changes = first < edit.samples.size() && edit.samples.At(first).at < offset + size;
    std::vector<uint64_t> sizes;
    for (uint16_t part = 0; part < parts; ++part)
      sizes.push_back(reader.Number(at + 6 + part * (width + 6), width));
    const std::vector<uint64_t> fresh = changes ? NewParts(edit, offset, size, sizes, at) : sizes;
    for (uint16_t part = 0; part < parts; ++part, at += width + 6)
      edit.PutNumber(reader, at + 6, width, fresh[part], "the size of a part ('subs')");
  }
}

void WriteTrack(Edit& edit, const Track& track) {
  const bool described = std::any_of(
      track.descriptions.begin(), track.descriptions.end(),
      [&](const Description& description) { return edit.descriptions.count(description.entry.at) != 0; });
  if (!edit.moves() && !described) return;
  track.Require();
  Reader reader(edit.source);
  if (edit.moves()) {
    WriteSizes(edit, reader, track);
    WriteChunkOffsets(edit, reader, track);
    for (const Box& box : track.auxiliaryOffsets) {
      WriteAuxiliaryOffsets(edit, reader, box, 0, 0);
      edit.PutBoxSize(reader, box);
    }
  }
  if (edit.changedTracks.count(track.id) != 0) {
    for (const Box& box : track.subSamples) {
      TableSampleSizes sizes(edit.source, track);
      WriteSubSamples(edit, reader, box, sizes);
    }
  }
  for (const Description& description : track.descriptions) {
    const auto found = edit.descriptions.find(description.entry.at);
    if (found == edit.descriptions.end()) continue;
    const NewDescription& fresh = found->second;
    edit.boxes.AddDifference(fresh.at, reader.Run(fresh.at, fresh.end - fresh.at), fresh.bytes);
    edit.PutBoxSize(reader, description.entry);
  }
  for (const Box* box : {&track.sizes.box, &track.chunkOffsets.box, &track.descriptionList,
                         &track.sampleTable, &track.information, &track.media, &track.box}) {
    edit.PutBoxSize(reader, *box);
  }
}

}  // namespace qlnmedia::mp4
