// Words the fields of a configuration record's head that its sets contradict.

#include "check/config_head.h"

#include <fmt/format.h>

#include "sets/config_head.h"

namespace qlnmedia {

namespace {

// Profile and level as people call them, the others by their published names.
std::string_view NameOf(std::string_view field) {
  if (field == "AVCProfileIndication" || field == "general_profile_idc") return "profile";
  if (field == "AVCLevelIndication" || field == "general_level_idc") return "level_idc";
  return field;
}

std::string ValueText(const ConfigHeadField& field, uint64_t value) {
  if (field.hexDigits == 0) return fmt::format("{}", value);
  return fmt::format("0x{:0{}X}", value, field.hexDigits);
}

}  // namespace

std::vector<std::string> ConfigHeadFindings(const ConfigRecord& config) {
  std::vector<std::string> findings;
  for (const ConfigHeadField& field : ReadConfigHead(config, config.units())) {
    if (field.agrees || !field.sets) continue;
    findings.push_back(fmt::format("the {} says {} {}, its SPS {}",
                                   config.codec == Codec::kH264 ? "avcC" : "hvcC", NameOf(field.name),
                                   ValueText(field, field.box), ValueText(field, *field.sets)));
  }
  return findings;
}

}  // namespace qlnmedia
