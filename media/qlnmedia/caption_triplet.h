/// @file caption_triplet.h
/// The triplets in which pictures carry captions (CTA-708, ATSC A/53 part 4).
#ifndef QLNMEDIA_CAPTION_TRIPLET_H
#define QLNMEDIA_CAPTION_TRIPLET_H

#include <cstddef>
#include <cstdint>

namespace qlnmedia::captions {

/// cc_type of a triplet.
enum class CcType : uint8_t { kField1 = 0, kField2 = 1, kServiceData = 2, kServiceStart = 3 };

/// cc_valid, cc_type and the two bytes of one triplet; line 21 bytes with their parity.
struct Triplet {
  bool valid = false;                  ///< cc_valid
  CcType type = CcType::kServiceData;  ///< cc_type
  uint8_t first = 0;                   ///< cc_data_1
  uint8_t second = 0;                  ///< cc_data_2

  /// Equal member by member.

  friend bool operator==(const Triplet&, const Triplet&) = default;
};

/// What a picture can carry.
inline constexpr size_t kMostTriplets = 31;

}  // namespace qlnmedia::captions

#endif
