// What parameter sets of ITU-T H.265 hold beside single elements: the NAL header (clause 7.3.1.2), scaling
// lists (7.3.4) and short-term reference picture sets (7.3.7).
#ifndef MEDIA_SETS_HEVC_LISTS_SYNTAX_H
#define MEDIA_SETS_HEVC_LISTS_SYNTAX_H

#include <algorithm>
#include <array>
#include <cstdint>

#include "sets/syntax_reader.h"

namespace qlnmedia {

// Returns nuh_layer_id.
template <class Io>
uint32_t ReadHevcNalHeader(Io& io) {
  io.flag("forbidden_zero_bit");
  io.u("nal_unit_type", 6);
  const uint32_t nuh_layer_id = io.u("nuh_layer_id", 6);
  io.u("nuh_temporal_id_plus1", 3);
  return nuh_layer_id;
}

// scaling_list_data()
template <class Io>
void ReadHevcScalingListData(Io& io) {
  const auto scope = io.structure("scaling_list_data");
  for (int sizeId = 0; sizeId < 4; ++sizeId) {
    for (int matrixId = 0; matrixId < 6; matrixId += (sizeId == 3) ? 3 : 1) {
      if (!io.flag("scaling_list_pred_mode_flag", sizeId, matrixId)) {
        io.ue("scaling_list_pred_matrix_id_delta", sizeId, matrixId);
      } else {
        const int coefNum = std::min(64, 1 << (4 + (sizeId << 1)));
        if (sizeId > 1) {
          io.se("scaling_list_dc_coef_minus8", sizeId - 2, matrixId);
        }
        for (int i = 0; i < coefNum; ++i) {
          io.se("scaling_list_delta_coef", sizeId, matrixId, i);
        }
      }
    }
  }
}

// The picture order differences of a short-term reference picture set, nearest first: those in front of the
// picture (DeltaPocS0) and those behind it (DeltaPocS1). Each fits a decoded picture buffer of 16.
struct HevcReferenceSet {
  struct List {
    std::array<int64_t, 16> difference{};
    size_t count = 0;
    bool full = false;  // something did not fit
    void Add(int64_t value) {
      if (count == difference.size()) {
        full = true;
      } else {
        difference[count++] = value;
      }
    }
  };
  List before;
  List after;
};

// The set that follows from one read before it, by equations 7-61 and 7-62.
inline HevcReferenceSet PredictReferenceSet(const HevcReferenceSet& from, int64_t deltaRps,
                                            const std::array<bool, 33>& use_delta_flag) {
  HevcReferenceSet set;
  const size_t all = from.before.count + from.after.count;
  const auto take = [&](size_t j, int64_t difference, bool before) {
    if (!use_delta_flag[j] || (before ? difference >= 0 : difference <= 0)) return;
    (before ? set.before : set.after).Add(difference);
  };
  for (size_t j = from.after.count; j-- > 0;)
    take(from.before.count + j, from.after.difference[j] + deltaRps, true);
  take(all, deltaRps, true);
  for (size_t j = 0; j < from.before.count; ++j) take(j, from.before.difference[j] + deltaRps, true);
  for (size_t j = from.before.count; j-- > 0;) take(j, from.before.difference[j] + deltaRps, false);
  take(all, deltaRps, false);
  for (size_t j = 0; j < from.after.count; ++j)
    take(from.before.count + j, from.after.difference[j] + deltaRps, false);
  return set;
}

// st_ref_pic_set() as it stands in an SPS; `before` is the set of the index before.
template <class Io>
HevcReferenceSet ReadHevcReferenceSet(Io& io, uint32_t stRpsIdx, const HevcReferenceSet& before) {
  const auto scope = io.structure("st_ref_pic_set", static_cast<int>(stRpsIdx));
  HevcReferenceSet set;
  bool inter_ref_pic_set_prediction_flag = false;
  if (stRpsIdx != 0) {
    inter_ref_pic_set_prediction_flag = io.flag("inter_ref_pic_set_prediction_flag");
  }
  if (inter_ref_pic_set_prediction_flag) {
    const bool delta_rps_sign = io.flag("delta_rps_sign");
    const int64_t abs_delta_rps_minus1 = io.ue("abs_delta_rps_minus1");
    std::array<bool, 33> use_delta_flag;
    use_delta_flag.fill(true);
    for (size_t j = 0; j <= before.before.count + before.after.count; ++j) {
      if (!io.flag("used_by_curr_pic_flag", j)) {
        use_delta_flag[j] = io.flag("use_delta_flag", j);
      }
    }
    set = PredictReferenceSet(before, (delta_rps_sign ? -1 : 1) * (abs_delta_rps_minus1 + 1), use_delta_flag);
    if (set.before.full || set.after.full) io.refuse("use_delta_flag");
  } else {
    const uint32_t num_negative_pics = io.ue("num_negative_pics", Most{16});
    const uint32_t num_positive_pics = io.ue("num_positive_pics", Most{16});
    int64_t difference = 0;
    for (uint32_t i = 0; i < num_negative_pics; ++i) {
      difference -= int64_t{io.ue("delta_poc_s0_minus1", i)} + 1;
      set.before.Add(difference);
      io.flag("used_by_curr_pic_s0_flag", i);
    }
    difference = 0;
    for (uint32_t i = 0; i < num_positive_pics; ++i) {
      difference += int64_t{io.ue("delta_poc_s1_minus1", i)} + 1;
      set.after.Add(difference);
      io.flag("used_by_curr_pic_s1_flag", i);
    }
  }
  return set;
}

}  // namespace qlnmedia

#endif
