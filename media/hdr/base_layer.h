// What the base layer of a Dolby Vision track is, as far as other readers take it for something.
#ifndef MEDIA_HDR_BASE_LAYER_H
#define MEDIA_HDR_BASE_LAYER_H

#include <array>

namespace qlnmedia {

struct BaseLayer {
  int compatibility;  // bl_signal_compatibility_id; 0 means nothing by itself, and has no entry
  const char* name;
  std::array<int, 4> transfers;  // of ITU-T H.273; 0 for none
  bool Has(int transfer) const {
    for (const int one : transfers) {
      if (one != 0 && one == transfer) return true;
    }
    return false;
  }
};

inline constexpr BaseLayer kBaseLayers[] = {
    {1, "HDR10", {16}}, {2, "SDR", {1, 6, 14, 15}}, {4, "HLG", {14, 18}}, {6, "HDR10", {16}}};

}  // namespace qlnmedia

#endif
