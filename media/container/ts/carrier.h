// A transport stream with other bytes in some of its elementary streams: all packets but theirs stay as they
// are, in their order, and so do clock references, time stamps, and what else stands around the bytes that
// change.
//
//   Carrier carrier(source, sink, {0x100});
//   carrier.Take(0x100, was, is);   // the next bytes of the elementary stream, and what they become; again
//   and again carrier.Finish();
//
// A PES packet that grows takes the stuffing of its last packets, then null packets up to the next PES packet
// of its stream, then packets that are put in; one that shrinks leaves stuffing and null packets.
// PES_packet_length follows, continuity counters of the stream go on from there, with the gaps that they had.
// Memory: what stands between a PES packet's begin and the place to which elementary streams were given.
// Everything throws Error with the place. For one thread at a time.
#ifndef MEDIA_CONTAINER_TS_CARRIER_H
#define MEDIA_CONTAINER_TS_CARRIER_H

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <vector>

#include "container/mp4/source.h"
#include "container/mp4/splices.h"
#include "container/ts/packet.h"
#include "container/ts/row_reader.h"

namespace qlnmedia::ts {

class Carrier {
 public:
  // `sink` may be null: then nothing is written, and all else is done. Both are kept by the caller.
  Carrier(const mp4::Source& source, mp4::Sink* sink, const std::set<uint16_t>& identifiers);
  Carrier(const Carrier&) = delete;
  Carrier& operator=(const Carrier&) = delete;

  // The next bytes of an elementary stream, without a gap. What stands in front of the first ones stays.
  // Throws Error where the stream has other bytes there.
  void Take(uint16_t identifier, ByteSpan was, ByteSpan is);
  // What was not given stays.
  void Finish();

  struct Counts {
    uint64_t putIn = 0;     // packets that the stream had no room for
    uint64_t fromNull = 0;  // null packets that were taken
    uint64_t toNull = 0;    // packets that became null packets
  };
  const Counts& counts() const { return counts_; }

 private:
  struct Entry {
    Row row;
    uint16_t stream = 0;  // 1 and up for a packet of an edited stream that is not settled; else 0
    std::vector<Row> behind;
  };
  // From one packet that starts a unit to the next.
  struct Pes {
    std::vector<uint64_t> rows;  // by number
    uint64_t end = 0;            // the number behind the last row that may be used; 0 while it goes on
    Bytes bytes;                 // payloads in a row, until `end` is known
    size_t headBytes = 0;        // of them in front of the elementary stream's, and behind it
    size_t tailBytes = 0;
    Bytes edited;      // the elementary stream's bytes as they become
    size_t given = 0;  // of the bytes as they are
    bool changed = false;
    size_t streamBytes() const { return bytes.size() - headBytes - tailBytes; }
    ByteSpan stream() const { return ByteSpan(bytes).subspan(headBytes, streamBytes()); }
  };
  struct Stream {
    uint16_t identifier = 0;
    std::deque<Pes> packets;
    bool started = false;        // a PES packet has begun
    bool begun = false;          // bytes were given
    bool changedBefore = false;  // the PES packet that was settled last
    uint32_t shift = 0;          // of continuity counters, modulo 16
    Pes* open() { return packets.empty() || packets.back().end != 0 ? nullptr : &packets.back(); }
  };
  // A packet of a PES packet and the payload that it gets.
  struct Slot {
    Row* row = nullptr;
    uint64_t number = 0;
    bool own = false;
    size_t payload = 0;
  };

  bool ReadRow();
  void Queue(const Row& row);
  void QueueBetween(Stream& stream, uint16_t tag);
  void EndQuiet();
  void EndPes(Pes& pes);
  Pes& NeedBytes(Stream& stream);
  void FindBegin(Stream& stream, ByteSpan was);
  void Settle(Stream& stream);
  Bytes PayloadOf(const Pes& pes) const;
  static Row MakeRow(const Row& like, uint16_t identifier);
  void Lay(Stream& stream, const Pes& pes);
  void Fill(Stream& stream, ByteSpan payload, const std::vector<Slot>& slots);
  void Write();
  Entry& At(uint64_t number) { return queue_[static_cast<size_t>(number - first_)]; }

  const mp4::Source& source_;
  mp4::Sink* sink_;
  RowReader rows_;
  std::vector<Stream> streams_;
  std::map<uint16_t, uint16_t> streamOf_;  // identifier -> place in streams_, plus 1
  std::deque<Entry> queue_;
  uint64_t first_ = 0;  // number of the queue's front
  Counts counts_;
};

}  // namespace qlnmedia::ts

#endif
