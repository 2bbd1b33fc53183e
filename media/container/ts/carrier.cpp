// Reads rows as far as the given bytes ask for, lays changed PES packets over their packets anew, and writes
// what is settled.

#include "container/ts/carrier.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace qlnmedia::ts {

namespace {

// A PES packet that has had no packet for so many rows is at its end: a stream that others outlive does not
// hold up the rest of the file.
constexpr uint64_t kQuietRows = 250000;
constexpr size_t kMostRowsWaiting = 2000000;

constexpr size_t kPesFlagsAt = 7;
constexpr uint8_t kChecksum = 0x02;
constexpr size_t kPesHead = 9;      // bytes up to PES_header_data_length, it included
constexpr size_t kPesLengthAt = 4;  // of PES_packet_length
constexpr size_t kPesBeforeLength = 6;
constexpr uint64_t kMostPesLength = 0xFFFF;

constexpr uint8_t kTimes = 0xC0, kPresentationTime = 0x80;  // PTS_DTS_flags
constexpr size_t kTimesAt = 9;
constexpr size_t kTimeBytes = 5;

// Rows that are settled are written when so many of them wait.
constexpr size_t kRowsTogether = 4096;

constexpr uint32_t kArrivalMask = 0x3FFFFFFF;

uint32_t ArrivalTime(const Row& row) {
  return (uint32_t{row.bytes[0]} << 24 | uint32_t{row.bytes[1]} << 16 | uint32_t{row.bytes[2]} << 8 |
          row.bytes[3]) &
         kArrivalMask;
}

void SetArrivalTime(Row& row, uint32_t time) {
  row.bytes[0] = static_cast<uint8_t>((row.bytes[0] & 0xC0) | (time >> 24 & 0x3F));
  for (size_t i = 1; i < 4; ++i) row.bytes[i] = static_cast<uint8_t>(time >> (24 - 8 * i));
}

// A time stamp of 33 bits between marker bits.
uint64_t TimeAt(const uint8_t* bytes) {
  return uint64_t{bytes[0] & 0x0EU} << 29 | uint64_t{bytes[1]} << 22 | uint64_t{bytes[2] & 0xFEU} << 14 |
         uint64_t{bytes[3]} << 7 | bytes[4] >> 1;
}

void Append(Bytes& bytes, ByteSpan more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

}  // namespace

Carrier::Carrier(const mp4::Source& source, mp4::Sink* sink, const std::set<uint16_t>& identifiers,
                 Watch watch)
    : source_(source), sink_(sink), watch_(std::move(watch)), rows_(source, true) {
  for (const uint16_t identifier : identifiers) {
    streams_.emplace_back().identifier = identifier;
    streamOf_[identifier] = static_cast<uint16_t>(streams_.size());
  }
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
  if (watch_) watch_(row);
  Queue(row);
  return true;
}

void Carrier::Queue(const Row& row) {
  const auto found = row.isPacket ? streamOf_.find(row.identifier()) : streamOf_.end();
  if (found == streamOf_.end()) {
    queue_.push_back({row.bytes, row.size, row.isPacket});
    if (queue_.size() % kRowsTogether == 0) Write();
    EndQuiet();
    return;
  }
  if (row.scrambled())
    throw source_.Fault(rows_.at() - row.size, "a packet of the stream that is to change is scrambled");
  Stream& stream = streams_[found->second - 1U];
  if (row.startsUnit() && row.hasPayload()) {
    if (Pes* const open = stream.open()) {
      EndPes(*open);
      Settle(stream);
    }
    stream.packets.emplace_back().bytes.reserve(stream.usual + stream.usual / 8);
    stream.started = true;
  }
  queue_.push_back({row.bytes, row.size, row.isPacket});
  Pes* const open = stream.open();
  if (open == nullptr) {
    QueueBetween(stream, found->second);
    return;
  }
  queue_.back().stream = found->second;
  open->rows.push_back(first_ + queue_.size() - 1);
  Append(open->bytes, row.payload());
  EndQuiet();
}

// The packet that was queued last stands in front of the stream's first PES packet, or behind one that went
// quiet.
void Carrier::QueueBetween(Stream& stream, uint16_t tag) {
  Row row = RowAt(first_ + queue_.size() - 1);
  if (stream.started && row.hasPayload())
    throw source_.Fault(rows_.at() - row.size,
                        "a PES packet of the stream that is to change goes on after a long gap");
  if (stream.packets.empty()) {
    if (stream.shift != 0) {
      const bool parity = HasParity(row);
      row.SetCounter(row.counter() + stream.shift);
      if (parity) PutParity(row);
    }
  } else {
    queue_.back().stream = tag;
    stream.packets.back().rows.push_back(first_ + queue_.size() - 1);
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
    if (open == nullptr || open->rows.back() + kQuietRows > first_ + queue_.size()) continue;
    EndPes(*open);
    Settle(stream);
  }
}

// Its rows are all there: what is head, elementary stream and tail of its bytes.
void Carrier::EndPes(Pes& pes) {
  pes.end = first_ + queue_.size();
  const Bytes& bytes = pes.bytes;
  pes.headBytes = bytes.size();
  const bool isPes = bytes.size() >= kPesHead && bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 1 &&
                     (bytes[6] & 0xC0) == 0x80;
  if (!isPes) return;
  const size_t head = kPesHead + bytes[kPesHead - 1];
  const size_t length = size_t{bytes[kPesLengthAt]} << 8 | bytes[kPesLengthAt + 1];
  const size_t end = length == 0 ? bytes.size() : std::min(bytes.size(), kPesBeforeLength + length);
  if (head > end) return;
  pes.headBytes = head;
  pes.tailBytes = bytes.size() - end;
}

// The first PES packet with bytes that were not given yet.
Carrier::Pes& Carrier::NeedBytes(Stream& stream) {
  for (;;) {
    for (Pes& pes : stream.packets) {
      if (pes.end != 0 && pes.given < pes.streamBytes()) return pes;
    }
    if (!ReadRow())
      throw source_.Fault(rows_.at(), "the elementary stream ends before the bytes that a reader has of it");
  }
}

// What stands in front of the bytes that a reader begins with stays as it is.
void Carrier::FindBegin(Stream& stream, ByteSpan was) {
  for (;;) {
    Pes& pes = NeedBytes(stream);
    const ByteSpan has = pes.stream();
    if (std::equal(has.begin(), has.begin() + static_cast<std::ptrdiff_t>(std::min(has.size(), was.size())),
                   was.begin()))
      break;
    pes.given = pes.streamBytes();
    Settle(stream);
  }
  stream.begun = true;
}

// `is` stands for the next bytes of the PES packet.
void Carrier::Give(Stream& stream, Pes& pes, size_t size, ByteSpan is) {
  const ByteSpan has = pes.stream().subspan(pes.given, size);
  if (!pes.changed && !std::equal(has.begin(), has.end(), is.begin(), is.end())) {
    pes.changed = true;
    pes.edited.reserve(pes.bytes.size() + is.size());
    Append(pes.edited, ByteSpan(pes.bytes).first(pes.headBytes + pes.given));
  }
  if (pes.changed) Append(pes.edited, is);
  pes.given += size;
  if (pes.given == pes.streamBytes()) Settle(stream);
}

// The next bytes of a stream are replaced. Where `was` is given it is what they must be.
void Carrier::Spread(Stream& stream, size_t size, ByteSpan is, ByteSpan was) {
  for (bool first = true; size != 0; first = false) {
    Pes& pes = NeedBytes(stream);
    const size_t part = std::min(size, pes.streamBytes() - pes.given);
    const ByteSpan has = pes.stream().subspan(pes.given, part);
    if (!was.empty() && !std::equal(has.begin(), has.end(), was.begin()))
      throw source_.Fault(rows_.at(), "the elementary stream is not what a reader has of it");
    // What comes in goes where the bytes begin; PES packets behind keep their sizes.
    const size_t behind = size - part;
    size_t put = behind == 0 ? is.size() : std::min(part, is.size());
    if (first && is.size() > behind) put = is.size() - behind;
    Give(stream, pes, part, is.first(put));
    size = behind;
    is = is.subspan(put);
    if (!was.empty()) was = was.subspan(part);
  }
}

void Carrier::Take(uint16_t identifier, ByteSpan was, ByteSpan is) {
  Stream& stream = streams_[streamOf_.at(identifier) - 1U];
  if (!was.empty() && !stream.begun) FindBegin(stream, was);
  Spread(stream, was.size(), is, was);
}

void Carrier::Replace(uint16_t identifier, size_t size, ByteSpan is) {
  Spread(streams_[streamOf_.at(identifier) - 1U], size, is, {});
}

void Carrier::Keep(uint16_t identifier, size_t size) {
  Stream& stream = streams_[streamOf_.at(identifier) - 1U];
  while (size != 0) {
    Pes& pes = NeedBytes(stream);
    const size_t part = std::min(size, pes.streamBytes() - pes.given);
    Give(stream, pes, part, pes.stream().subspan(pes.given, part));
    size -= part;
  }
}

bool Carrier::Next(PesView& view) {
  for (;;) {
    Stream* of = nullptr;
    Pes* next = nullptr;
    for (Stream& stream : streams_) {
      for (Pes& pes : stream.packets) {
        if (pes.end == 0 || pes.shown || pes.streamBytes() == 0) continue;
        if (next != nullptr && next->end <= pes.end) break;
        of = &stream;
        next = &pes;
        break;
      }
    }
    if (next == nullptr) {
      if (!ReadRow()) return false;
      continue;
    }
    next->shown = true;
    const uint8_t* const bytes = next->bytes.data();
    view = {of->identifier, bytes[3], {}, {}, next->stream()};
    const uint8_t times = bytes[kPesFlagsAt] & kTimes;
    if ((times & kPresentationTime) != 0 && next->headBytes >= kTimesAt + kTimeBytes)
      view.pts = TimeAt(bytes + kTimesAt);
    if (times == kTimes && next->headBytes >= kTimesAt + 2 * kTimeBytes)
      view.dts = TimeAt(bytes + kTimesAt + kTimeBytes);
    return true;
  }
}

void Carrier::Finish() {
  while (ReadRow()) {
  }
  for (Stream& stream : streams_) {
    for (Pes& pes : stream.packets) {
      if (pes.changed) Append(pes.edited, pes.stream().subspan(pes.given));
      pes.given = pes.streamBytes();
    }
    Settle(stream);
  }
  Write();
}

void Carrier::Settle(Stream& stream) {
  for (; !stream.packets.empty(); stream.packets.pop_front()) {
    Pes& pes = stream.packets.front();
    if (pes.end == 0 || pes.given < pes.streamBytes()) break;
    const bool checksFormer = pes.headBytes > kPesFlagsAt && (pes.bytes[kPesFlagsAt] & kChecksum) != 0;
    if (stream.changedBefore && checksFormer)
      throw source_.Fault(rows_.at(),
                          "PES packets have checksums of the ones in front of them, which change");
    if (pes.changed || stream.shift != 0) Lay(stream, pes);
    stream.changedBefore = pes.changed;
    stream.usual = pes.bytes.size();
    for (const uint64_t number : pes.rows) At(number).stream = 0;
  }
  Write();
}

// Head, elementary stream and tail as they go out.
ByteSpan Carrier::PayloadOf(Pes& pes) const {
  if (!pes.changed) return pes.bytes;
  Bytes& out = pes.edited;
  Append(out, ByteSpan(pes.bytes).last(pes.tailBytes));
  if (out[kPesLengthAt] != 0 || out[kPesLengthAt + 1] != 0) {
    // A video stream's may say nothing of its length (clause 2.4.3.7).
    uint64_t length = out.size() - pes.tailBytes - kPesBeforeLength;
    if (length > kMostPesLength) {
      if (pes.tailBytes != 0) throw source_.Fault(rows_.at(), "a PES packet becomes too long");
      length = 0;
    }
    out[kPesLengthAt] = static_cast<uint8_t>(length >> 8);
    out[kPesLengthAt + 1] = static_cast<uint8_t>(length);
  }
  return out;
}

Row Carrier::RowAt(uint64_t number) {
  const Entry& entry = At(number);
  const size_t front = entry.isPacket ? rows_.form().front : 0;
  return {entry.bytes, entry.size, static_cast<uint8_t>(front), entry.isPacket};
}

// Makes a row one like another, with a packet of the stream.
void Carrier::MakeRow(Row& row, const Row& like, uint16_t identifier) {
  if (row.bytes != like.bytes) std::copy_n(like.bytes, like.size, row.bytes);
  row.MakeNull();
  row.packet()[1] = static_cast<uint8_t>(identifier >> 8);
  row.packet()[2] = static_cast<uint8_t>(identifier);
}

void Carrier::Lay(Stream& stream, Pes& pes) {
  const ByteSpan payload = PayloadOf(pes);
  std::vector<Slot> slots;
  slots.reserve(pes.rows.size());
  size_t room = 0;
  for (const uint64_t number : pes.rows) {
    const Row row = RowAt(number);
    slots.push_back({row, number, Slot::kOwn, row.payload().size()});
    room += slots.back().payload;
  }
  std::vector<RowBytes> more;
  if (payload.size() < room) {
    size_t left = payload.size();
    for (Slot& slot : slots) {
      slot.payload = std::min(slot.payload, left);
      left -= slot.payload;
    }
  }
  if (payload.size() > room) {
    size_t need = payload.size() - room;
    for (auto slot = slots.rbegin(); slot != slots.rend() && need != 0; ++slot) {
      if (slot->payload == 0) continue;
      const size_t taken = std::min(need, slot->row.room() - slot->payload);
      slot->payload += taken;
      need -= taken;
    }
    for (uint64_t number = pes.rows.front() + 1; need != 0 && number < pes.end; ++number) {
      const Row row = RowAt(number);
      if (At(number).stream != 0 || !row.isPacket || row.identifier() != kNullIdentifier) continue;
      const size_t taken = std::min(need, kMostPayload);
      slots.push_back({row, number, Slot::kNull, taken});
      need -= taken;
      ++counts_.fromNull;
    }
    std::sort(slots.begin(), slots.end(), [](const Slot& a, const Slot& b) { return a.number < b.number; });
    more.resize((need + kMostPayload - 1) / kMostPayload);
    counts_.putIn += more.size();
    const PacketForm& form = rows_.form();
    for (RowBytes& bytes : more) {
      const size_t taken = std::min(need, kMostPayload);
      const Row row{bytes.data(), static_cast<uint8_t>(form.row), static_cast<uint8_t>(form.front), true};
      slots.push_back({row, slots.back().number, Slot::kPutIn, taken});
      need -= taken;
    }
  }
  Fill(stream, payload, slots);
  if (!more.empty()) PutBehind(slots.back().number, std::move(more));
}

void Carrier::PutBehind(uint64_t number, std::vector<RowBytes> more) {
  const PacketForm& form = rows_.form();
  if (form.front != 0 && number + 1 < first_ + queue_.size()) {
    const uint32_t from = ArrivalTime(RowAt(number));
    const uint32_t gap = (ArrivalTime(RowAt(number + 1)) - from) & kArrivalMask;
    for (size_t i = 0; i < more.size(); ++i) {
      Row row{more[i].data(), static_cast<uint8_t>(form.row), static_cast<uint8_t>(form.front), true};
      SetArrivalTime(row, static_cast<uint32_t>(from + uint64_t{gap} * (i + 1) / (more.size() + 1)));
    }
  }
  At(number).hasBehind = true;
  std::vector<RowBytes>& behind = behind_[number];
  behind.insert(behind.end(), more.begin(), more.end());
}

// Lays the payload over the slots in their order, and counts on.
void Carrier::Fill(Stream& stream, ByteSpan payload, const std::vector<Slot>& slots) {
  Row last;
  bool parity = false;
  for (const Slot& slot : slots) {
    Row row = slot.row;
    if (slot.kind != Slot::kPutIn) parity = HasParity(row);
    if (slot.kind != Slot::kOwn) MakeRow(row, slot.kind == Slot::kPutIn ? last : row, stream.identifier);
    const bool hadPayload = !row.payload().empty();
    uint32_t counter = row.counter() + stream.shift;
    if (slot.kind != Slot::kOwn) {
      ++stream.shift;
      counter = last.counter() + 1U;
    } else if (hadPayload && slot.payload == 0) {
      --stream.shift;
      --counter;
    }
    if (hadPayload && slot.payload == 0 && row.adaptationContent() == 0) {
      row.MakeNull();
      ++counts_.toNull;
    } else {
      if (hadPayload) row.SetPayload(payload.first(slot.payload));
      row.SetCounter(counter);
      payload = payload.subspan(slot.payload);
      last = row;
    }
    if (parity) PutParity(row);
  }
}

// Rows that stand side by side in memory go out as one piece.
void Carrier::Write() {
  ByteSpan together;
  const auto flush = [&] {
    if (sink_ != nullptr && !together.empty()) sink_->Write(together);
    together = {};
  };
  for (; !queue_.empty() && queue_.front().stream == 0; queue_.pop_front(), ++first_) {
    const Entry& entry = queue_.front();
    if (together.data() + together.size() != entry.bytes) flush();
    together = together.empty() ? ByteSpan(entry.bytes, entry.size)
                                : ByteSpan(together.data(), together.size() + entry.size);
    written_ += entry.size;
    if (!entry.hasBehind) continue;
    flush();
    const auto behind = behind_.find(first_);
    for (const RowBytes& bytes : behind->second) {
      if (sink_ != nullptr) sink_->Write(ByteSpan(bytes).first(rows_.form().row));
    }
    behind_.erase(behind);
  }
  flush();
  rows_.Forget(written_);
}

}  // namespace qlnmedia::ts
