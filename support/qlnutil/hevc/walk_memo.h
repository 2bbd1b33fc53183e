// What the walk over a configuration record remembers, so that no unit is read twice with the same outcome.
//
// A refused unit sends the walk back to a small position, from where it may come by the same units again and
// again, up to 65535 times in each of 255 arrays. A unit's reader depends on nothing but the unit, its record
// and the configuration record. So the contents of these are numbered, each content once, and a read that was
// done before is told by four numbers.
#ifndef QLNUTIL_HEVC_WALK_MEMO_H
#define QLNUTIL_HEVC_WALK_MEMO_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <set>
#include <unordered_map>
#include <vector>

#include "qlnutil/hevc/parameter_sets.h"

namespace qln {

// The contents that one record had, by number.
class RecordContents {
 public:
  RecordContents() = default;
  RecordContents(const RecordContents&) = delete;
  RecordContents& operator=(const RecordContents&) = delete;

  // record: its words, null for a record that is not there. words: how many. `untouchedFrom` and
  // `untouchedBehind` bound a run of words that stays as it was at first and is left out.
  void Watch(void* record, uint32_t words, uint32_t untouchedFrom, uint32_t untouchedBehind);

  bool present() const { return record_ != nullptr; }
  uint32_t untouchedFrom() const { return head_; }

  // The number of what the record holds now. May throw std::bad_alloc, with nothing changed.
  uint32_t NumberOfCurrent();
  // Makes the record hold that content.
  void Restore(uint32_t number);
  // A word of a content, in front of the run that is left out.
  uint32_t Word(uint32_t number, uint32_t index) const { return pool_[size_t{number} * size() + index]; }

  size_t bytes() const { return pool_.size() * sizeof(uint32_t); }
  void Forget();

 private:
  // Orders contents by their words, so that nobody can choose contents that are slow to find.
  struct Less {
    const RecordContents* contents;
    bool operator()(uint32_t a, uint32_t b) const;
  };

  uint8_t* record_ = nullptr;
  uint32_t head_ = 0;    // words in front of the run that is left out
  uint32_t tail_ = 0;    // words behind it
  uint32_t behind_ = 0;  // index of the first of these
  uint32_t held_ = 0;    // number of the content that the record holds
  std::vector<uint32_t> pool_;
  std::set<uint32_t, Less> numbers_{Less{this}};

  size_t size() const { return size_t{head_} + tail_; }
};

// Kinds of units that the walk reads, and a fourth for all others.
enum WalkKind : uint32_t { kWalkVps, kWalkSps, kWalkPps, kWalkOther };

// Where a walk stands: all that the rounds to come depend on.
struct WalkState {
  uint32_t bitPos = 0;
  uint32_t config = 0;                   // number of the configuration record's content
  uint64_t end = 0;                      // of the last unit parsed or passed for its type, in bits
  std::array<uint32_t, 3> records = {};  // numbers of the contents of VPS, SPS and PPS
  std::array<bool, 3> seen = {};         // units of these kinds that are not empty

  bool operator==(const WalkState&) const = default;
};

class WalkMemo {
 public:
  WalkMemo(HevcConfigRecord* config, HevcVpsRecord* vps, HevcSpsRecord* sps, HevcPpsRecord* pps);
  WalkMemo(const WalkMemo&) = delete;
  WalkMemo& operator=(const WalkMemo&) = delete;

  // Numbers what the records hold. May throw std::bad_alloc, as Learn may.
  void Begin(WalkState& state);

  // The read of the unit at state.bitPos, done by read(state, reports) where it is new, with the records as
  // `state` has them. Moves the state; the records themselves only change in `read` and in Restore. False
  // when the read was done and there was no memory to keep it: the records are as they should be then, and
  // the memo is of no more use.
  template <class Read>
  bool ReadUnit(WalkKind kind, WalkState& state, HevcReports& reports, Read read);

  // True where the record of that kind counts as not filled yet: each has its own sign of it.
  bool IsEmpty(WalkKind kind, const WalkState& state) const;

  // Makes the records hold what `state` says.
  void Restore(const WalkState& state);

  // States that follow each other in rounds of a kind and lead from the last one to the first again.
  using Cycle = std::vector<WalkState>;
  void Learn(WalkKind kind, const Cycle& cycle);
  // Moves a state on by that many rounds where it stands on a cycle; false where it does not.
  bool Advance(WalkKind kind, WalkState& state, uint32_t rounds) const;

  // Counts how often everything was forgotten, after which states of before are of no use.
  uint32_t generation() const { return generation_; }

 private:
  struct Key {
    WalkKind kind;
    WalkState state;
    bool operator==(const Key&) const = default;
  };
  struct Hash {
    size_t operator()(const Key& key) const;
  };
  struct Outcome {
    uint32_t bitPos;
    uint32_t config;
    uint32_t record;
    HevcReports reports;
  };
  struct Place {
    uint32_t cycle;
    uint32_t index;
  };

  RecordContents config_;
  std::array<RecordContents, 3> records_;
  const HevcSpsRecord* sps_;
  std::unordered_map<Key, Outcome, Hash> reads_;
  std::vector<Cycle> cycles_;
  std::unordered_map<Key, Place, Hash> places_;
  uint32_t generation_ = 0;

  static Key KeyOfRead(WalkKind kind, const WalkState& state);
  void Keep(const Key& key, WalkState& state, const HevcReports& reports);
  bool TouchesMoreSets() const;
  void WatchSets();
  void ForgetAll();
};

template <class Read>
bool WalkMemo::ReadUnit(WalkKind kind, WalkState& state, HevcReports& reports, Read read) {
  const Key key = KeyOfRead(kind, state);
  if (const auto known = reads_.find(key); known != reads_.end()) {
    const Outcome& outcome = known->second;
    state.bitPos = outcome.bitPos;
    state.config = outcome.config;
    state.records[kind] = outcome.record;
    reports = outcome.reports;
    return true;
  }
  Restore(state);
  read(state, reports);
  try {
    Keep(key, state, reports);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

}  // namespace qln

#endif
