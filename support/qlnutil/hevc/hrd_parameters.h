// hrd_parameters() (ITU-T H.265 clause E.2.2) as a VPS carries it: read past, nothing kept.
#ifndef QLNUTIL_HEVC_HRD_PARAMETERS_H
#define QLNUTIL_HEVC_HRD_PARAMETERS_H

#include <cstdint>

#include "qlnutil/bits/loop_reader.h"

namespace qln {

// Moves behind one hrd_parameters() structure. commonInfPresentFlag: not 0 where the common information is
// present. subLayers: sub-layers that are described, maxNumSubLayersMinus1 plus 1. Returns 0.
int32_t HevcReadHrdParameters(LoopReader& in, uint32_t commonInfPresentFlag, uint32_t subLayers);

// Moves behind one sub_layer_hrd_parameters() structure of `cpbCount` entries. Returns 0.
int32_t HevcReadSubLayerHrd(LoopReader& in, uint32_t cpbCount, uint32_t subPicHrdParamsPresentFlag);

}  // namespace qln

#endif
