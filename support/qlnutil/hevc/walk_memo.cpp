// Numbering of contents, and the reads and cycles that are told by these numbers.

#include "qlnutil/hevc/walk_memo.h"

#include <sys/random.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace qln {
namespace {

// Beyond these everything is forgotten and begins anew: a record of a stranger does not decide on memory.
constexpr size_t kMostContentBytes = size_t{32} << 20;
constexpr size_t kMostReads = size_t{1} << 17;
constexpr size_t kMostCycleStates = size_t{1} << 18;

template <class Record>
constexpr uint32_t WordsOf() {
  return sizeof(Record) / 4;
}
constexpr uint32_t kSetsAt = offsetof(HevcSpsRecord, st_ref_pic_set) / 4;
constexpr uint32_t kBehindSets = offsetof(HevcSpsRecord, long_term_ref_pics_present_flag) / 4;

// The word of each kind of record that is 0 while the record is not filled. A PPS gives way to later ones
// until one has more than one column of tiles.
constexpr std::array<uint32_t, 3> kFilledWord = {
    (offsetof(HevcVpsRecord, profile_tier_level) + offsetof(HevcProfileTierLevel, general_level_idc)) / 4,
    (offsetof(HevcSpsRecord, profile_tier_level) + offsetof(HevcProfileTierLevel, general_level_idc)) / 4,
    offsetof(HevcPpsRecord, num_tile_columns_minus1) / 4};

constexpr uint32_t kPartsBesideSets = 2;
constexpr uint32_t kLongestPart =
    std::max({kSetsAt, WordsOf<HevcSpsRecord>() - kBehindSets, WordsOf<HevcVpsRecord>(),
              WordsOf<HevcPpsRecord>(), WordsOf<HevcConfigRecord>(), WordsOf<HevcShortTermRps>()});

uint32_t PartsOf(std::initializer_list<RecordContents::Area> areas) {
  uint32_t parts = 0;
  for (const RecordContents::Area& area : areas) parts += area.parts;
  return parts;
}

// Any number that a stranger does not know. Where the system has none, the place of an object will do.
uint64_t RandomSeed(const void* object) {
  uint64_t seed;
  if (getrandom(&seed, sizeof seed, GRND_NONBLOCK) == sizeof seed) return seed;
  return reinterpret_cast<uintptr_t>(object);
}

}  // namespace

RecordContents::RecordContents(void* record, std::initializer_list<Area> areas, uint64_t seed)
    : record_(static_cast<uint8_t*>(record)), contents_(PartsOf(areas), seed) {
  uint32_t table = 0;
  for (const Area& area : areas) {
    tables_.emplace_back(area.words, seed + ++table);
    for (uint32_t i = 0; i < area.parts; ++i) {
      parts_.push_back({size_t{area.firstWord} + size_t{i} * area.words, table - 1});
    }
  }
  held_.reserve(parts_.size());
}

uint32_t RecordContents::NumberOfCurrent(uint32_t parts) {
  if (record_ == nullptr) return 0;
  uint32_t words[kLongestPart];
  const bool first = held_.empty();
  if (first) held_.resize(parts_.size());
  for (uint32_t i = 0; i < (first ? parts_.size() : parts); ++i) {
    const Part& part = parts_[i];
    WordTable& table = tables_[part.table];
    const size_t size = size_t{table.length()} * sizeof(uint32_t);
    const uint8_t* const there = record_ + part.firstWord * sizeof(uint32_t);
    if (!first && std::memcmp(there, table.Words(held_[i]), size) == 0) continue;
    std::memcpy(words, there, size);
    held_[i] = table.Number(words);
  }
  return contents_.Number(held_.data());
}

void RecordContents::Restore(uint32_t number) {
  if (record_ == nullptr) return;
  const uint32_t* const content = contents_.Words(number);
  for (uint32_t i = 0; i < parts_.size(); ++i) {
    if (held_[i] == content[i]) continue;
    held_[i] = content[i];
    const WordTable& table = tables_[parts_[i].table];
    std::memcpy(record_ + parts_[i].firstWord * sizeof(uint32_t), table.Words(content[i]),
                size_t{table.length()} * sizeof(uint32_t));
  }
}

size_t RecordContents::bytes() const {
  size_t bytes = contents_.bytes();
  for (const WordTable& table : tables_) bytes += table.bytes();
  return bytes;
}

void RecordContents::Forget() {
  for (WordTable& table : tables_) table.Forget();
  contents_.Forget();
  held_.clear();
}

WalkMemo::WalkMemo(HevcConfigRecord* config, HevcVpsRecord* vps, HevcSpsRecord* sps, HevcPpsRecord* pps)
    : seed_(RandomSeed(this)),
      config_(config, {{0, WordsOf<HevcConfigRecord>(), 1}}, seed_),
      vps_(vps, {{0, WordsOf<HevcVpsRecord>(), 1}}, seed_),
      spsContents_(sps,
                   {{0, kSetsAt, 1},
                    {kBehindSets, WordsOf<HevcSpsRecord>() - kBehindSets, 1},
                    {kSetsAt, WordsOf<HevcShortTermRps>(), QLN_HEVC_RPS_SETS}},
                   seed_),
      pps_(pps, {{0, WordsOf<HevcPpsRecord>(), 1}}, seed_),
      sps_(sps) {}

void WalkMemo::Begin(WalkState& state) {
  state.config = config_.NumberOfCurrent();
  for (size_t kind = 0; kind < records_.size(); ++kind)
    state.records[kind] = records_[kind]->NumberOfCurrent();
}

bool WalkMemo::IsEmpty(WalkKind kind, const WalkState& state) const {
  const RecordContents& contents = *records_[kind];
  return contents.present() && contents.Word(state.records[kind], kFilledWord[kind]) == 0;
}

void WalkMemo::Restore(const WalkState& state) {
  config_.Restore(state.config);
  for (size_t kind = 0; kind < records_.size(); ++kind) records_[kind]->Restore(state.records[kind]);
}

WalkMemo::Key WalkMemo::KeyOfRead(WalkKind kind, const WalkState& state) {
  Key key{kind, {}};
  key.state.bitPos = state.bitPos;
  key.state.config = state.config;
  key.state.records[kind] = state.records[kind];
  return key;
}

void WalkMemo::Keep(const Key& key, WalkState& state, const HevcReports& reports) {
  size_t bytes = config_.bytes();
  for (const RecordContents* contents : records_) bytes += contents->bytes();
  if (bytes > kMostContentBytes || reads_.size() > kMostReads) {
    ForgetAll();
    Begin(state);
    return;
  }
  state.config = config_.NumberOfCurrent();
  state.records[key.kind] = records_[key.kind]->NumberOfCurrent(PartsThatAReadMayChange(key.kind));
  reads_.emplace(key, Outcome{state.bitPos, state.config, state.records[key.kind], reports});
}

// A read of an SPS leaves the sets alone that it does not announce.
uint32_t WalkMemo::PartsThatAReadMayChange(WalkKind kind) const {
  if (kind != kWalkSps) return 1;
  return kPartsBesideSets + std::min<uint32_t>(sps_->num_short_term_ref_pic_sets, QLN_HEVC_RPS_SETS);
}

void WalkMemo::ForgetAll() {
  config_.Forget();
  for (RecordContents* contents : records_) contents->Forget();
  reads_.clear();
  cycles_.clear();
  places_.clear();
  cycleStates_ = 0;
  ++generation_;
}

// A place in the map costs more than a round of short units does, so that a long cycle has few.
void WalkMemo::Learn(WalkKind kind, Cycle&& cycle) {
  if (cycleStates_ + cycle.size() > kMostCycleStates) {
    cycles_.clear();
    places_.clear();
    cycleStates_ = 0;
  }
  const auto number = static_cast<uint32_t>(cycles_.size());
  cycles_.push_back(std::move(cycle));
  const Cycle& states = cycles_.back();
  cycleStates_ += states.size();
  for (uint32_t i = 0; i < states.size(); i += kStatesAPlace) {
    places_.emplace(Key{kind, states[i]}, Place{number, i});
  }
}

bool WalkMemo::Advance(WalkKind kind, WalkState& state, uint32_t rounds) const {
  if (places_.empty()) return false;
  const auto place = places_.find(Key{kind, state});
  if (place == places_.end()) return false;
  const Cycle& cycle = cycles_[place->second.cycle];
  state = cycle[(uint64_t{place->second.index} + rounds) % cycle.size()];
  return true;
}

size_t WalkMemo::Hash::operator()(const Key& key) const {
  uint64_t hash = key.kind;
  const auto mix = [&hash](uint64_t word) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
    hash ^= hash >> 29;
  };
  mix(key.state.bitPos | uint64_t{key.state.config} << 32);
  mix(key.state.records[0] | uint64_t{key.state.records[1]} << 32);
  mix(key.state.records[2] | key.state.end << 32);
  return hash;
}

}  // namespace qln
