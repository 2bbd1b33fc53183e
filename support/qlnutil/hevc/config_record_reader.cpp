// The reader of an HEVC decoder configuration record (ISO/IEC 14496-15, clause 8.3.3.1) as it stands in an
// hvcC box.

#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "qlnutil/bits/bit_reader.h"
#include "qlnutil/bits/emulation_prevention.h"
#include "qlnutil/bits/private_copy.h"
#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/hevc/parameter_sets.h"
#include "qlnutil/hevc/walk_memo.h"
#include "qlnutil/qlnhevc.h"
#include "qlnutil/qlnvidutil.h"

namespace qln {
namespace {

struct ReservedField {
  int32_t bits;
  uint32_t allOnes;
};
constexpr ReservedField kReserved4{4, 15};
constexpr ReservedField kReserved5{5, 31};
constexpr ReservedField kReserved6{6, 63};

bool PassReserved(BitReader& in, const ReservedField& field) {
  if (in.ReadBits(field.bits) == field.allOnes) return true;
  ErrOutLocated("Hevc Reserved bits incorrect %s %d");
  return false;
}

// Box header and head. False, with the position behind the field, where a reserved field is not all ones.
bool ReadHead(BitReader& in, HevcConfigRecord& config) {
  in.SkipBits(64);  // box size and type: any 8 bytes
  config.configurationVersion = in.ReadBits(8);
  config.general_profile_space = in.ReadBits(2);
  config.general_tier_flag = in.ReadBit();
  config.general_profile_idc = in.ReadBits(5);
  config.general_profile_compatibility_flags = in.ReadBits(32);
  config.general_constraint_indicator_flags = in.ReadBits64(48);
  config.general_level_idc = in.ReadBits(8);
  if (!PassReserved(in, kReserved4)) return false;
  config.min_spatial_segmentation_idc = in.ReadBits(12);
  if (!PassReserved(in, kReserved6)) return false;
  config.parallelismType = in.ReadBits(2);
  if (!PassReserved(in, kReserved6)) return false;
  config.chromaFormat = in.ReadBits(2);
  if (!PassReserved(in, kReserved5)) return false;
  config.bitDepthLumaMinus8 = in.ReadBits(3);
  if (!PassReserved(in, kReserved5)) return false;
  config.bitDepthChromaMinus8 = in.ReadBits(3);
  config.avgFrameRate = in.ReadBits(16);
  config.constantFrameRate = in.ReadBits(2);
  config.numTemporalLayers = in.ReadBits(3);
  config.temporalIdNested = in.ReadBit();
  config.lengthSizeMinusOne = in.ReadBits(2);
  config.numOfArrays = in.ReadBits(8);
  return true;
}

// Rounds of an array that are run, with their messages, before any are left out.
constexpr uint32_t kRoundsInFull = 64;

// The walk over the arrays.
class Walk {
 public:
  BitReader in;

  Walk(const BitReader& reader, int32_t size, HevcConfigRecord* config, HevcVpsRecord* vps,
       HevcSpsRecord* sps, HevcPpsRecord* pps)
      : in(reader), size_(size), config_(config), vps_(vps), sps_(sps), pps_(pps) {}

  // The units of one array. False when one runs past the data.
  bool Array(uint32_t type, uint32_t count);

  // Brings the records up to date. Returns the end of the last unit parsed or passed for its type, in bits.
  uint64_t Finish() {
    if (memo_ != nullptr) memo_->Restore(state_);
    return state_.end;
  }

 private:
  const int32_t size_;
  HevcConfigRecord* const config_;
  HevcVpsRecord* const vps_;
  HevcSpsRecord* const sps_;
  HevcPpsRecord* const pps_;
  WalkState state_;  // the position is the reader's, but while the memo works on it
  // From the first time on that the walk goes back: in front of it, every round is a new one.
  std::unique_ptr<WalkMemo> memo_;
  bool remembers_ = true;  // until there is no memory for it
  // The states of an array's rounds from one of them on, which is moved on at growing distances.
  WalkMemo::Cycle trail_;
  uint32_t trailRound_ = 0;
  uint32_t trailGeneration_ = 0;

  bool Unit(WalkKind kind);
  bool IsEmpty(WalkKind kind) const;
  void Read(WalkKind kind, uint32_t bits);
  void ReadNow(WalkKind kind, uint32_t bits, HevcReports& reports);
  bool LeavesOutTheRest(WalkKind kind, uint32_t round, uint32_t count);
  void Remember();
  void DropMemo() {
    memo_.reset();
    remembers_ = false;
  }
};

bool Walk::Array(uint32_t type, uint32_t count) {
  const uint32_t number = type - kHevcNalVps;
  const WalkKind kind = number < kWalkOther ? static_cast<WalkKind>(number) : kWalkOther;
  trail_.clear();
  for (uint32_t i = 0; i < count; ++i) {
    if (memo_ != nullptr && i >= kRoundsInFull && LeavesOutTheRest(kind, i, count)) return true;
    if (!Unit(kind)) return false;
  }
  return true;
}

// One unit of an array. False when it runs past the data.
bool Walk::Unit(WalkKind kind) {
  const uint64_t bits = uint64_t{in.ReadBits(16)} * 8;
  const uint64_t unitEnd = in.bitPos + bits;
  if (unitEnd > in.bitLength) {
    ErrOutLocated("Hevc read is past end of bitstream %s %d");
    return false;
  }
  const auto length = static_cast<uint32_t>(bits);
  if (kind == kWalkOther) {
    // Behind the three kinds there is no way past another unit; nothing depends on what follows.
    if (!(state_.seen[kWalkVps] && state_.seen[kWalkSps] && state_.seen[kWalkPps])) {
      state_.end = unitEnd;
      in.SkipBits(length);
    }
  } else if (length != 0) {
    if (IsEmpty(kind)) {
      Read(kind, length);
      state_.end = unitEnd;
    } else {
      in.SkipBits(length);
    }
    state_.seen[kind] = true;
  }
  if (in.bitPos != unitEnd) {
    ErrOutLocated("Hevc read is not the same length as entry size (%d <> %d) %s %d", in.bitPos,
                  static_cast<uint32_t>(unitEnd));
  }
  return true;
}

// Not yet filled: each kind of record has its own sign of it. A PPS gives way to later ones until one has
// more than one column of tiles.
bool Walk::IsEmpty(WalkKind kind) const {
  if (memo_ != nullptr) return memo_->IsEmpty(kind, state_);
  if (kind == kWalkVps) return vps_ != nullptr && vps_->profile_tier_level.general_level_idc == 0;
  if (kind == kWalkSps) return sps_ != nullptr && sps_->profile_tier_level.general_level_idc == 0;
  return pps_ != nullptr && pps_->num_tile_columns_minus1 == 0;
}

// Hands the unit of `bits` bits at the position to its reader. The reader's result is not looked at: a
// refusal leaves its own small position, which the caller reports.
void Walk::ReadNow(WalkKind kind, uint32_t bits, HevcReports& reports) {
  QLNBitState unit{const_cast<uint8_t*>(in.data()), size_, in.bitLength, in.bitPos};
  if (kind == kWalkVps) HevcReadVps(&unit, vps_, config_, bits, reports);
  if (kind == kWalkSps) HevcReadSps(&unit, sps_, config_, bits, reports);
  if (kind == kWalkPps) HevcReadPps(&unit, pps_, config_, bits, reports);
  in.bitPos = unit.bitPos;
}

void Walk::Read(WalkKind kind, uint32_t bits) {
  HevcReports reports{};
  const uint32_t from = in.bitPos;
  if (memo_ == nullptr) {
    ReadNow(kind, bits, reports);
    if (in.bitPos < from && remembers_) Remember();
  } else {
    state_.bitPos = in.bitPos;
    const bool kept = memo_->ReadUnit(kind, state_, reports, [&](WalkState& state, HevcReports& said) {
      ReadNow(kind, bits, said);
      state.bitPos = in.bitPos;
    });
    in.bitPos = state_.bitPos;
    if (!kept) DropMemo();
  }
  reports.Give();
}

void Walk::Remember() {
  try {
    memo_ = std::make_unique<WalkMemo>(config_, vps_, sps_, pps_);
    memo_->Begin(state_);
  } catch (const std::bad_alloc&) {
    DropMemo();
  }
}

// Once a state comes back, the rounds from it on repeat themselves to the end of the array, and every later
// array of the kind that comes to one of their states goes the same way. True where that is so, with the walk
// moved to where the rounds would lead.
bool Walk::LeavesOutTheRest(WalkKind kind, uint32_t round, uint32_t count) {
  state_.bitPos = in.bitPos;
  try {
    if (trailGeneration_ != memo_->generation()) trail_.clear();
    if (!trail_.empty() && trail_.front() == state_) memo_->Learn(kind, std::exchange(trail_, {}));
    if (memo_->Advance(kind, state_, count - round)) {
      in.bitPos = state_.bitPos;
      return true;
    }
    if (trail_.empty() || round >= 2 * trailRound_) {
      trail_.clear();
      trailRound_ = round;
      trailGeneration_ = memo_->generation();
    }
    trail_.push_back(state_);
  } catch (const std::bad_alloc&) {
    memo_->Restore(state_);
    DropMemo();
  }
  return false;
}

}  // namespace
}  // namespace qln

uint32_t qlnutilRead_HEVC_CR(QLNBitState* state, HevcConfigRecord* config, HevcVpsRecord* vps,
                             HevcSpsRecord* sps, HevcPpsRecord* pps) {
  using namespace qln;
  if (state == nullptr || config == nullptr || state->size == 0) return 0;
  if (state->size < 0 || state->data == nullptr) return QLN_HEVC_REFUSED;
  const auto size = static_cast<uint64_t>(state->size);
  PrivateCopy copy(size);
  if (!copy.ok()) return QLN_HEVC_REFUSED;
  std::memcpy(copy.data(), state->data, size);

  Walk walk(BitReader(copy.data(), size, state->bitLength, state->bitPos), state->size, config, vps, sps,
            pps);
  BitReader& in = walk.in;
  if (!ReadHead(in, *config)) {
    // Some files went through an escaping step as a whole, which damages the head: a second attempt reads
    // the bytes without it.
    RemoveEmulationPrevention(copy.data(), copy.data(), size, kRemovalHevcBox);
    in.bitLength = state->bitLength;
    in.bitPos = state->bitPos;
    if (!ReadHead(in, *config)) {
      state->bitPos = in.bitPos;
      return QLN_HEVC_REFUSED;
    }
  }

  const auto arrays = static_cast<int32_t>(config->numOfArrays);
  for (int32_t i = 0; i < arrays; ++i) {
    in.SkipBits(1);  // array_completeness
    if (in.ReadBit() != 0) {
      ErrOutLocated("Hevc Reserved bits incorrect %s %d");
      break;
    }
    const uint32_t type = in.ReadBits(6);
    const uint32_t count = in.ReadBits(16);
    if (!walk.Array(type, count)) {
      walk.Finish();
      state->bitPos = in.bitPos;
      return QLN_HEVC_REFUSED;
    }
  }
  state->bitPos = in.bitPos;
  return static_cast<uint32_t>(walk.Finish() / 8);
}
