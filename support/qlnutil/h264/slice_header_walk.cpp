// The slice header's syntax tables, one function each, with the departures that hosts rely on.

#include "qlnutil/h264/slice_header_walk.h"

#include <cmath>

namespace qln {

namespace {

// Weight table entries that the record holds; further ones are read and not stored.
constexpr uint64_t kMaxWeights = sizeof(H264SliceHeaderRecord::luma_weight_l0) / 4;

// Whether a loop of commands may go on behind a round that began at `before`: in front of the limit, which a
// position that wrapped around has passed.
bool MayGoOn(const BitReader& bits, uint32_t before) { return !bits.BitsAtEnd() && bits.bitPos > before; }

// One list of ref_pic_list_reordering() of clause 7.3.3.1; the record keeps the last command.
void ReorderingCommands(SyntaxReader& coder, H264SliceHeaderRecord& header) {
  uint32_t before;
  do {
    before = coder.bits.bitPos;
    coder.Ue(header.reordering_of_pic_nums_idc);
    if (header.reordering_of_pic_nums_idc <= 1) {
      coder.Ue(header.abs_diff_pic_num_minus1);
    } else if (header.reordering_of_pic_nums_idc == 2) {
      coder.Ue(header.long_term_pic_num);
    }
  } while (header.reordering_of_pic_nums_idc != 3 && MayGoOn(coder.bits, before));
}

// pred_weight_table() of clause 7.3.3.2 for list 0, over the count that the record holds.
void PredWeightTable(SyntaxReader& coder, H264SliceHeaderRecord& header, bool hasChroma) {
  coder.Ue(header.luma_log2_weight_denom);
  if (hasChroma) coder.Ue(header.chroma_log2_weight_denom);
  const uint64_t rounds = InclusiveRounds(header.num_ref_idx_l0_active_minus1);
  InCountedLoop(coder.bits, [&](auto& loop) {
    RunRounds(loop.bits, rounds, kMaxWeights, [&](uint64_t i) {
      int32_t unstored;
      const bool stores = i < kMaxWeights;
      loop.Flag(header.luma_weight_l0_flag);
      if (header.luma_weight_l0_flag != 0) {
        loop.Se(stores ? header.luma_weight_l0[i] : unstored);
        loop.Se(stores ? header.luma_offset_l0[i] : unstored);
      }
      if (!hasChroma) return;
      loop.Flag(header.chroma_weight_l0_flag);
      if (header.chroma_weight_l0_flag == 0) return;
      for (int j = 0; j < 2; ++j) {
        loop.Se(stores ? header.chroma_weight_l0[i][j] : unstored);
        loop.Se(stores ? header.chroma_offset_l0[i][j] : unstored);
      }
    });
  });
}

// dec_ref_pic_marking() of clause 7.3.3.3, but that operation 5 has a difference value and operation 3 has
// none.
void DecRefPicMarking(SyntaxReader& coder, H264SliceHeaderRecord& header, bool idr) {
  if (idr) {
    coder.Flag(header.no_output_of_prior_pics_flag);
    coder.Flag(header.long_term_reference_flag);
    return;
  }
  coder.Flag(header.adaptive_ref_pic_marking_mode_flag);
  if (header.adaptive_ref_pic_marking_mode_flag == 0) return;
  uint32_t before;
  do {
    before = coder.bits.bitPos;
    coder.Ue(header.memory_management_control_operation);
    switch (header.memory_management_control_operation) {
      case 1:
      case 5:
        coder.Ue(header.difference_of_pic_nums_minus1);
        break;
      case 2:
        coder.Ue(header.mmco_long_term_pic_num);
        break;
      case 3:
      case 6:
        coder.Ue(header.long_term_frame_idx);
        break;
      case 4:
        coder.Ue(header.max_long_term_frame_idx_plus1);
        break;
      default:
        break;
    }
  } while (header.memory_management_control_operation != 0 && MayGoOn(coder.bits, before));
}

// Bits of slice_group_change_cycle: the binary logarithm of a sum, cut down, where the standard has that of
// a quotient, rounded up. The product of the two doubles decides at powers of two (2 for a sum of 8), so it
// stands as it is.
int32_t SliceGroupChangeCycleWidth(const H264PpsRecord& pps) {
  const uint64_t sum = uint64_t{pps.pic_size_in_map_units_minus1} + pps.slice_group_change_rate_minus1;
  return static_cast<int32_t>(std::log(static_cast<double>(sum) + 1.0) * (1.0 / std::log(2.0)));
}

// A width that a parameter set gives as its value minus 4.
int32_t WidthMinus4(uint32_t word) { return static_cast<int32_t>(word + 4u); }

}  // namespace

void WalkSliceHeader(SyntaxReader& coder, H264SliceHeaderRecord& header, const H264SpsRecord& sps,
                     H264PpsRecord& pps, uint32_t nalUnitType, const SliceWalkRules& rules) {
  const bool idr = nalUnitType == 5;
  SyntaxWindow in{{BitWindow(coder.bits)}};
  in.Ue(header.first_mb_in_slice);
  in.Ue(header.slice_type);
  const uint32_t kind = header.slice_type > 4 ? header.slice_type - 5 : header.slice_type;
  in.Ue(header.pic_parameter_set_id);
  in.U(WidthMinus4(sps.log2_max_frame_num_minus4), header.frame_num);
  if (sps.frame_mbs_only_flag == 0) {
    in.Flag(header.field_pic_flag);
    if (header.field_pic_flag != 0) in.Flag(header.bottom_field_flag);
  }
  if (idr) in.Ue(header.idr_pic_id);
  // A field_pic_flag that is not read counts with the value that the record holds.
  const bool hasBottomOrder =
      pps.bottom_field_pic_order_in_frame_present_flag != 0 && header.field_pic_flag == 0;
  if (sps.pic_order_cnt_type == 0) {
    in.U(WidthMinus4(sps.log2_max_pic_order_cnt_lsb_minus4), header.pic_order_cnt_lsb);
    if (hasBottomOrder) in.Se(header.delta_pic_order_cnt_bottom);
  }
  if (sps.pic_order_cnt_type == 1 && sps.delta_pic_order_always_zero_flag == 0) {
    in.Se(header.delta_pic_order_cnt[0]);
    if (hasBottomOrder) in.Se(header.delta_pic_order_cnt[1]);
  }
  if (pps.redundant_pic_cnt_present_flag != 0) in.Ue(header.redundant_pic_cnt);
  if (kind == kSliceB) in.Flag(header.direct_spatial_mv_pred_flag);
  if (kind == kSliceP || kind == kSliceB || kind == kSliceSp) {
    in.Flag(header.num_ref_idx_active_override_flag);
    if (header.num_ref_idx_active_override_flag != 0) {
      in.Ue(header.num_ref_idx_l0_active_minus1);
      if (kind == kSliceB) in.Ue(header.num_ref_idx_l1_active_minus1);
    }
  }
  // ref_pic_list_reordering() of clause 7.3.3.1.
  if ((nalUnitType != 20 || rules.reordersInNal20) && kind != kSliceI && kind != kSliceSi) {
    const auto commands = [&](SyntaxReader& lists) { ReorderingCommands(lists, header); };
    in.Flag(header.ref_pic_list_reordering_flag_l0);
    if (header.ref_pic_list_reordering_flag_l0 != 0) in = in.Behind(commands);
    if (kind == kSliceB) {
      in.Flag(header.ref_pic_list_reordering_flag_l1);
      if (header.ref_pic_list_reordering_flag_l1 != 0) in = in.Behind(commands);
    }
  }
  // weighted_bipred_idc is not looked at: a B slice with a table is out of step from here on.
  if (pps.weighted_pred_flag != 0 && (kind == kSliceP || kind == kSliceSp)) {
    in = in.Behind([&](SyntaxReader& table) { PredWeightTable(table, header, sps.chroma_format_idc != 0); });
  }
  if (rules.marking == ReferenceMarking::kParsed) {
    in = in.Behind([&](SyntaxReader& marking) { DecRefPicMarking(marking, header, idr); });
  } else if (rules.marking == ReferenceMarking::kGuessed && kind == kSliceI) {
    in.bits.ReadBits<2>();  // passed over
  }
  if (pps.entropy_coding_mode_flag != 0 && kind != kSliceI && kind != kSliceSi) {
    in.Ue(header.cabac_init_idc);
  }
  in.Se(header.slice_qp_delta);
  if (kind == kSliceSp) in.Flag(header.sp_for_switch_flag);
  if (kind == kSliceSp || kind == kSliceSi) in.Se(header.slice_qs_delta);
  if (pps.deblocking_filter_control_present_flag != 0) {
    in.Ue(header.disable_deblocking_filter_idc);
    if (header.disable_deblocking_filter_idc != 1) {
      in.Se(header.slice_alpha_c0_offset_div2);
      in.Se(header.slice_beta_offset_div2);
    }
  }
  if (pps.num_slice_groups_minus1 > 0 && pps.slice_group_map_type >= 3 && pps.slice_group_map_type <= 5) {
    in.U(SliceGroupChangeCycleWidth(pps), header.slice_group_change_cycle);
  }
  if (pps.entropy_coding_mode_flag == 0) in.Flag(pps.rbsp_stop_one_bit);
  coder.bits = in.bits.reader();
}

}  // namespace qln
