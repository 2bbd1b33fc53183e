// Reads heads and nothing else; every size is held against what surrounds it before it is used.

#include "container/mp4/box_tree.h"

namespace qlnmedia::mp4 {

std::string BoxName(const Box& box) { return "box '" + TypeName(box.type) + "'"; }

bool BoxLevel::Next(Box& box) {
  if (end_ < at_ || end_ - at_ < 8) {
    rest_ = end_ > at_ && (end_ - at_ != 4 || reader_->U32(at_) != 0);
    return false;
  }
  uint64_t size = reader_->U32(at_);
  Box found;
  found.type = reader_->U32(at_ + 4);
  found.at = at_;
  found.body = at_ + 8;
  if (size == 1) {
    if (end_ - at_ < 16) {
      rest_ = true;
      return false;
    }
    size = reader_->U64(at_ + 8);
    found.body = at_ + 16;
  } else if (size == 0 && top_) {
    found.toEnd = true;
    size = end_ - at_;
  }
  if (size < found.body - at_) {
    rest_ = true;
    return false;
  }
  found.declared = size;
  found.overruns = size > end_ - at_;
  found.end = found.overruns ? end_ : at_ + size;
  at_ = found.end;
  box = found;
  return true;
}

std::optional<Box> FindBox(Reader& reader, const Box& parent, uint32_t type, uint64_t headBytes) {
  BoxLevel level = BoxLevel::Inside(reader, parent, headBytes);
  for (Box box; level.Next(box);) {
    if (box.type == type) return box;
  }
  return std::nullopt;
}

void RequireBody(Reader& reader, const Box& box, uint64_t bodyBytes) {
  if (box.overruns) {
    throw reader.source().Fault(box.at, BoxName(box) + " says " + std::to_string(box.declared) +
                                            " bytes where " + std::to_string(box.size()) + " are left");
  }
  if (box.bodySize() < bodyBytes) {
    throw reader.source().Fault(box.at,
                                BoxName(box) + " is too short: " + std::to_string(box.size()) + " bytes");
  }
}

uint64_t MetaHeadBytes(Reader& reader, const Box& meta) {
  const bool plain = meta.bodySize() >= 8 && reader.U32(meta.body + 4) == FourCc("hdlr");
  return plain ? 0 : 4;
}

}  // namespace qlnmedia::mp4
