// Writers of configuration bodies: the HEVC decoder configuration record and the Dolby Vision configuration.
// Both are built apart and then put at any bit of the output, if they fit.

#include <cstring>

#include "qlnutil/bits/bit_writer.h"
#include "qlnutil/bits/private_copy.h"
#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/qlnhevc.h"

namespace qln {
namespace {

constexpr uint64_t kHeadBytes = 23;
constexpr uint64_t kArrayHeadBytes = 5;
constexpr uint64_t kDolbyVisionBytes = 24;

// True when `bytes` more bytes fit between the state's position and its size.
bool Fits(const QLNBitState& state, uint64_t bytes) {
  return state.data != nullptr && state.size > 0 &&
         state.bitPos + bytes * 8 <= static_cast<uint64_t>(state.size) * 8;
}

void Append(QLNBitState& state, const uint8_t* bytes, uint64_t count) {
  BitWriter out(state);
  out.WriteBytes(bytes, count);
  state.bitPos = static_cast<uint32_t>(out.bitPos);
}

void WriteHead(BitWriter& out, const HevcConfigRecord& config) {
  out.WriteBits(8, config.configurationVersion);
  out.WriteBits(2, config.general_profile_space);
  out.WriteBits(1, config.general_tier_flag);
  out.WriteBits(5, config.general_profile_idc);
  out.WriteBits64(32, config.general_profile_compatibility_flags);
  out.WriteBits64(48, config.general_constraint_indicator_flags);
  out.WriteBits(8, config.general_level_idc);
  out.WriteBits(4, 0xF);
  out.WriteBits(12, config.min_spatial_segmentation_idc);
  out.WriteBits(6, 0x3F);
  out.WriteBits(2, config.parallelismType);
  out.WriteBits(6, 0x3F);
  out.WriteBits(2, config.chromaFormat);
  out.WriteBits(5, 0x1F);
  out.WriteBits(3, config.bitDepthLumaMinus8);
  out.WriteBits(5, 0x1F);
  out.WriteBits(3, config.bitDepthChromaMinus8);
  out.WriteBits(16, config.avgFrameRate);
  out.WriteBits(2, config.constantFrameRate);
  out.WriteBits(3, config.numTemporalLayers);
  out.WriteBits(1, config.temporalIdNested);
  out.WriteBits(2, config.lengthSizeMinusOne);
  out.WriteBits(8, config.numOfArrays);
}

// A ready NAL unit as an array of its own.
struct Unit {
  HevcNalType type;
  const uint8_t* bytes;
  int32_t size;

  uint64_t count() const { return bytes == nullptr || size < 0 ? 0 : static_cast<uint64_t>(size); }

  void Write(BitWriter& out) const {
    out.WriteBit(1);  // array_completeness
    out.WriteBit(0);
    out.WriteBits(6, type);
    out.WriteBits(16, 1);                            // numNalus
    out.WriteBits(16, static_cast<uint32_t>(size));  // nalUnitLength
    out.WriteBytes(bytes, count());
  }
};

}  // namespace
}  // namespace qln

uint32_t qlnutilWrite_HEVC_CR(QLNBitState* state, const HevcConfigRecord* config, const uint8_t* vps,
                              const uint8_t* sps, const uint8_t* pps, int32_t vpsSize, int32_t spsSize,
                              int32_t ppsSize) {
  using namespace qln;
  if (state == nullptr) return 0;
  const Unit units[] = {
      {kHevcNalVps, vps, vpsSize}, {kHevcNalSps, sps, spsSize}, {kHevcNalPps, pps, ppsSize}};
  uint64_t bytes = config != nullptr ? kHeadBytes : 0;
  for (const Unit& unit : units) bytes += kArrayHeadBytes + unit.count();
  if (!Fits(*state, bytes)) return state->bitPos / 8;

  PrivateCopy area(bytes);
  if (!area.ok()) return state->bitPos / 8;
  BitWriter out(area.data(), bytes);
  if (config != nullptr) WriteHead(out, *config);
  for (const Unit& unit : units) unit.Write(out);
  Append(*state, area.data(), out.BytePos());
  return state->bitPos / 8;
}

uint32_t qlnutilWrite_DVVC_CR(QLNBitState* state, const DvvcConfigRecord* config) {
  using namespace qln;
  if (state == nullptr) return 0;
  if (config == nullptr || !Fits(*state, kDolbyVisionBytes)) return state->bitPos / 8;

  uint8_t body[kDolbyVisionBytes] = {};
  BitWriter out(body, sizeof body);
  const uint32_t flags = config->dv_flags;
  out.WriteBits(8, config->dv_version_major);
  out.WriteBits(8, config->dv_version_minor);
  out.WriteBits(7, flags);                     // dv_profile
  out.WriteBits(6, flags >> 7);                // dv_level
  out.WriteBit(flags >> 13);                   // rpu_present_flag
  out.WriteBit(flags >> 14);                   // el_present_flag
  out.WriteBit(flags >> 15);                   // bl_present_flag
  out.WriteBits(4, config->dv_compatibility);  // dv_bl_signal_compatibility_id
  out.WriteBits(28, config->dv_compatibility >> 4);
  for (const uint32_t word : config->dv_reserved) out.WriteBits(32, word);
  Append(*state, body, sizeof body);
  return state->bitPos / 8;
}
