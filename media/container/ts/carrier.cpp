// Reads rows as far as the given bytes ask for, and finds PES packets in them.

#include "container/ts/carrier.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "container/live/arriving_source.h"

namespace qlnmedia::ts {

namespace {

// A PES packet that has had no packet for so many rows is at its end: a stream that others outlive does not
// hold up the rest of the file.
constexpr uint64_t kQuietRows = 250000;
constexpr size_t kMostRowsWaiting = 2000000;

constexpr size_t kPesFlagsAt = 7;
constexpr uint8_t kChecksum = 0x02;
constexpr size_t kPesHead = 9;  // bytes up to PES_header_data_length, it included

constexpr uint8_t kTimes = 0xC0, kPresentationTime = 0x80;  // PTS_DTS_flags
constexpr size_t kTimesAt = 9;
constexpr size_t kTimeBytes = 5;

// Rows that are settled are written when so many of them wait.
constexpr size_t kRowsTogether = 4096;

// A time stamp of 33 bits between marker bits.
uint64_t TimeAt(const uint8_t* bytes) {
  return uint64_t{bytes[0] & 0x0EU} << 29 | uint64_t{bytes[1]} << 22 | uint64_t{bytes[2] & 0xFEU} << 14 |
         uint64_t{bytes[3]} << 7 | bytes[4] >> 1;
}

// The bytes in front of the elementary stream's; 0 where none of them can be told.
size_t HeadOf(ByteSpan bytes) {
  const bool isPes = bytes.size() >= kPesHead && bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 1 &&
                     (bytes[6] & 0xC0) == 0x80;
  const size_t head = isPes ? kPesHead + bytes[kPesHead - 1] : 0;
  return head <= bytes.size() ? head : 0;
}

void Append(Bytes& bytes, ByteSpan more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

}  // namespace

Carrier::Carrier(const mp4::Source& source, mp4::Sink* sink, const std::set<uint16_t>& identifiers,
                 Watch watch)
    : source_(source),
      sink_(sink),
      watch_(std::move(watch)),
      rows_(source, true),
      streamOf_(kNullIdentifier + 1) {
  for (const uint16_t identifier : identifiers) {
    streams_.emplace_back().identifier = identifier;
    streamOf_[identifier] = static_cast<uint16_t>(streams_.size());
  }
}

void Carrier::Move(uint16_t from, uint16_t to) {
  EndOpen(Of(from));
  if (streamOf_[to] != 0) return;
  streams_.emplace_back().identifier = to;
  streamOf_[to] = static_cast<uint16_t>(streams_.size());
}

bool Carrier::ReadRow() {
  Row row;
  if (!rows_.Next(row)) {
    bool ended = false;
    for (Stream& stream : streams_) {
      Pes* const open = stream.open();
      if (open == nullptr) continue;
      EndPes(*open);
      Settle(stream);
      ended = true;
    }
    return ended;
  }
  if (BreaksOff(row)) {
    counts_.leftOut = row.size;
    return true;
  }
  if (watch_) watch_(row);
  Queue(row);
  return true;
}

// Whether the source of a stream that never was a file ends within a packet: what went out is whole ones.
bool Carrier::BreaksOff(const Row& row) const {
  const size_t front = rows_.form().front;
  return atOnce_ && !row.isPacket && row.size > front && row.bytes[front] == kSync &&
         AvailableOf(source_, rows_.at(), 1) == 0;
}

void Carrier::Queue(const Row& row) {
  const uint16_t tag = row.isPacket ? streamOf_[row.identifier()] : uint16_t{0};
  if (tag == 0) {
    queue_.push_back({row.bytes, row.size, row.isPacket});
    if (atOnce_ || queue_.size() % kRowsTogether == 0) Write();
    EndQuiet();
    return;
  }
  Stream& stream = streams_[tag - 1U];
  if (row.scrambled()) {
    if (!atOnce_)
      throw source_.Fault(rows_.at() - row.size, "a packet of the stream that is to change is scrambled");
    EndOpen(stream);
    stream.started = false;
  } else if (row.startsUnit() && row.hasPayload()) {
    EndOpen(stream);
    stream.packets.emplace_back().bytes.reserve(stream.usual + stream.usual / 8);
    stream.started = true;
  }
  queue_.push_back({row.bytes, row.size, row.isPacket});
  Pes* const open = stream.open();
  if (open == nullptr) {
    QueueBetween(stream, tag);
    return;
  }
  queue_.back().stream = tag;
  ByteSpan payload = row.payload();
  open->rows.push_back({first_ + queue_.size() - 1, payload.size()});
  if (open->rows.size() == 1) {
    const size_t head = HeadOf(payload);
    Append(open->head, payload.first(head));
    payload = payload.subspan(head);
  }
  Append(open->bytes, payload);
  EndQuiet();
}

void Carrier::EndOpen(Stream& stream) {
  Pes* const open = stream.open();
  if (open == nullptr) return;
  EndPes(*open);
  Settle(stream);
}

// The packet that was queued last stands in front of the stream's first PES packet, or behind one that went
// quiet.
void Carrier::QueueBetween(Stream& stream, uint16_t tag) {
  Row row = RowAt(first_ + queue_.size() - 1);
  if (stream.started && row.hasPayload() && !atOnce_)
    throw source_.Fault(rows_.at() - row.size,
                        "a PES packet of the stream that is to change goes on after a long gap");
  if (stream.packets.empty()) {
    if (stream.shift != 0) {
      const bool parity = HasParity(row);
      row.SetCounter(row.counter() + stream.shift);
      if (parity) PutParity(row);
    }
  } else if (!atOnce_ || !row.hasPayload()) {
    queue_.back().stream = tag;
    stream.packets.back().rows.push_back({first_ + queue_.size() - 1, 0});
  }
  Write();
  EndQuiet();
}

void Carrier::EndQuiet() {
  if (queue_.size() < kQuietRows) return;
  if (queue_.size() >= kMostRowsWaiting)
    throw source_.Fault(rows_.at(),
                        "the streams of the file stand too far apart, or a PES packet does not end");
  for (Stream& stream : streams_) {
    Pes* const open = stream.open();
    if (open == nullptr || open->rows.back().number + kQuietRows > first_ + queue_.size()) continue;
    EndPes(*open);
    Settle(stream);
  }
}

// Its rows are all there: what is head, elementary stream and tail of its bytes.
void Carrier::EndPes(Pes& pes) {
  pes.end = first_ + queue_.size();
  ++ended_;
  Bytes& bytes = pes.bytes;
  const auto move = [&bytes](size_t from, size_t to, Bytes& into) {
    Append(into, ByteSpan(bytes).subspan(from, to - from));
    bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(from),
                bytes.begin() + static_cast<std::ptrdiff_t>(to));
  };
  if (pes.head.empty()) {
    const size_t head = HeadOf(bytes);
    move(0, head == 0 ? bytes.size() : head, pes.head);
  }
  if (HeadOf(pes.head) == 0) return;
  const size_t length = size_t{pes.head[kPesLengthAt]} << 8 | pes.head[kPesLengthAt + 1];
  const size_t all = pes.head.size() + bytes.size();
  const size_t end = length == 0 ? all : std::min(all, kPesBeforeLength + length);
  if (pes.head.size() > end) {
    move(0, bytes.size(), pes.head);
  } else {
    pes.size = end - pes.head.size();
    move(pes.size, bytes.size(), pes.tail);
  }
}

// The first PES packet with bytes that were not given yet.
Carrier::Pes& Carrier::NeedBytes(Stream& stream) {
  for (;;) {
    for (Pes& pes : stream.packets) {
      if (pes.end != 0 && pes.given < pes.size) return pes;
    }
    if (!ReadRow())
      throw source_.Fault(rows_.at(), "the elementary stream ends before the bytes that a reader has of it");
  }
}

// What stands in front of the bytes that a reader begins with stays as it is.
void Carrier::FindBegin(Stream& stream, ByteSpan was) {
  for (;;) {
    Pes& pes = NeedBytes(stream);
    const Bytes& has = pes.bytes;
    if (std::equal(has.begin(), has.begin() + static_cast<std::ptrdiff_t>(std::min(has.size(), was.size())),
                   was.begin()))
      break;
    pes.given = pes.size;
    Settle(stream);
  }
  stream.begun = true;
}

// `is` stands for the next bytes of the PES packet.
void Carrier::Give(Pes& pes, size_t size, ByteSpan is) {
  const size_t from = std::exchange(pes.given, pes.given + size);
  if (!pes.changed) {
    const ByteSpan has = ByteSpan(pes.bytes).subspan(from, size);
    if (std::equal(has.begin(), has.end(), is.begin(), is.end())) return;
    pes.changed = true;
    Append(pes.edited, ByteSpan(pes.bytes).first(from));
  }
  Append(pes.edited, is);
}

void Carrier::Take(uint16_t identifier, ByteSpan was, ByteSpan is) {
  Stream& stream = Of(identifier);
  if (!was.empty() && !stream.begun) FindBegin(stream, was);
  for (bool first = true; !was.empty(); first = false) {
    Pes& pes = NeedBytes(stream);
    const size_t part = std::min(was.size(), pes.size - pes.given);
    const ByteSpan has = ByteSpan(pes.bytes).subspan(pes.given, part);
    if (!std::equal(has.begin(), has.end(), was.begin()))
      throw source_.Fault(rows_.at(), "the elementary stream is not what a reader has of it");
    // What comes in goes where the bytes begin; PES packets behind keep their sizes.
    const size_t behind = was.size() - part;
    size_t put = behind == 0 ? is.size() : std::min(part, is.size());
    if (first && is.size() > behind) put = is.size() - behind;
    Give(pes, part, is.first(put));
    if (pes.given == pes.size) Settle(stream);
    was = was.subspan(part);
    is = is.subspan(put);
  }
}

void Carrier::Replace(uint16_t identifier, size_t packets, std::span<const ByteSpan> is) {
  Stream& stream = Of(identifier);
  size_t behind = 0;
  size_t left = packets;
  for (const Pes& pes : stream.packets) {
    if (left == 0) break;
    if (pes.size == 0) continue;
    if (left-- != packets) behind += pes.size;
  }
  Pieces pieces(is);
  for (bool first = true; packets > 0; --packets, first = false) {
    Pes& pes = NeedBytes(stream);
    if (!first) behind -= pes.size;
    size_t put = behind == 0 ? pieces.size() : std::min(pes.size, pieces.size());
    if (first && pieces.size() > behind) put = pieces.size() - behind;
    pes.given = pes.size;
    pes.changed = true;
    pes.whole = pieces.Take(put);
    Settle(stream);
  }
}

void Carrier::Keep(uint16_t identifier, size_t packets) {
  Stream& stream = Of(identifier);
  for (; packets > 0; --packets) {
    Pes& pes = NeedBytes(stream);
    pes.given = pes.size;
    Settle(stream);
  }
}

bool Carrier::Next(PesView& view) {
  for (;;) {
    Stream* of = nullptr;
    Pes* next = nullptr;
    for (Stream& stream : streams_) {
      const auto found = std::find_if(stream.packets.begin(), stream.packets.end(), [](const Pes& pes) {
        return pes.end != 0 && !pes.shown && pes.size != 0;
      });
      if (found == stream.packets.end() || (next != nullptr && next->end <= found->end)) continue;
      of = &stream;
      next = &*found;
    }
    if (next != nullptr) {
      next->shown = true;
      view = {of->identifier, next->head[3], {}, {}, std::exchange(next->bytes, {})};
      const uint8_t times = next->head[kPesFlagsAt] & kTimes;
      if ((times & kPresentationTime) != 0 && next->head.size() >= kTimesAt + kTimeBytes)
        view.pts = TimeAt(next->head.data() + kTimesAt);
      if (times == kTimes && next->head.size() >= kTimesAt + 2 * kTimeBytes)
        view.dts = TimeAt(next->head.data() + kTimesAt + kTimeBytes);
      return true;
    }
    for (const uint64_t ended = ended_; ended_ == ended;) {
      if (!ReadRow()) return false;
    }
  }
}

void Carrier::Finish() {
  while (ReadRow()) {
  }
  for (Stream& stream : streams_) {
    for (Pes& pes : stream.packets) {
      if (pes.changed) Append(pes.edited, ByteSpan(pes.bytes).subspan(pes.given));
      pes.given = pes.size;
    }
    Settle(stream);
  }
  Write();
}

void Carrier::Settle(Stream& stream) {
  for (; !stream.packets.empty(); stream.packets.pop_front()) {
    Pes& pes = stream.packets.front();
    if (pes.end == 0 || pes.given < pes.size) break;
    const bool checksFormer = pes.head.size() > kPesFlagsAt && (pes.head[kPesFlagsAt] & kChecksum) != 0;
    if (stream.changedBefore && checksFormer)
      throw source_.Fault(rows_.at(),
                          "PES packets have checksums of the ones in front of them, which change");
    if (pes.changed) Lay(stream, pes);
    if (!pes.changed && stream.shift != 0) Recount(stream, pes);
    stream.changedBefore = pes.changed;
    stream.usual = pes.size;
    for (const PesRow& row : pes.rows) At(row.number).stream = 0;
  }
  Write();
}

}  // namespace qlnmedia::ts
