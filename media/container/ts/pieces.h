// Bytes in a row that stand in several places.
#ifndef MEDIA_CONTAINER_TS_PIECES_H
#define MEDIA_CONTAINER_TS_PIECES_H

#include <algorithm>
#include <array>
#include <span>
#include <vector>

#include "container/ts/packet.h"

namespace qlnmedia::ts {

class Pieces {
 public:
  Pieces() = default;
  explicit Pieces(std::span<const ByteSpan> list) {
    for (const ByteSpan piece : list) Add(piece);
  }

  size_t size() const { return size_; }
  void Add(ByteSpan piece) {
    if (piece.empty()) return;
    list_.push_back(piece);
    size_ += piece.size();
  }
  void Add(const Pieces& other) {
    for (size_t i = other.next_; i < other.list_.size(); ++i) Add(other.list_[i]);
  }

  // The first `size` bytes, which then are no longer in here: pieces of them, or where they lie, brought
  // together in `room` where they stand in several.
  Pieces Take(size_t size) {
    Pieces taken;
    while (size != 0) {
      taken.Add(TakeSome(size));
      size -= taken.list_.back().size();
    }
    return taken;
  }
  ByteSpan Take(size_t size, std::array<uint8_t, kMostPayload>& room) {
    if (size == 0) return {};
    const ByteSpan first = TakeSome(size);
    if (first.size() == size) return first;
    auto to = std::copy(first.begin(), first.end(), room.begin());
    for (size_t left = size - first.size(); left != 0;) {
      const ByteSpan more = TakeSome(left);
      to = std::copy(more.begin(), more.end(), to);
      left -= more.size();
    }
    return ByteSpan(room).first(size);
  }

 private:
  // Not more than stands in one piece; there is some.
  ByteSpan TakeSome(size_t size) {
    ByteSpan& piece = list_[next_];
    const ByteSpan taken = piece.first(std::min(size, piece.size()));
    piece = piece.subspan(taken.size());
    if (piece.empty()) ++next_;
    size_ -= taken.size();
    return taken;
  }

  std::vector<ByteSpan> list_;
  size_t next_ = 0;
  size_t size_ = 0;
};

}  // namespace qlnmedia::ts

#endif
