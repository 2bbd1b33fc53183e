// Lays changed PES packets over their packets anew, and writes what is settled.

#include <algorithm>
#include <utility>

#include "container/ts/carrier.h"

namespace qlnmedia::ts {

namespace {

constexpr uint64_t kMostPesLength = 0xFFFF;

}  // namespace

// Head, elementary stream and tail as they go out.
Pieces Carrier::PayloadOf(Pes& pes) const {
  Pieces stream = std::move(pes.whole);
  stream.Add(ByteSpan(pes.edited));
  if (pes.head[kPesLengthAt] != 0 || pes.head[kPesLengthAt + 1] != 0) {
    // A video stream's may say nothing of its length (clause 2.4.3.7).
    uint64_t length = pes.head.size() + stream.size() - kPesBeforeLength;
    if (length > kMostPesLength) {
      if (!pes.tail.empty()) throw source_.Fault(rows_.at(), "a PES packet becomes too long");
      length = 0;
    }
    pes.head[kPesLengthAt] = static_cast<uint8_t>(length >> 8);
    pes.head[kPesLengthAt + 1] = static_cast<uint8_t>(length);
  }
  Pieces payload;
  payload.Add(ByteSpan(pes.head));
  payload.Add(stream);
  payload.Add(ByteSpan(pes.tail));
  return payload;
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

// Null packets up to the end of the PES packet become its own. Returns the bytes that still need room.
size_t Carrier::TakeNullPackets(const Pes& pes, size_t need, std::vector<Slot>& slots) {
  const size_t own = slots.size();
  for (uint64_t number = pes.rows.front().number + 1; need != 0 && number < pes.end; ++number) {
    if (At(number).stream != 0) continue;
    const Row row = RowAt(number);
    if (!row.isPacket || row.identifier() != kNullIdentifier) continue;
    const size_t taken = std::min(need, kMostPayload);
    slots.push_back({row, number, Slot::kNull, taken});
    need -= taken;
    ++counts_.fromNull;
  }
  if (slots.size() != own)
    std::sort(slots.begin(), slots.end(), [](const Slot& a, const Slot& b) { return a.number < b.number; });
  return need;
}

void Carrier::Lay(Stream& stream, Pes& pes) {
  const Pieces payload = PayloadOf(pes);
  const size_t size = payload.size();
  std::vector<Slot> slots;
  slots.reserve(pes.rows.size() + 2);
  size_t room = 0;
  for (const PesRow& row : pes.rows) {
    slots.push_back({RowAt(row.number), row.number, Slot::kOwn, row.payload});
    room += row.payload;
  }
  std::vector<RowBytes> more;
  if (size < room) {
    size_t left = size;
    for (Slot& slot : slots) {
      slot.payload = std::min(slot.payload, left);
      left -= slot.payload;
    }
  }
  if (size > room) {
    size_t need = size - room;
    for (auto slot = slots.rbegin(); slot != slots.rend() && need != 0; ++slot) {
      if (slot->payload == 0) continue;
      const size_t taken = std::min(need, slot->row.room() - slot->payload);
      slot->payload += taken;
      need -= taken;
    }
    need = TakeNullPackets(pes, need, slots);
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

// One that keeps its bytes goes on behind the counters in front of it.
void Carrier::Recount(const Stream& stream, const Pes& pes) {
  for (const PesRow& of : pes.rows) {
    Row row = RowAt(of.number);
    const bool parity = HasParity(row);
    row.SetCounter(row.counter() + stream.shift);
    if (parity) PutParity(row);
  }
}

void Carrier::PutBehind(uint64_t number, std::vector<RowBytes> more) {
  const PacketForm& form = rows_.form();
  if (form.front != 0 && number + 1 < first_ + queue_.size()) {
    const uint32_t from = ArrivalTime(RowAt(number));
    const Row next = RowAt(number + 1);
    const uint32_t gap = next.isPacket ? (ArrivalTime(next) - from) & kArrivalMask : 0;
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
void Carrier::Fill(Stream& stream, Pieces payload, const std::vector<Slot>& slots) {
  std::array<uint8_t, kMostPayload> room{};
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
      if (hadPayload) row.SetPayload(payload.Take(slot.payload, room));
      row.SetCounter(counter);
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
