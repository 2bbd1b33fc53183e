// Reads rows as far as the given bytes ask for, lays changed PES packets over their packets anew, and writes
// what is settled.

#include "container/ts/carrier.h"

#include <algorithm>
#include <cstring>
#include <string>

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

}  // namespace

Carrier::Carrier(const mp4::Source& source, mp4::Sink* sink, const std::set<uint16_t>& identifiers)
    : source_(source), sink_(sink), rows_(source) {
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
  Queue(row);
  return true;
}

void Carrier::Queue(const Row& row) {
  const auto found = row.isPacket ? streamOf_.find(row.identifier()) : streamOf_.end();
  if (found == streamOf_.end()) {
    if (queue_.empty()) {
      if (sink_ != nullptr) sink_->Write(row.all());
      ++first_;
      return;
    }
    queue_.push_back({row, 0, {}});
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
    stream.packets.emplace_back();
    stream.started = true;
  }
  queue_.push_back({row, 0, {}});
  Pes* const open = stream.open();
  if (open == nullptr) {
    QueueBetween(stream, found->second);
    return;
  }
  queue_.back().stream = found->second;
  open->rows.push_back(first_ + queue_.size() - 1);
  const ByteSpan payload = row.payload();
  open->bytes.insert(open->bytes.end(), payload.begin(), payload.end());
  EndQuiet();
}

// The packet that was queued last stands in front of the stream's first PES packet, or behind one that went
// quiet.
void Carrier::QueueBetween(Stream& stream, uint16_t tag) {
  Row& row = queue_.back().row;
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

void Carrier::Take(uint16_t identifier, ByteSpan was, ByteSpan is) {
  Stream& stream = streams_[streamOf_.at(identifier) - 1U];
  if (!was.empty() && !stream.begun) FindBegin(stream, was);
  for (bool first = true; !was.empty(); first = false) {
    Pes& pes = NeedBytes(stream);
    const size_t part = std::min(was.size(), pes.streamBytes() - pes.given);
    const ByteSpan has = pes.stream().subspan(pes.given, part);
    if (!std::equal(has.begin(), has.end(), was.begin()))
      throw source_.Fault(rows_.at(), "the elementary stream is not what a reader has of it");
    // What comes in goes where the bytes begin; PES packets behind keep their sizes.
    const size_t behind = was.size() - part;
    size_t put = behind == 0 ? is.size() : std::min(part, is.size());
    if (first && is.size() > behind) put = is.size() - behind;
    const ByteSpan piece = is.first(put);
    if (!pes.changed && !std::equal(has.begin(), has.end(), piece.begin(), piece.end())) {
      pes.changed = true;
      const ByteSpan before = pes.stream().first(pes.given);
      pes.edited.assign(before.begin(), before.end());
    }
    if (pes.changed) pes.edited.insert(pes.edited.end(), piece.begin(), piece.end());
    pes.given += part;
    was = was.subspan(part);
    is = is.subspan(put);
    if (pes.given == pes.streamBytes()) Settle(stream);
  }
}

void Carrier::Finish() {
  while (ReadRow()) {
  }
  for (Stream& stream : streams_) {
    for (Pes& pes : stream.packets) {
      const ByteSpan rest = pes.stream().subspan(pes.given);
      if (pes.changed) pes.edited.insert(pes.edited.end(), rest.begin(), rest.end());
      pes.given = pes.streamBytes();
    }
    Settle(stream);
  }
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
    for (const uint64_t number : pes.rows) At(number).stream = 0;
  }
  Write();
}

// Head, elementary stream and tail as they go out.
Bytes Carrier::PayloadOf(const Pes& pes) const {
  const auto byte = [](const Bytes& bytes, size_t at) {
    return bytes.begin() + static_cast<std::ptrdiff_t>(at);
  };
  Bytes out(pes.bytes.begin(), byte(pes.bytes, pes.headBytes));
  if (!pes.changed) return pes.bytes;
  out.insert(out.end(), pes.edited.begin(), pes.edited.end());
  out.insert(out.end(), byte(pes.bytes, pes.bytes.size() - pes.tailBytes), pes.bytes.end());
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

// A packet of the stream, in a row like another one.
Row Carrier::MakeRow(const Row& like, uint16_t identifier) {
  Row row = like;
  row.MakeNull();
  row.packet()[1] = static_cast<uint8_t>(identifier >> 8);
  row.packet()[2] = static_cast<uint8_t>(identifier);
  return row;
}

void Carrier::Lay(Stream& stream, const Pes& pes) {
  const Bytes payload = PayloadOf(pes);
  std::vector<Slot> slots;
  size_t room = 0;
  for (const uint64_t number : pes.rows) {
    Row& row = At(number).row;
    slots.push_back({&row, number, true, row.payload().size()});
    room += slots.back().payload;
  }
  std::vector<Row> more;
  if (payload.size() < room) {
    size_t left = payload.size();
    for (Slot& slot : slots) {
      slot.payload = std::min(slot.payload, left);
      left -= slot.payload;
    }
  }
  if (payload.size() > room) {
    size_t need = payload.size() - room;
    for (auto slot = slots.rbegin(); slot != slots.rend(); ++slot) {
      if (slot->payload == 0) continue;
      const size_t taken = std::min(need, slot->row->room() - slot->payload);
      slot->payload += taken;
      need -= taken;
    }
    for (uint64_t number = pes.rows.front() + 1; need != 0 && number < pes.end; ++number) {
      Entry& entry = At(number);
      if (entry.stream != 0 || !entry.row.isPacket || entry.row.identifier() != kNullIdentifier) continue;
      const size_t taken = std::min(need, kMostPayload);
      slots.push_back({&entry.row, number, false, taken});
      need -= taken;
      ++counts_.fromNull;
    }
    std::sort(slots.begin(), slots.end(), [](const Slot& a, const Slot& b) { return a.number < b.number; });
    more.resize((need + kMostPayload - 1) / kMostPayload);
    counts_.putIn += more.size();
    for (Row& row : more) {
      const size_t taken = std::min(need, kMostPayload);
      slots.push_back({&row, slots.back().number, false, taken});
      need -= taken;
    }
  }
  Fill(stream, payload, slots);
  if (more.empty()) return;
  const uint64_t last = slots.back().number;
  if (rows_.form().front != 0 && last + 1 < first_ + queue_.size()) {
    const uint32_t from = ArrivalTime(At(last).row);
    const uint32_t gap = (ArrivalTime(At(last + 1).row) - from) & kArrivalMask;
    for (size_t i = 0; i < more.size(); ++i)
      SetArrivalTime(more[i], static_cast<uint32_t>(from + uint64_t{gap} * (i + 1) / (more.size() + 1)));
  }
  std::vector<Row>& behind = At(last).behind;
  behind.insert(behind.end(), more.begin(), more.end());
}

// Lays the payload over the slots in their order, and counts on.
void Carrier::Fill(Stream& stream, ByteSpan payload, const std::vector<Slot>& slots) {
  const Row* last = nullptr;
  bool parity = false;
  for (const Slot& slot : slots) {
    Row& row = *slot.row;
    const bool isNew = row.size == 0;
    if (!isNew) parity = HasParity(row);
    if (!slot.own) row = MakeRow(isNew ? *last : row, stream.identifier);
    const uint8_t counted = row.counter();
    const bool hadPayload = !row.payload().empty();
    uint32_t counter = counted + stream.shift;
    if (!slot.own) {
      ++stream.shift;
      counter = last->counter() + 1U;
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
      last = &row;
    }
    if (parity) PutParity(row);
  }
}

void Carrier::Write() {
  for (; !queue_.empty() && queue_.front().stream == 0; queue_.pop_front(), ++first_) {
    if (sink_ == nullptr) continue;
    const Entry& entry = queue_.front();
    sink_->Write(entry.row.all());
    for (const Row& row : entry.behind) sink_->Write(row.all());
  }
}

}  // namespace qlnmedia::ts
