// The SPS reader: where it departs from the standard, and what it folds into a configuration record.

#include <algorithm>

#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/hevc/parameter_set_reader.h"
#include "qlnutil/hevc/parameter_sets.h"
#include "qlnutil/hevc/sps_syntax.h"

namespace qln {

void PredictedSetSyntax(HevcLoopCoder& coder, HevcSpsRecord& sps, uint32_t index) {
  HevcShortTermRps& set = sps.st_ref_pic_set[index];
  uint32_t reference = index - 1;
  // The standard has delta_idx_minus1 in slice headers only; here the last set has it.
  if (index == sps.num_short_term_ref_pic_sets - 1) reference = index - coder.bits.ReadUe() - 1;
  coder.Flag(set.delta_rps_sign);
  coder.Ue(set.abs_delta_rps_minus1);
  if (reference >= QLN_HEVC_RPS_SETS) return;
  const HevcShortTermRps& from = sps.st_ref_pic_set[reference];
  const uint32_t pictures =
      coder.Coded(set.used_by_curr_pic_flag, from.num_negative_pics + from.num_positive_pics);
  for (uint32_t j = 0; j < pictures; ++j) {  // one pair less than the standard has
    coder.Flag(set.used_by_curr_pic_flag[j]);
    if (set.used_by_curr_pic_flag[j] == 0) coder.Flag(set.use_delta_flag[j]);
  }
}

namespace {

constexpr HevcReaderPolicy kSpsReader{
    kRemovalHevcSpsPps, true,
    "\nqlnutilRead_HEVC_SPS failed bit length is wrong = %d padding = %d current bit %d bit length %d 0x%08X "
    "0x%08X",
    "\nqlnutilRead_HEVC_SPS failed allignment bit = %d padding = %d current bit %d bit length %d"};

struct SpsReader : HevcSetReader<BitReader&> {
  // sps_scaling_list_data_present_flag is not stored: a record then writes the default lists. Past the end it
  // counts as clear.
  bool ScalingListDataPresentFlag(const HevcSpsRecord& /*sps*/) { return bits.ReadBit() == 1; }

  static bool AcceptsShortTermSets(HevcSpsRecord& sps) {
    if (static_cast<int32_t>(sps.num_short_term_ref_pic_sets) <= QLN_HEVC_RPS_SETS) return true;
    sps.num_short_term_ref_pic_sets = 0;
    return false;
  }

  void LongTermPictures(HevcSpsRecord& sps) {
    const int32_t width = static_cast<int32_t>(sps.log2_max_pic_order_cnt_lsb_minus4 + 4u);
    const uint32_t stored = Coded(sps.long_term_ref_pics, sps.num_long_term_ref_pics_sps);
    InLoop([&](HevcLoopCoder& loop) {
      for (uint32_t i = 0; i < stored; ++i) {
        loop.U(width, sps.long_term_ref_pics[i].lt_ref_pic_poc_lsb_sps);
        loop.Flag(sps.long_term_ref_pics[i].used_by_curr_pic_lt_sps_flag);
      }
    });
    // Pictures beyond the record are passed: each takes the same bits, whatever their values.
    const uint32_t pictureBits = static_cast<uint32_t>(std::max(width, 0)) + 1u;
    Pass((sps.num_long_term_ref_pics_sps - stored) * pictureBits);
  }

  void ScreenContent(const HevcSpsRecord& /*sps*/) {}  // its data is not looked for
};

// False when the unit is refused.
bool ReadBody(HevcUnit& unit, HevcSpsRecord& sps, HevcConfigRecord* config) {
  if (unit.nalType() != kHevcNalSps) {
    unit.Report("Not a sps NAL %s %d");
    return false;
  }
  SpsReader coder{{{{unit.BehindHeader()}}}};
  const bool accepted = SpsSyntax(coder, sps, config);
  unit.reports().reservedPairs = coder.reservedPairs;
  return accepted;
}

void Fold(const HevcSpsRecord& sps, HevcConfigRecord& config) {
  const auto asSigned = [](uint32_t word) { return static_cast<int32_t>(word); };
  config.numTemporalLayers = static_cast<uint32_t>(
      std::max(asSigned(config.numTemporalLayers), asSigned(sps.sps_max_sub_layers_minus1 + 1u)));
  config.temporalIdNested = sps.sps_temporal_id_nesting_flag;
  config.chromaFormat = sps.chroma_format_idc;
  config.bitDepthLumaMinus8 = sps.bit_depth_luma_minus8;
  config.bitDepthChromaMinus8 = sps.bit_depth_chroma_minus8;
  if (sps.bitstream_restriction_flag != 0) {
    config.min_spatial_segmentation_idc = static_cast<uint32_t>(
        std::min(asSigned(config.min_spatial_segmentation_idc), asSigned(sps.min_spatial_segmentation_idc)));
  }
}

}  // namespace

HevcRead HevcReadSps(QLNBitState* state, HevcSpsRecord* sps, HevcConfigRecord* config, uint32_t lengthBits,
                     HevcReports& reports) {
  const HevcRead read = ReadSetUnit(state, sps, lengthBits, kSpsReader, reports,
                                    [&](HevcUnit& unit) { return ReadBody(unit, *sps, config); });
  if (read.end == HevcRead::End::kRead && config != nullptr) Fold(*sps, *config);
  return read;
}

}  // namespace qln

uint64_t qlnutilRead_HEVC_SPS(QLNBitState* state, HevcSpsRecord* sps, HevcConfigRecord* config,
                              uint32_t lengthBits) {
  qln::HevcReports reports;
  const qln::HevcRead read = qln::HevcReadSps(state, sps, config, lengthBits, reports);
  reports.Give();
  return read.Exported();
}
