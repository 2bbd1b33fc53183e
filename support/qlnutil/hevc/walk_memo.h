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
#include <initializer_list>
#include <new>
#include <unordered_map>
#include <vector>

#include "qlnutil/hevc/parameter_sets.h"
#include "qlnutil/hevc/word_table.h"

namespace qln {

// The contents that one record had, by number. A record lies in parts, and each content of a part is kept
// once: most units leave most of an SPS record as it was.
class RecordContents {
 public:
  // A run of words of the record, cut into `parts` of the same length.
  struct Area {
    uint32_t firstWord;
    uint32_t words;
    uint32_t parts;
  };

  // record: its words, null for a record that is not there. May throw std::bad_alloc.
  RecordContents(void* record, std::initializer_list<Area> areas, uint64_t seed);
  RecordContents(const RecordContents&) = delete;
  RecordContents& operator=(const RecordContents&) = delete;

  bool present() const { return record_ != nullptr; }

  // The number of what the record holds now, where all parts from `parts` on are as they were the last time.
  // May throw std::bad_alloc; then Restore is of no more use.
  uint32_t NumberOfCurrent(uint32_t parts);
  uint32_t NumberOfCurrent() { return NumberOfCurrent(static_cast<uint32_t>(parts_.size())); }
  // Makes the record hold that content.
  void Restore(uint32_t number);
  // A word of the first part in a content.
  uint32_t Word(uint32_t number, uint32_t index) const {
    return tables_.front().Words(contents_.Words(number)[0])[index];
  }

  size_t bytes() const;
  void Forget();

 private:
  struct Part {
    size_t firstWord;
    uint32_t table;
  };

  uint8_t* record_;
  std::vector<WordTable> tables_;  // one for each area
  std::vector<Part> parts_;
  std::vector<uint32_t> held_;  // numbers of the parts that the record holds; empty when they are not known
  WordTable contents_;          // these numbers, for each content of the whole
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
  // May throw std::bad_alloc, as Begin and Learn may.
  WalkMemo(HevcConfigRecord* config, HevcVpsRecord* vps, HevcSpsRecord* sps, HevcPpsRecord* pps);
  WalkMemo(const WalkMemo&) = delete;
  WalkMemo& operator=(const WalkMemo&) = delete;

  // Numbers what the records hold.
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
  void Learn(WalkKind kind, Cycle&& cycle);
  // Moves a state on by that many rounds where it is known to stand on a cycle: one of kStatesAPlace in a row
  // is. False where it is not.
  bool Advance(WalkKind kind, WalkState& state, uint32_t rounds) const;
  static constexpr uint32_t kStatesAPlace = 16;

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

  const uint64_t seed_;
  RecordContents config_;
  RecordContents vps_;
  RecordContents spsContents_;
  RecordContents pps_;
  const std::array<RecordContents*, 3> records_ = {&vps_, &spsContents_, &pps_};
  const HevcSpsRecord* sps_;
  std::unordered_map<Key, Outcome, Hash> reads_;
  std::vector<Cycle> cycles_;
  size_t cycleStates_ = 0;  // of all cycles
  std::unordered_map<Key, Place, Hash> places_;
  uint32_t generation_ = 0;

  static Key KeyOfRead(WalkKind kind, const WalkState& state);
  void Keep(const Key& key, WalkState& state, const HevcReports& reports);
  uint32_t PartsThatAReadMayChange(WalkKind kind) const;
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
