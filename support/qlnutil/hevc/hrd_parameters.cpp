// The HRD syntax as the standard has it; the VUI of an SPS has a short form of its own.

#include "qlnutil/hevc/hrd_parameters.h"

namespace qln {

int32_t HevcReadHrdParameters(LoopReader& in, uint32_t commonInfPresentFlag, uint32_t subLayers) {
  uint32_t nalHrd = 0;
  uint32_t vclHrd = 0;
  uint32_t subPicParams = 0;
  if (commonInfPresentFlag != 0) {
    nalHrd = in.ReadBit();
    vclHrd = in.ReadBit();
    if (nalHrd != 0 || vclHrd != 0) {
      subPicParams = in.ReadBit();
      if (subPicParams != 0) in.SkipBits(8 + 5 + 1 + 5);  // tick divisor, three delay length fields
      in.SkipBits(4 + 4);                                 // bit_rate_scale, cpb_size_scale
      if (subPicParams != 0) in.SkipBits(4);              // cpb_size_du_scale
      in.SkipBits(5 + 5 + 5);                             // delay lengths
    }
  }
  for (uint32_t i = 0; i < subLayers; ++i) {
    uint32_t lowDelay = 0;
    uint32_t cpbCount = 1;
    const uint32_t fixedRateGeneral = in.ReadBit();
    const uint32_t fixedRateWithinCvs = fixedRateGeneral == 0 ? in.ReadBit() : 1u;
    if (fixedRateWithinCvs == 1) {
      in.ReadUe();  // elemental_duration_in_tc_minus1
    } else {
      lowDelay = in.ReadBit();
    }
    if (lowDelay == 0) cpbCount = in.ReadUe() + 1;
    if (nalHrd != 0) HevcReadSubLayerHrd(in, cpbCount, subPicParams);
    if (vclHrd != 0) HevcReadSubLayerHrd(in, cpbCount, subPicParams);
  }
  return 0;
}

int32_t HevcReadSubLayerHrd(LoopReader& in, uint32_t cpbCount, uint32_t subPicHrdParamsPresentFlag) {
  RunRounds(in, cpbCount, 0, [&](uint64_t) {
    in.ReadUe();  // bit_rate_value_minus1
    in.ReadUe();  // cpb_size_value_minus1
    if (subPicHrdParamsPresentFlag != 0) {
      in.ReadUe();  // cpb_size_du_value_minus1
      in.ReadUe();  // bit_rate_du_value_minus1
    }
    in.SkipBits(1);  // cbr_flag
  });
  return 0;
}

}  // namespace qln
