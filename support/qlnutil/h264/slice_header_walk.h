// slice_header() of ITU-T H.264 clause 7.3.3 as both slice header operations walk it.
#ifndef QLNUTIL_H264_SLICE_HEADER_WALK_H
#define QLNUTIL_H264_SLICE_HEADER_WALK_H

#include <cstdint>

#include "qlnutil/h264/parameter_sets.h"
#include "qlnutil/h264/syntax_coders.h"

namespace qln {

// slice_type modulo 5; a coded type of 10 and above is none of these.
enum SliceKind : uint32_t { kSliceP = 0, kSliceB = 1, kSliceI = 2, kSliceSp = 3, kSliceSi = 4 };

// What is done about dec_ref_pic_marking().
enum class ReferenceMarking {
  kAbsent,  // the slice has none
  kParsed,
  kGuessed,  // two bits for an I slice, as if of an IDR picture; none for the others
};

struct SliceWalkRules {
  bool reordersInNal20;  // ref_pic_list_reordering() is read in units of type 20 too
  ReferenceMarking marking;
};

// Walks from first_mb_in_slice to the end of the header and fills what it meets. In CAVLC streams the bit
// behind the header goes to the PPS record's rbsp_stop_one_bit.
void WalkSliceHeader(SyntaxReader& coder, H264SliceHeaderRecord& header, const H264SpsRecord& sps,
                     H264PpsRecord& pps, uint32_t nalUnitType, const SliceWalkRules& rules);

// qlnutilRead_SliceHeader over a unit that may run past the bytes at hand.
uint32_t ReadSliceHeader(const UnitBytes& unit, H264SliceHeaderRecord* header, const H264SpsRecord& sps,
                         H264PpsRecord* pps, uint32_t nalUnitType);

}  // namespace qln

#endif
