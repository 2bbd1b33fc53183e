// Looks the elements up.

#include "pictures/reorder_depth.h"

#include <algorithm>

#include "sets/set_elements.h"

namespace qlnmedia {

namespace {

// The largest that the standards allow (tables A-1 of H.264, A.4.2 of H.265).
constexpr int64_t kMostReorder = 16;
constexpr int64_t kCodingOrder = 2;  // pic_order_cnt_type

}  // namespace

std::optional<uint32_t> DeclaredReorder(Codec codec, ByteSpan sps) {
  if (!IsSps(codec, UnitType(codec, sps))) return {};
  const SetElements set = ListSetElements(codec, sps);
  std::optional<int64_t> told;
  for (const SetElement& element : set.elements) {
    const bool kind = codec == Codec::kH264 && element.name == "pic_order_cnt_type";
    if (kind && element.value == kCodingOrder) return 0;
    const char* const name = codec == Codec::kH264 ? "max_num_reorder_frames" : "sps_max_num_reorder_pics";
    if (element.name == name) told = element.value;
  }
  if (!told || *told < 0 || *told > kMostReorder) return {};
  return static_cast<uint32_t>(*told);
}

}  // namespace qlnmedia
