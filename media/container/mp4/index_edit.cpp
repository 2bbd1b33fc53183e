// Rewrites indexes entry by entry; each entry is a place, or the distance between two.

#include "container/mp4/index_edit.h"

namespace qlnmedia::mp4 {

namespace {

// An index may reach beyond the file, where segments stand in files of their own: that part keeps its size.
uint64_t Reach(const Edit& edit, uint64_t at) {
  const uint64_t size = edit.source.size();
  return at <= size ? edit.Map(at) : edit.Map(size) + (at - size);
}

struct SegmentIndex {
  uint64_t firstOffsetAt = 0;
  size_t firstOffsetBytes = 4;
  uint64_t entriesAt = 0;
  uint16_t count = 0;
  uint64_t dataAt = 0;
};

SegmentIndex ReadSegmentIndex(Reader& reader, const Box& sidx) {
  SegmentIndex out;
  RequireBody(reader, sidx, 24);
  out.firstOffsetBytes = reader.U8(sidx.body) == 0 ? 4 : 8;
  RequireBody(reader, sidx, 16 + 2 * out.firstOffsetBytes);
  out.firstOffsetAt = sidx.body + 12 + out.firstOffsetBytes;
  out.entriesAt = out.firstOffsetAt + out.firstOffsetBytes + 4;
  out.count = reader.U16(out.entriesAt - 2);
  RequireBody(reader, sidx, out.entriesAt + 12 * uint64_t{out.count} - sidx.body);
  const uint64_t first = reader.Number(out.firstOffsetAt, out.firstOffsetBytes);
  if (first > uint64_t{1} << 62) throw reader.source().Fault(sidx.at, "box 'sidx' begins beyond every file");
  out.dataAt = sidx.end + first;
  return out;
}

struct RandomAccess {
  uint64_t entriesAt = 0;
  uint64_t count = 0;
  size_t placeBytes = 4;
  uint64_t entryBytes = 0;
};

RandomAccess ReadRandomAccess(Reader& reader, const Box& tfra) {
  RequireBody(reader, tfra, 16);
  RandomAccess out;
  out.placeBytes = reader.U8(tfra.body) == 0 ? 4 : 8;
  const uint32_t lengths = reader.U32(tfra.body + 8);
  out.entryBytes = 2 * out.placeBytes + (lengths >> 4 & 3) + (lengths >> 2 & 3) + (lengths & 3) + 3;
  out.count = reader.U32(tfra.body + 12);
  out.entriesAt = tfra.body + 16;
  if (out.count > (tfra.end - out.entriesAt) / out.entryBytes) {
    throw reader.source().Fault(tfra.at,
                                "box 'tfra' has no room for its " + std::to_string(out.count) + " entries");
  }
  return out;
}

template <typename Take>
void ForEachRandomAccess(Reader& reader, const Box& mfra, Take take) {
  BoxLevel level = BoxLevel::Inside(reader, mfra);
  for (Box box; level.Next(box);) {
    if (box.type == FourCc("tfra")) take(box, ReadRandomAccess(reader, box));
  }
}

void WriteWiderRandomAccess(Edit& edit, Reader& reader, const Box& tfra, const RandomAccess& index) {
  Bytes fresh;
  for (uint64_t i = 0; i < index.count; ++i) {
    const uint64_t at = index.entriesAt + i * index.entryBytes;
    PutNumber(fresh, reader.U32(at), 8);
    PutNumber(fresh, edit.MapAbsolute(reader.U32(at + 4), tfra.at), 8);
    for (uint64_t j = 8; j < index.entryBytes; ++j) fresh.push_back(reader.U8(at + j));
  }
  edit.boxes.Add(tfra.body, 1, Bytes{1});
  edit.boxes.Add(index.entriesAt, static_cast<uint32_t>(index.count * index.entryBytes), fresh);
}

// Fields of `iloc` one after the other.
class Fields {
 public:
  Fields(Reader& reader, const Box& box) : reader_(reader), box_(box), at_(box.body) {}
  uint64_t Next(size_t bytes) {
    if (bytes == 0) return 0;
    if (box_.end - at_ < bytes) throw reader_.source().Fault(box_.at, BoxName(box_) + " is too short");
    at_ += bytes;
    return reader_.Number(at_ - bytes, bytes);
  }
  uint64_t at() const { return at_; }

 private:
  Reader& reader_;
  const Box& box_;
  uint64_t at_;
};

// Whether an item's data reference names this file; 0 says so by itself.
bool IsSelfContained(Reader& reader, const Box& meta, uint64_t reference) {
  if (reference == 0) return true;
  const auto dinf = FindBox(reader, meta, FourCc("dinf"), MetaHeadBytes(reader, meta));
  const auto dref = dinf ? FindBox(reader, *dinf, FourCc("dref")) : std::nullopt;
  if (!dref || dref->bodySize() < 8) return false;
  BoxLevel level = BoxLevel::Inside(reader, *dref, 8);
  for (Box box; level.Next(box);) {
    if (--reference == 0) return box.bodySize() >= 4 && (reader.U32(box.body) & 1) != 0;
  }
  return false;
}

class ItemLocationWriter {
 public:
  ItemLocationWriter(Edit& edit, Reader& reader, const Box& meta, const Box& iloc)
      : edit_(edit), reader_(reader), meta_(meta), fields_(reader, iloc) {}

  void Write() {
    version_ = fields_.Next(4) >> 24;
    const uint64_t widths = fields_.Next(2);
    offsetBytes_ = widths >> 12;
    lengthBytes_ = widths >> 8 & 15;
    baseBytes_ = widths >> 4 & 15;
    indexBytes_ = version_ == 0 ? 0 : widths & 15;
    for (const size_t bytes : {offsetBytes_, lengthBytes_, baseBytes_, indexBytes_}) {
      if (bytes > 8) throw reader_.source().Fault(fields_.at(), "box 'iloc' has fields of more than 64 bits");
    }
    for (uint64_t items = fields_.Next(version_ < 2 ? 2 : 4); items > 0; --items) WriteItem();
  }

 private:
  void WriteItem() {
    fields_.Next(version_ < 2 ? 2 : 4);
    const uint64_t method = version_ == 0 ? 0 : fields_.Next(2) & 15;
    const uint64_t reference = fields_.Next(2);
    const uint64_t baseAt = fields_.at();
    const uint64_t base = fields_.Next(baseBytes_);
    const bool ours = method == 0 && IsSelfContained(reader_, meta_, reference);
    // The base takes part of the way, so that extents keep what they say where they can.
    const uint64_t newBase = baseBytes_ == 0 || !ours ? base : edit_.MapAbsolute(base, meta_.at);
    const uint64_t origin = edit_.source.OriginOf(meta_.at);
    if (newBase != base) edit_.PutNumber(reader_, baseAt, baseBytes_, newBase, "base_offset ('iloc')");
    for (uint64_t extents = fields_.Next(2); extents > 0; --extents) {
      fields_.Next(indexBytes_);
      const uint64_t offsetAt = fields_.at();
      const uint64_t offset = fields_.Next(offsetBytes_);
      const uint64_t lengthAt = fields_.at();
      const uint64_t length = fields_.Next(lengthBytes_);
      const uint64_t size = edit_.source.size();
      const uint64_t begin = origin + base + offset;
      // Without a length an extent is the whole file.
      if (!ours || length == 0 || begin > size || length > size - begin) continue;
      const uint64_t now = edit_.MapAbsolute(base + offset, meta_.at) - newBase;
      if (now != offset) edit_.PutNumber(reader_, offsetAt, offsetBytes_, now, "extent_offset ('iloc')");
      const uint64_t nowLength = edit_.Map(begin + length) - edit_.Map(begin);
      if (nowLength != length)
        edit_.PutNumber(reader_, lengthAt, lengthBytes_, nowLength, "extent_length ('iloc')");
    }
  }

  Edit& edit_;
  Reader& reader_;
  const Box& meta_;
  Fields fields_;
  uint64_t version_ = 0;
  size_t offsetBytes_ = 0;
  size_t lengthBytes_ = 0;
  size_t baseBytes_ = 0;
  size_t indexBytes_ = 0;
};

}  // namespace

void WriteSegmentIndex(Edit& edit, Reader& reader, const Box& sidx) {
  const SegmentIndex index = ReadSegmentIndex(reader, sidx);
  const uint64_t first = Reach(edit, index.dataAt) - Reach(edit, sidx.end);
  edit.PutNumber(reader, index.firstOffsetAt, index.firstOffsetBytes, first, "first_offset ('sidx')");
  uint64_t at = index.dataAt;
  for (uint16_t i = 0; i < index.count; ++i) {
    const uint64_t field = index.entriesAt + 12 * uint64_t{i};
    const uint32_t word = reader.U32(field);
    const uint64_t end = at + (word & 0x7FFFFFFF);
    const uint64_t size = Reach(edit, end) - Reach(edit, at);
    if (size > 0x7FFFFFFF)
      throw edit.source.Fault(field, "referenced_size ('sidx') would not fit its 31 bits");
    edit.PutNumber(reader, field, 4, (word & 0x80000000U) | size, "referenced_size ('sidx')");
    at = end;
  }
}

void WriteSubsegmentIndex(Edit& edit, Reader& reader, const Box& ssix, const Box& sidx) {
  const SegmentIndex index = ReadSegmentIndex(reader, sidx);
  Fields fields(reader, ssix);
  fields.Next(4);
  uint64_t subsegments = fields.Next(4);
  uint64_t segmentAt = index.dataAt;
  for (uint16_t i = 0; i < index.count && subsegments > 0; ++i) {
    const uint32_t word = reader.U32(index.entriesAt + 12 * uint64_t{i});
    uint64_t at = segmentAt;
    segmentAt += word & 0x7FFFFFFF;
    if (word >> 31 != 0) continue;  // a reference to another index
    --subsegments;
    for (uint64_t ranges = fields.Next(4); ranges > 0; --ranges) {
      fields.Next(1);
      const uint64_t field = fields.at();
      const uint64_t end = at + fields.Next(3);
      edit.PutNumber(reader, field, 3, Reach(edit, end) - Reach(edit, at), "range_size ('ssix')");
      at = end;
    }
  }
}

void WidenRandomAccess(Edit& edit, Reader& reader, const Box& mfra,
                       std::vector<std::pair<uint64_t, int64_t>>& widened) {
  ForEachRandomAccess(reader, mfra, [&](const Box& tfra, const RandomAccess& index) {
    if (index.placeBytes == 8 || edit.wider.count(tfra.at) != 0) return;
    for (uint64_t i = 0; i < index.count; ++i) {
      const uint64_t place = reader.U32(index.entriesAt + i * index.entryBytes + 4);
      if (edit.MapAbsolute(place, tfra.at) <= UINT32_MAX) continue;
      edit.wider.insert(tfra.at);
      widened.emplace_back(index.entriesAt, 8 * static_cast<int64_t>(index.count));
      return;
    }
  });
}

void WriteRandomAccess(Edit& edit, Reader& reader, const Box& mfra) {
  ForEachRandomAccess(reader, mfra, [&](const Box& tfra, const RandomAccess& index) {
    if (edit.wider.count(tfra.at) != 0) {
      WriteWiderRandomAccess(edit, reader, tfra, index);
    } else {
      for (uint64_t i = 0; i < index.count; ++i) {
        const uint64_t at = index.entriesAt + i * index.entryBytes + index.placeBytes;
        const uint64_t place = reader.Number(at, index.placeBytes);
        edit.PutNumber(reader, at, index.placeBytes, edit.MapAbsolute(place, tfra.at),
                       "moof_offset ('tfra')");
      }
    }
    edit.PutBoxSize(reader, tfra);
  });
  const auto mfro = FindBox(reader, mfra, FourCc("mfro"));
  const int64_t growth = edit.Growth(mfra.at, mfra.end);
  if (mfro && mfro->bodySize() >= 8 && growth != 0) {
    const uint64_t size = reader.U32(mfro->body + 4) + static_cast<uint64_t>(growth);
    edit.PutNumber(reader, mfro->body + 4, 4, size, "the size in 'mfro'");
  }
  edit.PutBoxSize(reader, mfra);
}

void WriteItemLocations(Edit& edit, Reader& reader, const Box& meta) {
  const auto iloc = FindBox(reader, meta, FourCc("iloc"), MetaHeadBytes(reader, meta));
  if (!iloc) return;
  RequireBody(reader, *iloc, 8);
  ItemLocationWriter(edit, reader, meta, *iloc).Write();
}

}  // namespace qlnmedia::mp4
