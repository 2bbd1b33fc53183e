// The SPS writer: the reader's syntax the other way round, and where it differs from it.

#include "qlnutil/hevc/parameter_set_writer.h"
#include "qlnutil/hevc/sps_syntax.h"

namespace qln {

// As many flag pairs as abs_delta_rps_minus1 says, which is this writer's own rule, and no delta_idx_minus1.
void PredictedSetSyntax(HevcSetWriter& coder, HevcSpsRecord& sps, uint32_t index) {
  const HevcShortTermRps& set = coder.Entry(sps.st_ref_pic_set, index);
  coder.Flag(set.delta_rps_sign);
  coder.Ue(set.abs_delta_rps_minus1);
  for (uint32_t j = 0; j < set.abs_delta_rps_minus1 + 1u && !coder.Full(); ++j) {
    coder.Flag(coder.Entry(set.used_by_curr_pic_flag, j));
    coder.Flag(coder.Entry(set.use_delta_flag, j));
  }
}

namespace {

struct SpsWriter : HevcSetWriter {
  bool ScalingListDataPresentFlag(const HevcSpsRecord& sps) {
    Flag(sps.sps_scaling_list_data_present_flag);
    return sps.sps_scaling_list_data_present_flag != 0;
  }

  static bool AcceptsShortTermSets(const HevcSpsRecord& /*sps*/) { return true; }

  // The value goes out as ue(v), where the reader and the standard have fixed bits: a set with long-term
  // pictures does not survive a round trip.
  void LongTermPictures(const HevcSpsRecord& sps) {
    for (uint32_t i = 0; i < sps.num_long_term_ref_pics_sps && !Full(); ++i) {
      const HevcLongTermPicture& picture = Entry(sps.long_term_ref_pics, i);
      Ue(picture.lt_ref_pic_poc_lsb_sps);
      Flag(picture.used_by_curr_pic_lt_sps_flag);
    }
  }

  // The extension's syntax is not written, so a second write does not announce it.
  static void ScreenContent(HevcSpsRecord& sps) { sps.sps_scc_extension_flag = 0; }
};

}  // namespace
}  // namespace qln

uint32_t qlnutilWrite_HEVC_SPS(HevcSpsRecord* sps, uint8_t* output, uint32_t /*capacity*/) {
  using namespace qln;
  if (sps == nullptr || output == nullptr) return 0;
  HevcUnitWriter unit(kHevcNalSps);
  SpsWriter coder{{{unit.bits()}}};
  SpsSyntax(coder, *sps, nullptr);
  return unit.Finish(coder.bits, output);
}
