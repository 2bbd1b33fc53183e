// HEVC parameter sets beside an independent reader's trace of them: every element against a record's word.
#ifndef TESTS_MEDIA_HEVC_TRACES_H
#define TESTS_MEDIA_HEVC_TRACES_H

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "media/hevc_streams.h"
#include "qlnutil/hevc/record_fields.h"

namespace qln::test {

// Reads codes at any bit of unescaped bytes, a bit at a time.
struct PlainBits {
  Bytes bytes;
  size_t position = 0;
  uint32_t bit() {
    const size_t p = position++;
    return p / 8 < bytes.size() ? bytes[p / 8] >> (7 - p % 8) & 1u : 0u;
  }
  uint32_t ue() {
    int zeros = 0;
    while (bit() == 0 && zeros < 32) ++zeros;
    uint32_t value = 0;
    for (int i = 0; i < zeros; ++i) value = value << 1 | bit();
    return value + (1u << zeros) - 1;
  }
};

// Word of a named element in a record, blocks included.
using Places = std::map<std::string, RecordField>;

inline void Add(Places& places, std::span<const RecordField> fields, uint32_t base = 0) {
  for (RecordField field : fields) {
    field.word += base;
    places[field.name] = field;
  }
}

inline Places PlacesOf(uint32_t type) {
  Places places;
  if (type == 32) Add(places, kHevcVpsFields);
  if (type == 33) Add(places, kHevcSpsFields);
  if (type == 34) Add(places, kHevcPpsFields);
  if (type == 32) Add(places, kHevcProfileTierLevelFields, places["profile_tier_level"].word);
  if (type == 33) Add(places, kHevcProfileTierLevelFields, places["profile_tier_level"].word);
  return places;
}

// Elements that no record keeps.
inline const std::set<std::string> kNotKept = {
    "forbidden_zero_bit",
    "nal_unit_type",
    "nuh_layer_id",
    "nuh_temporal_id_plus1",
    "vps_base_layer_internal_flag",
    "vps_base_layer_available_flag",
    "rbsp_stop_one_bit",
    "rbsp_alignment_zero_bit",
    "sps_extension_4bits",
    "reserved_zero_2bits",
    "sps_scaling_list_data_present_flag",
    "lt_ref_pic_poc_lsb_sps",
    "used_by_curr_pic_lt_sps_flag",
};

// Compares a traced unit with a record, in front of the element `until` (empty: all). The last value of a
// name counts where the record has a single word for several.
inline void Compare(const TracedUnit& traced, const std::vector<uint32_t>& words, uint32_t type,
                    const std::string& until) {
  const Places places = PlacesOf(type);
  std::map<std::string, uint32_t> expected;  // by element and index
  uint64_t constraints = 0;
  uint32_t compatibility = 0;
  bool inConstraints = false;
  for (size_t i = 0; i < traced.elements.size(); ++i) {
    const TracedElement& element = traced.elements[i];
    std::string name = element.name.substr(0, element.name.find('['));
    if (name == until) break;
    const int width = i + 1 < traced.elements.size() ? traced.elements[i + 1].position - element.position : 1;
    const auto value = static_cast<uint32_t>(element.value);
    if (name == "general_level_idc") inConstraints = false;
    if (name == "general_progressive_source_flag") inConstraints = true;
    if (inConstraints) {
      constraints = constraints << width | value;
      if (!places.contains(name)) continue;
    }
    if (name == "general_profile_compatibility_flag") {
      compatibility = compatibility << 1 | value;
      continue;
    }
    if (kNotKept.contains(name)) continue;
    if (name == "matrix_coefficients") name = "matrix_coeffs";  // as the trace spells them
    if (name == "scaling_list_delta_coeff") name = "scaling_list_delta_coef";
    uint32_t index = 0;
    const size_t bracket = element.name.find('[');
    if (bracket != std::string::npos)
      index = static_cast<uint32_t>(std::stoul(element.name.substr(bracket + 1)));
    const auto place = places.find(name);
    ASSERT_NE(place, places.end()) << name << " has no word";
    // Ordering values: the highest sub-layer's in the first word.
    if (place->second.count == 1 || name.starts_with("sps_max_")) index = 0;
    ASSERT_LT(index, place->second.count) << element.name;
    expected[name + "/" + std::to_string(place->second.word + index)] = value;
  }
  EXPECT_GT(expected.size(), 12u);
  for (const auto& [key, value] : expected) {
    const size_t slash = key.find('/');
    EXPECT_EQ(words[std::stoul(key.substr(slash + 1))], value) << key;
  }
  if (type == 34) return;
  const uint32_t ptl = places.at("general_profile_compatibility_flags").word;
  EXPECT_EQ(words[ptl], compatibility);
  const uint32_t field = places.at("general_constraint_indicator_flags").word;
  EXPECT_EQ(words[field] | uint64_t{words[field + 1]} << 32, constraints);
}

}  // namespace qln::test

#endif
