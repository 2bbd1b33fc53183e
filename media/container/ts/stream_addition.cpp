// Reads the program maps of the file first, so that a map that grows is known when its first packet comes.

#include "container/ts/stream_addition.h"

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "container/ts/program_map.h"
#include "container/ts/row_reader.h"

namespace qlnmedia::ts {

namespace {

constexpr uint16_t kAssociationIdentifier = 0;
constexpr uint16_t kLowest = 0x20, kHighest = 0x1FFA;  // for streams (clause 2.4.3.3, and those of ATSC)

}  // namespace

StreamAddition::StreamAddition(const mp4::Source& source, uint16_t beside, uint8_t streamType,
                               const Bytes& descriptors)
    : source_(source), beside_(beside), streamType_(streamType), descriptors_(descriptors) {
  FindMap(beside);
  RowReader rows(source_);
  for (Row row; rows.Next(row);) {
    if (row.isPacket) TakeRow(row);
  }
  EndUnit();
  if (payloads_.empty()) throw Error(source_.name(), "has no whole program map for its pictures");
}

// The identifier under which a program map names the stream.
void StreamAddition::FindMap(uint16_t beside) {
  std::set<uint16_t> maps;
  std::map<uint16_t, Bytes> gathered;
  RowReader rows(source_);
  for (Row row; rows.Next(row);) {
    if (!row.isPacket) continue;
    const uint16_t identifier = row.identifier();
    used_.insert(identifier);
    if (!row.hasPayload() || (identifier != kAssociationIdentifier && maps.count(identifier) == 0)) continue;
    Bytes& bytes = gathered[identifier];
    if (row.startsUnit()) bytes.clear();
    if (bytes.empty() && !row.startsUnit()) continue;
    const ByteSpan payload = row.payload();
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    const auto sections = SectionsOf(bytes);
    if (!sections || !IsWhole(*sections)) continue;
    for (const Bytes& section : *sections) {
      if (identifier == kAssociationIdentifier) maps.merge(MapsOf(section));
      if (identifier == kAssociationIdentifier || !IsMapOf(section, beside)) continue;
      map_ = identifier;
      return;
    }
    bytes.clear();
  }
  throw Error(source_.name(), "has no program map that names its pictures");
}

void StreamAddition::TakeRow(const Row& row) {
  used_.insert(row.identifier());
  if (row.identifier() != map_ || !row.hasPayload()) return;
  if (row.startsUnit()) {
    EndUnit();
    unitOpen_ = true;
    units_.emplace_back();
  }
  if (!unitOpen_) return;
  const ByteSpan payload = row.payload();
  unit_.insert(unit_.end(), payload.begin(), payload.end());
  ++unitRows_;
  const auto sections = SectionsOf(unit_);
  if (!sections)
    throw Error(source_.name(), "has a program map that begins in the midst of a packet's sections");
  if (!IsWhole(*sections)) return;
  units_.back() = {unitRows_, PayloadOf(*sections)};
  EndUnit();
}

// What is not whole by now stays as it is.
void StreamAddition::EndUnit() {
  unitOpen_ = false;
  unit_.clear();
  unitRows_ = 0;
}

uint32_t StreamAddition::PayloadOf(const std::vector<Bytes>& sections) {
  Bytes payload = {0};  // pointer_field
  bool changed = false;
  for (const Bytes& section : sections) {
    const bool ours = IsMapOf(section, beside_);
    if (ours && identifier_ == 0) FindIdentifier();
    const std::optional<Bytes> map =
        ours ? WithStream(section, streamType_, identifier_, descriptors_) : std::optional<Bytes>(section);
    if (!map) throw Error(source_.name(), "has a program map that has no room for another stream");
    payload.insert(payload.end(), map->begin(), map->end());
    changed = changed || ours;
  }
  if (!changed) return 0;
  const auto found = std::find(payloads_.begin(), payloads_.end(), payload);
  if (found == payloads_.end()) payloads_.push_back(payload);
  return static_cast<uint32_t>(std::find(payloads_.begin(), payloads_.end(), payload) - payloads_.begin()) +
         1;
}

// Behind the streams of the program, where neither a packet nor a map has it.
void StreamAddition::FindIdentifier() {
  RowReader rows(source_);
  for (Row row; rows.Next(row);) {
    if (row.isPacket) used_.insert(row.identifier());
    if (!row.isPacket || !row.startsUnit() || !row.hasPayload()) continue;
    const auto sections = SectionsOf(row.payload());
    for (const Bytes& section : sections.value_or(std::vector<Bytes>())) used_.merge(StreamsOf(section));
  }
  identifier_ = std::max<uint16_t>(static_cast<uint16_t>(beside_ + 1), kLowest);
  while (identifier_ <= kHighest && used_.count(identifier_) != 0) ++identifier_;
  if (identifier_ > kHighest) {
    identifier_ = kLowest;
    while (used_.count(identifier_) != 0) ++identifier_;
  }
  if (identifier_ > kHighest) throw Error(source_.name(), "has no packet identifier that is free");
}

StreamAddition::Counts StreamAddition::Write(const NextPes& next, mp4::Sink* sink,
                                             const std::function<void(uint64_t at)>& progress) {
  sink_ = sink;
  RowReader rows(source_);
  PlacedPes pes;
  bool more = next(pes);
  Row row;
  while (rows.Next(row)) {
    progress(rows.at());
    for (; more && pes.from < rows.at(); more = next(pes)) Queue(pes);
    Flush(row, rows.at());
    if (row.isPacket && row.identifier() == kNullIdentifier && !waiting_.empty()) {
      PutInto(row, waiting_.front().payload, waiting_.front().starts);
      waiting_.pop_front();
      ++counts_.fromNull;
    } else if (row.isPacket && row.identifier() == map_) {
      PutMap(row);
      continue;
    }
    Put(row);
  }
  for (; more; more = next(pes)) Queue(pes);
  Flush(last_.row, UINT64_MAX);
  return counts_;
}

void StreamAddition::Queue(const PlacedPes& pes) {
  for (size_t at = 0; at < pes.bytes.size(); at += kMostPayload) {
    const auto begin = pes.bytes.begin() + static_cast<std::ptrdiff_t>(at);
    const size_t size = std::min(kMostPayload, pes.bytes.size() - at);
    waiting_.push_back({Bytes(begin, begin + static_cast<std::ptrdiff_t>(size)), at == 0, pes.by});
  }
}

// What found no null packet stands in front of `next`, which ends at `by`, at times between those of the
// packets around it.
void StreamAddition::Flush(const Row& next, uint64_t by) {
  size_t count = 0;
  while (count < waiting_.size() && waiting_[count].by < by) ++count;
  const Row& like = last_.row.isPacket ? last_.row : next;
  if (count == 0 || !like.isPacket) return;
  const uint32_t from = ArrivalTime(like);
  const uint32_t gap = next.isPacket ? (ArrivalTime(next) - from) & kArrivalMask : 0;
  for (size_t i = 0; i < count; ++i) {
    OwnRow own(like);
    Row& row = own.row;
    PutInto(row, waiting_.front().payload, waiting_.front().starts);
    if (row.front == 4)
      SetArrivalTime(row, static_cast<uint32_t>(from + uint64_t{gap} * (i + 1) / (count + 1)));
    waiting_.pop_front();
    Put(row);
    ++counts_.putIn;
  }
}

// Makes a packet of the stream of a row.
void StreamAddition::PutInto(Row& row, const Bytes& payload, bool starts) {
  const bool parity = HasParity(row);
  row.MakeNull();
  row.packet()[1] = static_cast<uint8_t>((starts ? 0x40 : 0) | identifier_ >> 8);
  row.packet()[2] = static_cast<uint8_t>(identifier_);
  row.SetPayload(payload);
  row.SetCounter(counter_++);
  if (parity) PutParity(row);
}

// A packet of the program map: the next bytes of the sections, and behind its last one packets for what has
// no room.
void StreamAddition::PutMap(Row& row) {
  const bool parity = HasParity(row);
  if (row.hasPayload() && row.startsUnit()) {
    const MapUnit& unit = units_.at(unitAt_++);
    mapRest_ = unit.payload == 0 ? nullptr : &payloads_[unit.payload - 1];
    mapRows_ = unit.rows;
    mapDone_ = 0;
  }
  const auto fill = [this](Row& packet, size_t size) {
    Bytes payload(size, kStuffing);
    const size_t piece = std::min(size, mapRest_->size() - mapDone_);
    std::copy_n(mapRest_->begin() + static_cast<std::ptrdiff_t>(mapDone_), piece, payload.begin());
    packet.SetPayload(payload);
    mapDone_ += piece;
  };
  row.SetCounter(row.counter() + mapShift_);
  const bool ours = mapRest_ != nullptr && mapRows_ != 0 && row.hasPayload();
  if (ours) {
    fill(row, row.payload().size());
    --mapRows_;
  }
  if (parity && (ours || mapShift_ % 16 != 0)) PutParity(row);
  Put(row);
  while (ours && mapRows_ == 0 && mapDone_ < mapRest_->size()) {
    const uint8_t counter = last_.row.counter();
    OwnRow more(last_.row);
    more.row.MakeNull();
    more.row.packet()[1] = static_cast<uint8_t>(map_ >> 8);
    more.row.packet()[2] = static_cast<uint8_t>(map_);
    fill(more.row, kMostPayload);
    more.row.SetCounter(counter + 1U);
    ++mapShift_;
    ++counts_.putIn;
    if (parity) PutParity(more.row);
    Put(more.row);
  }
}

void StreamAddition::OwnRow::Take(const Row& like) {
  std::copy_n(like.bytes, like.size, bytes.begin());
  row = like;
  row.bytes = bytes.data();
}

void StreamAddition::Put(const Row& row) {
  if (row.isPacket) last_.Take(row);
  if (sink_ != nullptr) sink_->Write(row.all());
}

}  // namespace qlnmedia::ts
