// Numbering of contents, and the reads and cycles that are told by these numbers.

#include "qlnutil/hevc/walk_memo.h"

#include <algorithm>
#include <cstring>

namespace qln {
namespace {

// Beyond these everything is forgotten and begins anew: a record of a stranger does not decide on memory.
constexpr size_t kMostContentBytes = size_t{32} << 20;
constexpr size_t kMostReads = size_t{1} << 17;
constexpr size_t kMostPlaces = size_t{1} << 18;

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

}  // namespace

void RecordContents::Watch(void* record, uint32_t words, uint32_t untouchedFrom, uint32_t untouchedBehind) {
  record_ = static_cast<uint8_t*>(record);
  head_ = untouchedFrom;
  behind_ = untouchedBehind;
  tail_ = words - untouchedBehind;
}

bool RecordContents::Less::operator()(uint32_t a, uint32_t b) const {
  const size_t size = contents->size();
  const uint32_t* const pool = contents->pool_.data();
  return std::memcmp(pool + a * size, pool + b * size, size * sizeof(uint32_t)) < 0;
}

uint32_t RecordContents::NumberOfCurrent() {
  if (record_ == nullptr) return 0;
  const size_t at = pool_.size();
  pool_.resize(at + size());
  std::memcpy(pool_.data() + at, record_, head_ * sizeof(uint32_t));
  std::memcpy(pool_.data() + at + head_, record_ + behind_ * sizeof(uint32_t), tail_ * sizeof(uint32_t));
  const auto number = static_cast<uint32_t>(at / size());
  const auto [place, isNew] = numbers_.insert(number);
  if (!isNew) pool_.resize(at);
  held_ = *place;
  return held_;
}

void RecordContents::Restore(uint32_t number) {
  if (record_ == nullptr || number == held_) return;
  const uint32_t* const content = pool_.data() + number * size();
  std::memcpy(record_, content, head_ * sizeof(uint32_t));
  std::memcpy(record_ + behind_ * sizeof(uint32_t), content + head_, tail_ * sizeof(uint32_t));
  held_ = number;
}

void RecordContents::Forget() {
  numbers_.clear();
  pool_.clear();
}

WalkMemo::WalkMemo(HevcConfigRecord* config, HevcVpsRecord* vps, HevcSpsRecord* sps, HevcPpsRecord* pps)
    : sps_(sps) {
  const auto watchAll = [](RecordContents& contents, void* record, uint32_t words) {
    contents.Watch(record, words, words, words);
  };
  watchAll(config_, config, WordsOf<HevcConfigRecord>());
  watchAll(records_[kWalkVps], vps, WordsOf<HevcVpsRecord>());
  records_[kWalkSps].Watch(sps, WordsOf<HevcSpsRecord>(), kSetsAt, kBehindSets);
  watchAll(records_[kWalkPps], pps, WordsOf<HevcPpsRecord>());
}

void WalkMemo::Begin(WalkState& state) {
  if (TouchesMoreSets()) WatchSets();
  state.config = config_.NumberOfCurrent();
  for (size_t kind = 0; kind < records_.size(); ++kind)
    state.records[kind] = records_[kind].NumberOfCurrent();
}

bool WalkMemo::IsEmpty(WalkKind kind, const WalkState& state) const {
  const RecordContents& contents = records_[kind];
  return contents.present() && contents.Word(state.records[kind], kFilledWord[kind]) == 0;
}

void WalkMemo::Restore(const WalkState& state) {
  config_.Restore(state.config);
  for (size_t kind = 0; kind < records_.size(); ++kind) records_[kind].Restore(state.records[kind]);
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
  for (const RecordContents& contents : records_) bytes += contents.bytes();
  if (bytes > kMostContentBytes || reads_.size() > kMostReads || TouchesMoreSets()) {
    ForgetAll();
    Begin(state);
    return;
  }
  state.config = config_.NumberOfCurrent();
  state.records[key.kind] = records_[key.kind].NumberOfCurrent();
  reads_.emplace(key, Outcome{state.bitPos, state.config, state.records[key.kind], reports});
}

// The sets of an SPS record are most of it, and most units fill few of them: a content has those that some
// read may have filled since the memo began.
bool WalkMemo::TouchesMoreSets() const {
  const uint32_t sets =
      sps_ == nullptr ? 0 : std::min<uint32_t>(sps_->num_short_term_ref_pic_sets, QLN_HEVC_RPS_SETS);
  return kSetsAt + sets * WordsOf<HevcShortTermRps>() > records_[kWalkSps].untouchedFrom();
}

void WalkMemo::WatchSets() {
  const uint32_t sets = std::min<uint32_t>(sps_->num_short_term_ref_pic_sets, QLN_HEVC_RPS_SETS);
  records_[kWalkSps].Watch(const_cast<HevcSpsRecord*>(sps_), WordsOf<HevcSpsRecord>(),
                           kSetsAt + sets * WordsOf<HevcShortTermRps>(), kBehindSets);
}

void WalkMemo::ForgetAll() {
  config_.Forget();
  for (RecordContents& contents : records_) contents.Forget();
  reads_.clear();
  cycles_.clear();
  places_.clear();
  ++generation_;
}

void WalkMemo::Learn(WalkKind kind, const Cycle& cycle) {
  if (places_.size() + cycle.size() > kMostPlaces) {
    cycles_.clear();
    places_.clear();
  }
  const auto number = static_cast<uint32_t>(cycles_.size());
  cycles_.push_back(cycle);
  for (uint32_t i = 0; i < cycle.size(); ++i) places_.emplace(Key{kind, cycle[i]}, Place{number, i});
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
