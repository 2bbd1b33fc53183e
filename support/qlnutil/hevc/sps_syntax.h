// The parts of the SPS syntax that the reader keeps in files of their own.
#ifndef QLNUTIL_HEVC_SPS_SYNTAX_H
#define QLNUTIL_HEVC_SPS_SYNTAX_H

#include "qlnutil/bits/bit_reader.h"
#include "qlnutil/bits/bit_writer.h"
#include "qlnutil/qlnhevc.h"

namespace qln {

// vui_parameters() (ITU-T H.265 clause E.2.1) with the short form of its HRD.
void ReadVui(BitReader& in, HevcSpsRecord& sps);
void WriteVui(BitWriter& out, const HevcSpsRecord& sps);

// The short-term reference picture sets of an SPS, num_short_term_ref_pic_sets of them.
void ReadShortTermSets(BitReader& in, HevcSpsRecord& sps);
void WriteShortTermSets(BitWriter& out, const HevcSpsRecord& sps);

// Matrices of scaling_list_data() for a sizeId, and coefficients of each.
constexpr int ScalingMatrices(int sizeId) { return sizeId == 3 ? 2 : 6; }
constexpr int ScalingCoefficients(int sizeId) { return sizeId == 0 ? 16 : 64; }

}  // namespace qln

#endif
