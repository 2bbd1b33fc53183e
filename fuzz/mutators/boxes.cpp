#include <algorithm>
#include <cstring>
#include <string_view>

#include "mutators/formats.h"

namespace qln::fuzz {

namespace {

constexpr int kDepth = 24;
enum Form { kShort, kLong, kOpen };

// Fields in front of the boxes that stand in a box of this type; -1 where it holds none.
int FieldsOf(std::string_view type, const uint8_t* body, size_t size) {
  static constexpr std::string_view kPlain[] = {"moov", "trak", "mdia", "minf", "stbl", "edts",
                                                "dinf", "moof", "traf", "mvex", "udta", "mfra",
                                                "sinf", "schi", "gmhd", "tref"};
  static constexpr std::string_view kPictures[] = {"avc1", "avc2", "avc3", "avc4", "hvc1", "hev1", "hvc2",
                                                   "hev2", "dvh1", "dvhe", "dva1", "dvav", "encv"};
  const auto among = [&](const auto& names) {
    return std::find(std::begin(names), std::end(names), type) != std::end(names);
  };
  if (among(kPlain)) return 0;
  if (among(kPictures)) return 78;
  if (type == "stsd" || type == "dref") return 8;
  if (type == "mp4a" || type == "enca") return 28;
  // QuickTime's has no version and flags.
  if (type == "meta") return size >= 8 && std::memcmp(body + 4, "hdlr", 4) == 0 ? 0 : 4;
  return -1;
}

uint64_t Big(const uint8_t* from, int bytes) {
  uint64_t value = 0;
  for (int i = 0; i < bytes; ++i) value = value << 8 | from[i];
  return value;
}

void PutBig(uint64_t value, int bytes, Bytes& out) {
  for (int i = bytes; i-- > 0;) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

void ReadParts(const uint8_t* data, size_t size, Piece& holder, int depth) {
  size_t at = 0;
  while (size - at >= 8) {
    uint64_t length = Big(data + at, 4);
    size_t head = 8;
    int form = kShort;
    if (length == 0) {
      form = kOpen;
      length = size - at;
    } else if (length == 1 && size - at >= 16) {
      form = kLong;
      head = 16;
      length = Big(data + at + 8, 8);
    }
    if (length < head || length > size - at) break;
    Piece box;
    box.form = form;
    box.name.assign(data + at + 4, data + at + 8);
    const uint8_t* const body = data + at + head;
    const auto bodySize = static_cast<size_t>(length) - head;
    const int fields =
        FieldsOf({reinterpret_cast<const char*>(box.name.data()), box.name.size()}, body, bodySize);
    if (fields < 0 || static_cast<size_t>(fields) > bodySize || depth == kDepth) {
      box.rest.assign(body, body + bodySize);
    } else {
      box.prefix.assign(body, body + fields);
      ReadParts(body + fields, bodySize - static_cast<size_t>(fields), box, depth + 1);
    }
    holder.parts.push_back(std::move(box));
    at += static_cast<size_t>(length);
  }
  holder.rest.assign(data + at, data + size);
}

void WriteBox(const Piece& box, Bytes& out) {
  const size_t begin = out.size();
  PutBig(box.form == kLong ? 1 : 0, 4, out);
  out.insert(out.end(), box.name.begin(), box.name.end());
  if (box.form == kLong) PutBig(0, 8, out);
  out.insert(out.end(), box.prefix.begin(), box.prefix.end());
  for (const Piece& part : box.parts) WriteBox(part, out);
  out.insert(out.end(), box.rest.begin(), box.rest.end());
  if (box.form == kOpen) return;
  Bytes size;
  PutBig(out.size() - begin, box.form == kLong ? 8 : 4, size);
  std::copy(size.begin(), size.end(),
            out.begin() + static_cast<std::ptrdiff_t>(begin + (box.form == kLong ? 8 : 0)));
}

}  // namespace

Piece Boxes::Read(const uint8_t* data, size_t size) const {
  Piece whole;
  ReadParts(data, size, whole, 0);
  return whole;
}

void Boxes::Write(const Piece& whole, Bytes& out) const {
  for (const Piece& part : whole.parts) WriteBox(part, out);
  out.insert(out.end(), whole.rest.begin(), whole.rest.end());
}

}  // namespace qln::fuzz
