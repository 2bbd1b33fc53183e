// A transport stream that gets an elementary stream more: announced in the map of one of its programs, its
// PES packets in the place of null packets, or between the others. Every other packet stays as it is.
//
//   StreamAddition addition(source, video, 0x06, descriptors);
//   addition.Write(next, &sink);
//
// Memory: some bytes for each packet that begins a program map. Everything throws Error with the place. For
// one thread at a time.
#ifndef MEDIA_CONTAINER_TS_STREAM_ADDITION_H
#define MEDIA_CONTAINER_TS_STREAM_ADDITION_H

#include <cstdint>
#include <deque>
#include <functional>
#include <set>
#include <vector>

#include "container/mp4/source.h"
#include "container/mp4/splices.h"
#include "container/ts/packet.h"

namespace qlnmedia::ts {

// A PES packet and the bytes of the file between whose packets it stands: it takes null packets from the one
// that holds `from` on, and what has found none by then stands in front of the one that holds `by`. Neither
// falls from one to the next.
struct PlacedPes {
  uint64_t from = 0;
  uint64_t by = 0;
  Bytes bytes;
};

class StreamAddition {
 public:
  // Goes through the file: finds the program of the stream `beside`, and an identifier that is free. `source`
  // is kept by the caller. Throws where no program names that stream, or its map cannot grow.
  StreamAddition(const mp4::Source& source, uint16_t beside, uint8_t streamType, const Bytes& descriptors);

  uint16_t identifier() const { return identifier_; }
  uint16_t map() const { return map_; }  // the identifier of the program map

  struct Counts {
    uint64_t putIn = 0;     // packets that took no null packet
    uint64_t fromNull = 0;  // null packets that were taken
  };
  // Gives the next PES packet; false behind the last one.
  using NextPes = std::function<bool(PlacedPes& pes)>;
  // Called once. `sink` may be null: then nothing is written, and all else is done. `at` is told where the
  // file has been read to.
  Counts Write(const NextPes& next, mp4::Sink* sink, const std::function<void(uint64_t at)>& progress);

 private:
  // From one packet of the map's identifier that begins sections to the next.
  struct MapUnit {
    uint32_t rows = 0;     // that hold them
    uint32_t payload = 0;  // place in payloads_, plus 1; 0 where nothing changes
  };
  void FindMap(uint16_t beside);
  void TakeRow(const Row& row);
  void EndUnit();
  void FindIdentifier();
  uint32_t PayloadOf(const std::vector<Bytes>& sections);

  void Queue(const PlacedPes& pes);
  void Flush(const Row& next, uint64_t by);
  void PutMap(Row& row);
  void PutInto(Row& row, const Bytes& payload, bool starts);
  void Put(const Row& row);

  const mp4::Source& source_;
  uint16_t beside_;
  uint8_t streamType_;
  Bytes descriptors_;
  uint16_t map_ = 0, identifier_ = 0;
  std::set<uint16_t> used_;
  std::vector<MapUnit> units_;
  std::vector<Bytes> payloads_;  // new ones, each once
  Bytes unit_;                   // payloads of the present unit, while they are read
  uint32_t unitRows_ = 0;
  bool unitOpen_ = false;

  // A row with bytes of its own.
  struct OwnRow {
    OwnRow() = default;
    explicit OwnRow(const Row& like) { Take(like); }
    OwnRow(const OwnRow&) = delete;
    OwnRow& operator=(const OwnRow&) = delete;
    void Take(const Row& like);
    RowBytes bytes{};
    Row row;
  };
  struct Chunk {
    Bytes payload;
    bool starts = false;
    uint64_t by = 0;
  };
  std::deque<Chunk> waiting_;
  mp4::Sink* sink_ = nullptr;
  OwnRow last_;  // that was written
  Counts counts_;
  uint8_t counter_ = 0;
  size_t unitAt_ = 0;      // of units_, the next one
  uint32_t mapShift_ = 0;  // of continuity counters, modulo 16
  const Bytes* mapRest_ = nullptr;
  size_t mapDone_ = 0;    // bytes of it that were put
  uint32_t mapRows_ = 0;  // that are left of the present unit
};

}  // namespace qlnmedia::ts

#endif
