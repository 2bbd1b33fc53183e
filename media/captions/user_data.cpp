// Makes and reads cc_data() in ATSC user data.

#include "captions/user_data.h"

#include <algorithm>
#include <array>

namespace qlnmedia::captions {
namespace {

constexpr std::array<uint8_t, 5> kIdentifier = {'G', 'A', '9', '4', 0x03};  // user_data_type_code: cc_data
constexpr std::array<uint8_t, 3> kAtsc = {0xB5, 0x00, 0x31};  // itu_t_t35_country_code, provider code
constexpr std::array<uint8_t, 4> kUserDataStart = {0, 0, 1, 0xB2};

constexpr uint8_t kReservedBit = 0x80;
constexpr uint8_t kProcessCcData = 0x40;
constexpr uint8_t kCcCount = 0x1F;
constexpr uint8_t kMarkerBits = 0xFF;

template <size_t kSize>
bool BeginsWith(std::span<const uint8_t> data, const std::array<uint8_t, kSize>& head) {
  return data.size() >= kSize && std::equal(head.begin(), head.end(), data.begin());
}

template <size_t kSize>
Bytes Behind(const std::array<uint8_t, kSize>& head, const std::vector<Triplet>& triplets) {
  Bytes bytes(head.begin(), head.end());
  const Bytes data = MakeUserData(triplets);
  bytes.insert(bytes.end(), data.begin(), data.end());
  return bytes;
}

}  // namespace

Bytes MakeUserData(const std::vector<Triplet>& triplets) {
  const size_t count = std::min(triplets.size(), kMostTriplets);
  Bytes data(kIdentifier.begin(), kIdentifier.end());
  data.push_back(static_cast<uint8_t>(kReservedBit | kProcessCcData | count));
  data.push_back(0xFF);
  for (size_t i = 0; i < count; ++i) {
    const Triplet& t = triplets[i];
    const auto head = static_cast<uint8_t>(0xF8 | (t.valid ? 4 : 0) | static_cast<int>(t.type));
    data.insert(data.end(), {head, t.first, t.second});
  }
  data.push_back(kMarkerBits);
  return data;
}

Bytes MakeRegisteredUserData(const std::vector<Triplet>& triplets) { return Behind(kAtsc, triplets); }

Bytes MakePictureUserData(const std::vector<Triplet>& triplets) { return Behind(kUserDataStart, triplets); }

std::optional<std::vector<Triplet>> ReadUserData(std::span<const uint8_t> data) {
  if (!BeginsWith(data, kIdentifier)) return std::nullopt;
  data = data.subspan(kIdentifier.size());
  std::vector<Triplet> triplets;
  if (data.size() < 2 || (data[0] & kProcessCcData) == 0) return triplets;
  const size_t count = std::min(size_t{data[0]} & kCcCount, (data.size() - 2) / 3);
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* const t = data.data() + 2 + 3 * i;
    triplets.push_back({(t[0] & 4) != 0, static_cast<CcType>(t[0] & 3), t[1], t[2]});
  }
  return triplets;
}

std::optional<std::vector<Triplet>> ReadRegisteredUserData(std::span<const uint8_t> payload) {
  if (!BeginsWith(payload, kAtsc)) return std::nullopt;
  return ReadUserData(payload.subspan(kAtsc.size()));
}

}  // namespace qlnmedia::captions
