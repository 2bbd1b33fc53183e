// A change to a file as a list of splices (a place, how many bytes go, which bytes come), and where each of
// the file's places is to be found afterwards. 16 bytes of memory a splice.
//
// Every place is mapped by one rule: it moves by the growth of the splices that begin in front of it. So that
// this is right for begins and ends alike, a splice begins inside what it changes, never at its end: bytes
// added to the end of a sample replace its last byte by that byte and what is added.
#ifndef MEDIA_CONTAINER_MP4_SPLICES_H
#define MEDIA_CONTAINER_MP4_SPLICES_H

#include <algorithm>
#include <cstdint>
#include <deque>
#include <vector>

#include "container/mp4/source.h"
#include "container/mp4/spool.h"

namespace qlnmedia::mp4 {

// Where bytes go that were changed: a file, or memory.
class Sink {
 public:
  virtual ~Sink() = default;
  virtual void Write(ByteSpan bytes) = 0;
  // Takes over bytes of a source as they are.
  virtual void Copy(const Source& source, uint64_t at, uint64_t bytes) = 0;

 protected:
  Sink() = default;
  Sink(const Sink&) = default;
  Sink& operator=(const Sink&) = default;
};

class Splices {
 public:
  struct Splice {
    uint64_t at = 0;
    uint32_t removed = 0;
    uint32_t inserted = 0;
    uint64_t spooled = 0;  // where the new bytes stand in the spool
  };

  // Content goes to the spool, which the caller keeps.
  explicit Splices(Spool& spool) : spool_(&spool) {}

  // Puts `fresh` in place of `removed` bytes at `at`. In any order.
  void Add(uint64_t at, uint32_t removed, ByteSpan fresh);
  // The same for bytes that come piece by piece: Open, then Append, then Close.
  void Open(uint64_t at, uint32_t removed);
  void Append(ByteSpan fresh);
  void Close();
  // Changes `old`, which stands at `at`, to `fresh` with as few bytes as possible in between; nothing is
  // added where they are equal, and true comes back where they are not. `old` must not be empty.
  bool AddDifference(uint64_t at, ByteSpan old, ByteSpan fresh);
  // Room that is known before its bytes are: `growth` bytes at `at`.
  void AddGrowth(uint64_t at, int64_t growth);
  // Takes all that was added to another list on the same spool.
  void Take(const Splices& other);

  // Puts the list in order; called once all is added, and again after more was. Throws Error, by the
  // source's name and the place, where two splices change the same bytes.
  void Seal(const Source& source);

  size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  Splice At(size_t index) const;
  // The first splice that begins at or behind a place.
  size_t FirstFrom(uint64_t at) const;
  // The first one that reaches behind a place, or begins there.
  size_t FirstReaching(uint64_t at) const;
  // By how many bytes a place moves. One among bytes that go stays between what stood in front and behind
  // them.
  int64_t ShiftAt(uint64_t at) const;
  // How many bytes more there are between two places.
  int64_t GrowthIn(uint64_t begin, uint64_t end) const { return ShiftAt(end) - ShiftAt(begin); }
  int64_t growth() const { return total_; }
  // True where a splice grows or shrinks, even where they come out even.
  bool anyGrowth() const;
  // Writes the source's bytes from `begin` to `end` with the splices in them applied. `wrote` is called with
  // the number of bytes of the source that are done.
  template <typename Wrote>
  void Apply(const Source& source, uint64_t begin, uint64_t end, Sink& sink, Wrote wrote) const {
    uint64_t at = begin;
    for (size_t i = FirstFrom(begin); i < entries_.size(); ++i) {
      const Splice splice = At(i);
      if (splice.at >= end) break;
      CopyRun(source, at, splice.at, sink, wrote);
      WriteNew(splice, sink);
      at = splice.at + splice.removed;
    }
    CopyRun(source, at, end, sink, wrote);
  }
  // The new bytes of a splice; some of them, from a place among them on.
  void ReadNew(const Splice& splice, uint64_t from, std::span<uint8_t> to) const {
    spool_->Read(splice.spooled + from, to);
  }
  void WriteNew(const Splice& splice, Sink& sink) const;

 private:
  // 48 bits of place, 48 of place in the spool, and the growth.
  struct Entry {
    uint64_t atAndHigh;
    uint32_t low;
    int32_t growth;
    uint64_t at() const { return atAndHigh >> 16; }
    uint64_t spooled() const { return (atAndHigh & 0xFFFF) << 32 | low; }
  };
  static_assert(sizeof(Entry) == 16);

  template <typename Wrote>
  static void CopyRun(const Source& source, uint64_t at, uint64_t end, Sink& sink, Wrote& wrote) {
    constexpr uint64_t kPiece = uint64_t{64} << 20;  // so that cancelling is heard
    while (at < end) {
      const uint64_t piece = std::min(kPiece, end - at);
      sink.Copy(source, at, piece);
      at += piece;
      wrote(at);
    }
  }
  void Put(uint64_t at, uint64_t spooled, int64_t growth);
  uint32_t RemovedAt(uint64_t spooled) const;
  int64_t Held(size_t index, uint64_t at) const;

  Spool* spool_;
  std::deque<Entry> entries_;    // which grows without being copied
  std::vector<int64_t> shifts_;  // in front of every 64th entry
  int64_t total_ = 0;
  // Of the splice that is open.
  uint64_t openAt_ = 0;
  uint32_t openRemoved_ = 0;
  uint64_t openSpooled_ = 0;
};

}  // namespace qlnmedia::mp4

#endif
