// Lays elements out again and again until every place fits the field that names it.

#include "mkv/build_elements.h"

#include <algorithm>
#include <map>

namespace qln::test::mkv {

namespace {

void PutBig(Bytes& out, uint64_t value, size_t bytes) {
  for (size_t i = bytes; i-- > 0;) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

size_t BytesOf(uint64_t value) {
  size_t bytes = 1;
  while (bytes < 8 && value >> (8 * bytes) != 0) ++bytes;
  return bytes;
}

size_t LeastBytes(uint64_t size) {
  size_t least = 1;
  while (size >= (uint64_t{1} << (7 * least)) - 1) ++least;
  return least;
}

void PutSize(Bytes& out, uint64_t size, size_t bytes) {
  bytes = std::max(bytes, LeastBytes(size));
  PutBig(out, size | uint64_t{1} << (7 * bytes), bytes);
}

// Bit by bit, as RFC 8794 has it from ISO 3309.
uint32_t Crc(const uint8_t* data, size_t size) {
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 0; i < size; ++i) {
    crc ^= data[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320u : 0u);
  }
  return ~crc;
}

struct Laid {
  uint64_t at = 0, body = 0, end = 0;
};

class Builder {
 public:
  Bytes Run(const std::vector<Part>& parts) {
    Bytes out;
    for (;;) {
      const std::map<int, Laid> before = labels_;
      out.clear();
      for (const Part& part : parts) Write(part, out, 0);
      bool same = before.size() == labels_.size();
      for (const auto& [label, laid] : labels_) {
        const auto found = before.find(label);
        same = same && found != before.end() && found->second.at == laid.at && found->second.end == laid.end;
      }
      if (same) return out;
    }
  }

 private:
  // `base`: where `out` stands in the file.
  void Write(const Part& part, Bytes& out, uint64_t base) {
    const size_t at = out.size();
    PutBig(out, part.id, BytesOf(part.id));
    // Once it is known, so that what is named in front of where it stands is right at once.
    size_t& width = widths_[&part];
    width = std::max<size_t>({width, part.sizeBytes, 1});
    Bytes body;
    for (;;) {
      const uint64_t begin = base + out.size() + width;
      if (part.id == 0x18538067) segmentBody_ = begin;
      body = Body(part, begin);
      const size_t least = part.open ? 1 : LeastBytes(body.size());
      if (part.label != 0) labels_[part.label] = {base + at, begin, begin + body.size()};
      if (least <= width) break;
      width = least;
    }
    const uint64_t size = part.open ? (uint64_t{1} << (7 * width)) - 1 : body.size();
    PutBig(out, size | uint64_t{1} << (7 * width), width);
    out.insert(out.end(), body.begin(), body.end());
  }

  Bytes Body(const Part& part, uint64_t base) {
    if (part.target != 0 || part.sizeOf != 0) return Place(part);
    Bytes body = part.data;
    if (part.checksum) body = {0xBF, 0x84, 0, 0, 0, 0};
    for (const Part& child : part.parts) Write(child, body, base);
    if (part.checksum) {
      const uint32_t crc = Crc(body.data() + 6, body.size() - 6);
      for (size_t i = 0; i < 4; ++i) body[2 + i] = static_cast<uint8_t>(crc >> (8 * i));
    }
    return body;
  }

  Bytes Place(const Part& part) {
    uint64_t value = 0;
    if (part.sizeOf != 0) {
      value = labels_[part.sizeOf].end - labels_[part.sizeOf].at;
    } else {
      const uint64_t from = part.from == Part::From::kSegment ? segmentBody_ : labels_[part.cluster].body;
      const uint64_t at = labels_[part.target].at;
      value = at < from ? 0 : at - from;
    }
    Bytes out;
    PutBig(out, value, std::max(part.dataBytes, BytesOf(value)));
    return out;
  }

  std::map<int, Laid> labels_;
  std::map<const Part*, size_t> widths_;
  uint64_t segmentBody_ = 0;
};

void PutLaceSizes(Bytes& out, const std::vector<Bytes>& frames, Lacing lacing) {
  for (size_t i = 0; i + 1 < frames.size(); ++i) {
    const auto size = static_cast<int64_t>(frames[i].size());
    if (lacing == Lacing::kXiph) {
      for (int64_t left = size;; left -= 255) {
        out.push_back(static_cast<uint8_t>(std::min<int64_t>(left, 255)));
        if (left < 255) break;
      }
    } else if (lacing == Lacing::kEbml && i == 0) {
      PutSize(out, static_cast<uint64_t>(size), 1);
    } else if (lacing == Lacing::kEbml) {
      // Two bytes throughout: the difference with a bias of 2^13 - 1.
      const int64_t step = size - static_cast<int64_t>(frames[i - 1].size()) + 8191;
      PutBig(out, static_cast<uint64_t>(step) | 0x4000u, 2);
    }
  }
}

}  // namespace

Part Leaf(uint64_t id, Bytes data) {
  Part part;
  part.id = id;
  part.data = std::move(data);
  return part;
}

Part Number(uint64_t id, uint64_t value, size_t bytes) {
  Bytes data;
  PutBig(data, value, bytes == 0 ? BytesOf(value) : bytes);
  return Leaf(id, data);
}

Part Text(uint64_t id, const std::string& text) { return Leaf(id, Bytes(text.begin(), text.end())); }

Part Master(uint64_t id, std::vector<Part> parts) {
  Part part;
  part.id = id;
  part.parts = std::move(parts);
  return part;
}

Part Place(uint64_t id, int target, size_t bytes) {
  Part part;
  part.id = id;
  part.target = target;
  part.dataBytes = bytes;
  return part;
}

Bytes BlockBytes(uint64_t track, int16_t time, uint8_t flags, const std::vector<Bytes>& frames,
                 Lacing lacing) {
  Bytes out;
  PutSize(out, track, 1);
  PutBig(out, static_cast<uint16_t>(time), 2);
  out.push_back(static_cast<uint8_t>(flags | static_cast<uint8_t>(lacing)));
  if (lacing != Lacing::kNone) {
    out.push_back(static_cast<uint8_t>(frames.size() - 1));
    PutLaceSizes(out, frames, lacing);
  }
  for (const Bytes& frame : frames) out.insert(out.end(), frame.begin(), frame.end());
  return out;
}

Bytes Build(const std::vector<Part>& parts) { return Builder().Run(parts); }

Part Head(uint64_t maxSizeLength) {
  return Master(0x1A45DFA3, {Number(0x42F2, 4), Number(0x42F3, maxSizeLength), Text(0x4282, "matroska")});
}

Part Track(uint64_t number, const std::vector<Part>& extra) {
  Part track = Master(0xAE, {Number(0xD7, number), Number(0x83, 1), Text(0x86, "V_MPEG4/ISO/AVC")});
  track.parts.insert(track.parts.end(), extra.begin(), extra.end());
  return track;
}

Part Info() { return Master(0x1549A966, {Number(0x2AD7B1, 1000000, 3)}); }

}  // namespace qln::test::mkv
