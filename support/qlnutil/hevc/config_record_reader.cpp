// The reader of an HEVC decoder configuration record (ISO/IEC 14496-15, clause 8.3.3.1) as it stands in an
// hvcC box.

#include <cstring>
#include <memory>
#include <new>

#include "qlnutil/bits/bit_reader.h"
#include "qlnutil/bits/emulation_prevention.h"
#include "qlnutil/bits/private_copy.h"
#include "qlnutil/hevc/nal_header.h"
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

// The records that a walk fills, and the position and marks that steer it.
struct Walk {
  BitReader in;
  int32_t size;
  HevcConfigRecord* config;
  HevcVpsRecord* vps;
  HevcSpsRecord* sps;
  HevcPpsRecord* pps;
  uint64_t end = 0;  // of the last unit parsed or skipped for its type, in bits
  bool vpsSeen = false;
  bool spsSeen = false;
  bool ppsSeen = false;

  bool SamePlace(const Walk& other) const {
    return in.bitPos == other.in.bitPos && end == other.end && vpsSeen == other.vpsSeen &&
           spsSeen == other.spsSeen && ppsSeen == other.ppsSeen;
  }
};

// Where a walk stood at an earlier round of an array, records included.
//
// A refused unit sends the walk back to a small position, from where it may come by the same units again and
// again, up to 65535 times in each of 255 arrays. A round depends on nothing but what stands here, so once a
// state comes back the walk is periodic and whole periods can be left out.
class Snapshot {
 public:
  explicit Snapshot(const Walk& walk) : walk_(walk), config_(*walk.config) {
    Keep(vps_, walk.vps);
    Keep(sps_, walk.sps);
    Keep(pps_, walk.pps);
  }

  bool Equals(const Walk& walk) const {
    return ok_ && walk_.SamePlace(walk) && std::memcmp(&config_, walk.config, sizeof config_) == 0 &&
           Same(vps_, walk.vps) && Same(sps_, walk.sps) && Same(pps_, walk.pps);
  }

 private:
  Walk walk_;
  HevcConfigRecord config_;
  std::unique_ptr<HevcVpsRecord> vps_;
  std::unique_ptr<HevcSpsRecord> sps_;
  std::unique_ptr<HevcPpsRecord> pps_;
  bool ok_ = true;  // false without memory: then nothing is left out

  template <class Record>
  void Keep(std::unique_ptr<Record>& copy, const Record* record) {
    if (record == nullptr) return;
    copy.reset(new (std::nothrow) Record(*record));
    ok_ = ok_ && copy != nullptr;
  }

  template <class Record>
  static bool Same(const std::unique_ptr<Record>& copy, const Record* record) {
    return record == nullptr || std::memcmp(copy.get(), record, sizeof(Record)) == 0;
  }
};

// Hands the unit of `bits` bits at the position to its reader. The reader's result is not looked at: a
// refusal leaves its own small position, which the caller reports.
template <class Record>
void ReadUnit(Walk& walk, Record* record, uint32_t bits,
              uint64_t (*reader)(QLNBitState*, Record*, HevcConfigRecord*, uint32_t)) {
  QLNBitState unit{const_cast<uint8_t*>(walk.in.data()), walk.size, walk.in.bitLength, walk.in.bitPos};
  reader(&unit, record, walk.config, bits);
  walk.in.bitPos = unit.bitPos;
}

// One unit of an array. False when it runs past the data.
bool WalkUnit(Walk& walk, uint32_t type) {
  BitReader& in = walk.in;
  const uint64_t bits = uint64_t{in.ReadBits(16)} * 8;
  const uint64_t unitEnd = in.bitPos + bits;
  if (unitEnd > in.bitLength) {
    ErrOutLocated("Hevc read is past end of bitstream %s %d");
    return false;
  }
  const auto length = static_cast<uint32_t>(bits);
  // Not yet filled: each kind of record has its own sign of it. A PPS gives way to later ones until one
  // has more than one column of tiles.
  const auto take = [&](auto* record, bool empty, auto reader, bool& seen) {
    if (length == 0) return;
    if (record != nullptr && empty) {
      ReadUnit(walk, record, length, reader);
      walk.end = unitEnd;
    } else {
      in.SkipBits(length);
    }
    seen = true;
  };
  switch (type) {
    case kHevcNalVps:
      take(walk.vps, walk.vps != nullptr && walk.vps->profile_tier_level.general_level_idc == 0,
           qlnutilRead_HEVC_VPS, walk.vpsSeen);
      break;
    case kHevcNalSps:
      take(walk.sps, walk.sps != nullptr && walk.sps->profile_tier_level.general_level_idc == 0,
           qlnutilRead_HEVC_SPS, walk.spsSeen);
      break;
    case kHevcNalPps:
      take(walk.pps, walk.pps != nullptr && walk.pps->num_tile_columns_minus1 == 0, qlnutilRead_HEVC_PPS,
           walk.ppsSeen);
      break;
    default:
      // Behind the three kinds there is no way past another unit; nothing depends on what follows.
      if (!(walk.vpsSeen && walk.spsSeen && walk.ppsSeen)) {
        walk.end = unitEnd;
        in.SkipBits(length);
      }
  }
  if (in.bitPos != unitEnd) {
    ErrOutLocated("Hevc read is not the same length as entry size (%d <> %d) %s %d", in.bitPos,
                  static_cast<uint32_t>(unitEnd));
  }
  return true;
}

// Rounds of an array whose messages all go out before periods are looked for.
constexpr uint32_t kRoundsInFull = 64;

// The units of one array. False when one runs past the data.
bool WalkArray(Walk& walk, uint32_t type, uint32_t count) {
  std::unique_ptr<Snapshot> snapshot;
  uint32_t snapshotRound = 0;
  bool looking = true;
  for (uint32_t i = 0; i < count; ++i) {
    if (looking && i >= kRoundsInFull) {
      if (snapshot != nullptr && snapshot->Equals(walk)) {
        const uint32_t period = i - snapshotRound;
        i += (count - i) / period * period;
        looking = false;
        if (i >= count) break;
      } else if (snapshot == nullptr || i >= 2 * snapshotRound) {
        snapshot.reset(new (std::nothrow) Snapshot(walk));
        snapshotRound = i;
      }
    }
    if (!WalkUnit(walk, type)) return false;
  }
  return true;
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

  Walk walk{
      BitReader(copy.data(), size, state->bitLength, state->bitPos), state->size, config, vps, sps, pps};
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
    if (!WalkArray(walk, type, count)) {
      state->bitPos = in.bitPos;
      return QLN_HEVC_REFUSED;
    }
  }
  state->bitPos = in.bitPos;
  return static_cast<uint32_t>(walk.end / 8);
}
