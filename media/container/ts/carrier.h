// A transport stream with other bytes in some of its elementary streams: all packets but theirs stay as they
// are, in their order, and so do clock references, time stamps, and what else stands around the bytes that
// change.
//
//   Carrier carrier(source, sink, {0x100});
//   carrier.Take(0x100, was, is);   // the next bytes of the elementary stream, and what they become
//   ...
//   carrier.Finish();
//
// Who has no other reader of the elementary streams gets them from the carrier:
//
//   for (PesView pes; carrier.Next(pes);) {
//     ... carrier.Replace(pes.identifier, 1, is) or carrier.Keep(pes.identifier, 1) ...
//   }
//   carrier.Finish();
//
// A PES packet that grows takes the stuffing of its last packets, then null packets up to the next PES packet
// of its stream, then packets that are put in; one that shrinks leaves stuffing and null packets.
// PES_packet_length follows, continuity counters of the stream go on from there, with the gaps that they had.
// Memory: what stands between a PES packet's begin and the place to which elementary streams were given.
// Everything throws Error with the place. For one thread at a time.
#ifndef MEDIA_CONTAINER_TS_CARRIER_H
#define MEDIA_CONTAINER_TS_CARRIER_H

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "container/mp4/source.h"
#include "container/mp4/splices.h"
#include "container/ts/packet.h"
#include "container/ts/pieces.h"
#include "container/ts/row_reader.h"

namespace qlnmedia::ts {

// A PES packet, as far as its bytes came.
struct PesView {
  uint16_t identifier = 0;
  uint8_t streamId = 0;
  // Its time stamps, of 33 bits.
  std::optional<uint64_t> pts;
  std::optional<uint64_t> dts;
  Bytes stream;  // what it holds of the elementary stream
};

class Carrier {
 public:
  using Watch = std::function<void(const Row& row)>;

  // `sink` may be null: then nothing is written, and all else is done. `watch`, if given, sees each row of
  // the source before anything is changed. Source and sink are kept by the caller.
  Carrier(const mp4::Source& source, mp4::Sink* sink, const std::set<uint16_t>& identifiers,
          Watch watch = {});
  Carrier(const Carrier&) = delete;
  Carrier& operator=(const Carrier&) = delete;

  // The next bytes of an elementary stream, without a gap. What stands in front of the first ones stays.
  // Throws Error where the stream has other bytes there.
  void Take(uint16_t identifier, ByteSpan was, ByteSpan is);
  // The next PES packet of any of the streams, those without bytes aside, that was not shown yet; false at
  // the end.
  bool Next(PesView& pes);
  // What the next PES packets of a stream become that were shown, so many of them; or that they stay.
  void Replace(uint16_t identifier, size_t packets, std::span<const ByteSpan> is);
  void Keep(uint16_t identifier, size_t packets);
  // What was not given stays.
  void Finish();
  // From here on nothing waits in the carrier that nobody will change, and what cannot be edited passes by:
  // scrambled packets, and what goes on behind a gap.
  void SendAtOnce() { atOnce_ = true; }
  // From the next packet on a stream goes on under another identifier; what it has under the old one ends.
  void Move(uint16_t from, uint16_t to);
  // How far the source was read.
  uint64_t at() const { return rows_.at(); }

  struct Counts {
    uint64_t putIn = 0;     // packets that the stream had no room for
    uint64_t fromNull = 0;  // null packets that were taken
    uint64_t toNull = 0;    // packets that became null packets
    uint64_t leftOut = 0;   // bytes of a packet that breaks off at the end, where nothing waits
  };
  const Counts& counts() const { return counts_; }

 private:
  struct Entry {
    uint8_t* bytes = nullptr;
    uint8_t size = 0;
    bool isPacket = false;
    bool hasBehind = false;  // rows that are put in
    uint16_t stream = 0;     // 1 and up for a packet of an edited stream that is not settled; else 0
  };
  struct PesRow {
    uint64_t number = 0;
    size_t payload = 0;
  };
  // From one packet that starts a unit to the next.
  struct Pes {
    std::vector<PesRow> rows;
    uint64_t end = 0;  // the number behind the last row that may be used; 0 while it goes on
    Bytes head;        // in front of the elementary stream's bytes
    Bytes bytes;       // those, and while it goes on what stands behind them; none once it was shown
    Bytes tail;
    size_t size = 0;   // of the elementary stream's bytes
    size_t given = 0;  // of them
    Bytes edited;      // what they become, part by part
    Pieces whole;      // the same where all of it is given at once
    bool changed = false;
    bool shown = false;
  };
  struct Stream {
    uint16_t identifier = 0;
    std::deque<Pes> packets;
    bool started = false;        // a PES packet has begun
    bool begun = false;          // bytes were given
    bool changedBefore = false;  // the PES packet that was settled last
    uint32_t shift = 0;          // of continuity counters, modulo 16
    size_t usual = 0;            // bytes of the PES packet before
    Pes* open() { return packets.empty() || packets.back().end != 0 ? nullptr : &packets.back(); }
  };
  // A packet of a PES packet and the payload that it gets.
  struct Slot {
    Row row;
    uint64_t number = 0;
    enum { kOwn, kNull, kPutIn } kind = kOwn;
    size_t payload = 0;
  };

  bool ReadRow();
  bool BreaksOff(const Row& row) const;
  void Queue(const Row& row);
  void QueueBetween(Stream& stream, uint16_t tag);
  void EndOpen(Stream& stream);
  void EndQuiet();
  void EndPes(Pes& pes);
  Pes& NeedBytes(Stream& stream);
  void FindBegin(Stream& stream, ByteSpan was);
  static void Give(Pes& pes, size_t size, ByteSpan is);
  void Settle(Stream& stream);
  void Lay(Stream& stream, Pes& pes);
  void PutBehind(uint64_t number, std::vector<RowBytes> more);
  Pieces PayloadOf(Pes& pes) const;
  static void MakeRow(Row& row, const Row& like, uint16_t identifier);
  size_t TakeNullPackets(const Pes& pes, size_t need, std::vector<Slot>& slots);
  void Fill(Stream& stream, Pieces payload, const std::vector<Slot>& slots);
  void Recount(const Stream& stream, const Pes& pes);
  void Write();
  Stream& Of(uint16_t identifier) { return streams_.at(streamOf_[identifier] - 1U); }
  Entry& At(uint64_t number) { return queue_[static_cast<size_t>(number - first_)]; }
  Row RowAt(uint64_t number);

  const mp4::Source& source_;
  mp4::Sink* sink_;
  Watch watch_;
  bool atOnce_ = false;
  RowReader rows_;
  std::deque<Stream> streams_;
  std::vector<uint16_t> streamOf_;  // by identifier: place in streams_, plus 1
  uint64_t ended_ = 0;              // PES packets
  std::deque<Entry> queue_;
  uint64_t first_ = 0;    // number of the queue's front
  uint64_t written_ = 0;  // place in the source behind the rows in front of it
  std::map<uint64_t, std::vector<RowBytes>> behind_;
  Counts counts_;
};

}  // namespace qlnmedia::ts

#endif
