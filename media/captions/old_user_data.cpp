// Reads the older forms of MPEG-2 user data.

#include "captions/old_user_data.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "captions/bits.h"

namespace qlnmedia::captions {

namespace {

constexpr uint8_t kScte20 = 0x03;  // user_data_type_code
constexpr std::array<uint8_t, 4> kDvd = {'C', 'C', 0x01, 0xF8};
constexpr uint8_t kDvdField1 = 0xFF;
constexpr uint8_t kDvdField2 = 0xFE;

// BitReader from the front, most significant first; 0 behind the end, which `left` tells.
// A byte whose least significant bit comes first, as line 21 sends it.
uint8_t TakeReversed(BitReader& bits) {
  uint8_t value = 0;
  for (int i = 0; i < 8; ++i) value = static_cast<uint8_t>(value | bits.Take(1) << i);
  return value;
}

bool IsScte20(std::span<const uint8_t> data) {
  // Seven reserved bits, 1000000, whose first one some encoders leave 0; then vbi_data_flag.
  return data.size() >= 3 && data[0] == kScte20 && (data[1] & 0x7F) == 0x01;
}

bool IsDvd(std::span<const uint8_t> data) {
  return data.size() > kDvd.size() && std::equal(kDvd.begin(), kDvd.end(), data.begin());
}

}  // namespace

std::optional<std::vector<Triplet>> ReadScte20UserData(std::span<const uint8_t> data, bool topFirst) {
  if (!IsScte20(data)) return {};
  constexpr size_t kEntryBits = 26;
  BitReader bits(data.subspan(2));
  std::vector<Triplet> triplets;
  const uint32_t cc_count = bits.Take(5);
  for (uint32_t i = 0; i < cc_count && bits.left() >= kEntryBits; ++i) {
    bits.Take(2);  // cc_priority
    const uint32_t field_number = bits.Take(2);
    bits.Take(5);  // line_offset
    const uint8_t cc_data_1 = TakeReversed(bits);
    const uint8_t cc_data_2 = TakeReversed(bits);
    bits.Take(1);  // marker_bit
    if (field_number == 0) continue;
    // The third field that is shown is the first one again.
    const bool top = (field_number != 2) == topFirst;
    triplets.push_back({true, top ? CcType::kField1 : CcType::kField2, cc_data_1, cc_data_2});
  }
  return triplets;
}

std::optional<std::vector<Triplet>> ReadDvdUserData(std::span<const uint8_t> data) {
  if (!IsDvd(data)) return {};
  std::vector<Triplet> triplets;
  // Behind the identifier a byte with the order of the fields and a count.
  for (size_t at = kDvd.size() + 1; at + 3 <= data.size(); at += 3) {
    if (data[at] != kDvdField1 && data[at] != kDvdField2) break;
    triplets.push_back(
        {true, data[at] == kDvdField1 ? CcType::kField1 : CcType::kField2, data[at + 1], data[at + 2]});
  }
  return triplets;
}

bool IsOldUserData(std::span<const uint8_t> data) { return IsScte20(data) || IsDvd(data); }

}  // namespace qlnmedia::captions
