// Profile and level of a configuration record and of its first SPS.

#include "check/config_head.h"

#include <fmt/format.h>

#include <optional>

#include "units/access_unit.h"

namespace qlnmedia {

namespace {

// Profile and level of an SPS: in H.264 the bytes behind its header, in HEVC in the profile_tier_level behind
// one more byte; the level stands behind 11 bytes of profile.
constexpr size_t kAvcProfileAt = 1;
constexpr size_t kAvcLevelAt = 3;
constexpr size_t kHevcProfileAt = 3;
constexpr size_t kHevcLevelAt = 14;
constexpr uint8_t kHevcProfileBits = 31;

std::vector<std::string> AvcHeadFindings(const AvccHead& head, ByteSpan sps) {
  std::vector<std::string> findings;
  if (sps.size() <= kAvcLevelAt) return findings;
  if (head.AVCProfileIndication != sps[kAvcProfileAt])
    findings.push_back(
        fmt::format("the avcC says profile {}, its SPS {}", head.AVCProfileIndication, sps[kAvcProfileAt]));
  if (head.AVCLevelIndication != sps[kAvcLevelAt])
    findings.push_back(
        fmt::format("the avcC says level_idc {}, its SPS {}", head.AVCLevelIndication, sps[kAvcLevelAt]));
  return findings;
}

// The level of the record is the highest of all its sets.
std::vector<std::string> HevcHeadFindings(const HvccHead& head, ByteSpan unit) {
  std::vector<std::string> findings;
  const Bytes sps = Unescape(unit);
  if (sps.size() <= kHevcLevelAt) return findings;
  const int profile = sps[kHevcProfileAt] & kHevcProfileBits;
  if (head.general_profile_idc != profile)
    findings.push_back(
        fmt::format("the hvcC says profile {}, its SPS {}", head.general_profile_idc, profile));
  if (head.general_level_idc < sps[kHevcLevelAt])
    findings.push_back(
        fmt::format("the hvcC says level_idc {}, its SPS {}", head.general_level_idc, sps[kHevcLevelAt]));
  return findings;
}

}  // namespace

std::vector<std::string> ConfigHeadFindings(const ConfigRecord& config) {
  for (const Bytes& unit : config.units()) {
    if (!IsSps(config.codec, UnitType(config.codec, unit))) continue;
    if (const std::optional<AvccHead> head = config.avccHead()) return AvcHeadFindings(*head, unit);
    if (const std::optional<HvccHead> head = config.hvccHead()) return HevcHeadFindings(*head, unit);
    break;
  }
  return {};
}

}  // namespace qlnmedia
