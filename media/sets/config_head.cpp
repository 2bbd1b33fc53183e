// Holds the head of a configuration record against its sets.

#include "sets/config_head.h"

#include <algorithm>
#include <initializer_list>

#include "sets/set_elements.h"

namespace qlnmedia {

namespace {

// What a field must be where the sets say a value.
enum class Rule {
  kSame,
  kSameAsHighest,
  kNotBelow,
  kNotAbove,
  kNoOtherFlags,  // no flag that a set lacks
};

// A field with the values that the sets have for it, one a set.
ConfigHeadField Field(std::string_view name, uint64_t box, Rule rule, const std::vector<uint64_t>& values,
                      int hexDigits = 0) {
  ConfigHeadField field{name, box, {}, true, hexDigits};
  if (values.empty()) return field;
  switch (rule) {
    case Rule::kSame: {
      const auto other = std::find_if(values.begin(), values.end(), [box](uint64_t v) { return v != box; });
      field.sets = other == values.end() ? values.front() : *other;
      field.agrees = other == values.end();
      break;
    }
    case Rule::kSameAsHighest:
    case Rule::kNotBelow:
      field.sets = *std::max_element(values.begin(), values.end());
      field.agrees = rule == Rule::kNotBelow ? box >= *field.sets : box == *field.sets;
      break;
    case Rule::kNotAbove:
      field.sets = *std::min_element(values.begin(), values.end());
      field.agrees = box <= *field.sets;
      break;
    case Rule::kNoOtherFlags:
      field.sets = values.front();
      for (const uint64_t value : values) *field.sets &= value;
      field.agrees = (box & ~*field.sets) == 0;
      break;
  }
  return field;
}

uint64_t Number(ByteSpan bytes, size_t at, size_t count) {
  uint64_t value = 0;
  for (size_t i = at; i < at + count; ++i) value = value << 8 | bytes[i];
  return value;
}

// The sequence parameter sets of a stream, each with its first bytes, which have fixed places.
class Sets {
 public:
  Sets(Codec codec, const std::vector<Bytes>& units) {
    for (const Bytes& unit : units) {
      if (!IsSps(codec, UnitType(codec, unit)) || !IsBaseLayer(codec, unit)) continue;
      const SetElements set = ListSetElements(codec, unit);
      if (!set.factsWhole) continue;
      payloads_.push_back(Unescape(unit));
      sets_.push_back(set);
    }
  }

  // Of each set the bytes at a place.
  std::vector<uint64_t> At(size_t place, size_t count) const {
    std::vector<uint64_t> values;
    for (const Bytes& payload : payloads_) values.push_back(Number(payload, place, count));
    return values;
  }
  // Of each set the value of an element, or what stands for an absent one.
  std::vector<uint64_t> Of(std::string_view name, uint64_t absent) const {
    std::vector<uint64_t> values;
    for (const SetElements& set : sets_) {
      const SetElement* const element = set.Find(name);
      values.push_back(element == nullptr ? absent : static_cast<uint64_t>(element->value));
    }
    return values;
  }

 private:
  std::vector<SetElements> sets_;
  std::vector<Bytes> payloads_;
};

std::vector<uint64_t> PlusOne(std::vector<uint64_t> values) {
  for (uint64_t& value : values) ++value;
  return values;
}

// What stands behind the lists in some profiles: three fields with all reserved bits set in front of them.
void AddAvccTail(std::vector<ConfigHeadField>& fields, const Bytes& tail, const Sets& sets) {
  if (tail.size() < 4 || tail[0] < 0xFC || tail[1] < 0xF8 || tail[2] < 0xF8) return;
  fields.push_back(Field("chroma_format", tail[0] & 3u, Rule::kSame, sets.Of("chroma_format_idc", 1)));
  fields.push_back(
      Field("bit_depth_luma_minus8", tail[1] & 7u, Rule::kSame, sets.Of("bit_depth_luma_minus8", 0)));
  fields.push_back(
      Field("bit_depth_chroma_minus8", tail[2] & 7u, Rule::kSame, sets.Of("bit_depth_chroma_minus8", 0)));
}

std::vector<ConfigHeadField> AvccFields(const AvccHead& head, const Bytes& tail, const Sets& sets) {
  std::vector<ConfigHeadField> fields = {
      Field("configurationVersion", head.configurationVersion, Rule::kSame, {}),
      Field("AVCProfileIndication", head.AVCProfileIndication, Rule::kSame, sets.Of("profile_idc", 0)),
      // The byte between profile_idc and level_idc.
      Field("profile_compatibility", head.profile_compatibility, Rule::kNoOtherFlags, sets.At(2, 1), 2),
      Field("AVCLevelIndication", head.AVCLevelIndication, Rule::kSameAsHighest, sets.Of("level_idc", 0)),
      Field("lengthSizeMinusOne", head.lengthSizeMinusOne, Rule::kSame, {}),
  };
  AddAvccTail(fields, tail, sets);
  return fields;
}

std::vector<ConfigHeadField> HvccFields(const HvccHead& head, const Sets& sets) {
  // profile_tier_level() stands behind two bytes of header and one of ids: a byte of profile, four of
  // compatibility flags, six of constraint flags.
  constexpr size_t kCompatibilityAt = 4;
  constexpr size_t kConstraintsAt = 8;
  return {
      Field("configurationVersion", head.configurationVersion, Rule::kSame, {}),
      Field("general_profile_space", head.general_profile_space, Rule::kSame,
            sets.Of("general_profile_space", 0)),
      Field("general_tier_flag", head.general_tier_flag, Rule::kNotBelow, sets.Of("general_tier_flag", 0)),
      Field("general_profile_idc", head.general_profile_idc, Rule::kSame, sets.Of("general_profile_idc", 0)),
      Field("general_profile_compatibility_flags", head.general_profile_compatibility_flags,
            Rule::kNoOtherFlags, sets.At(kCompatibilityAt, 4), 8),
      Field("general_constraint_indicator_flags", head.general_constraint_indicator_flags,
            Rule::kNoOtherFlags, sets.At(kConstraintsAt, 6), 12),
      Field("general_level_idc", head.general_level_idc, Rule::kNotBelow, sets.Of("general_level_idc", 0)),
      Field("min_spatial_segmentation_idc", head.min_spatial_segmentation_idc, Rule::kNotAbove,
            sets.Of("min_spatial_segmentation_idc", 0)),
      Field("parallelismType", head.parallelismType, Rule::kSame, {}),
      Field("chromaFormat", head.chromaFormat, Rule::kSame, sets.Of("chroma_format_idc", 1)),
      Field("bitDepthLumaMinus8", head.bitDepthLumaMinus8, Rule::kSame, sets.Of("bit_depth_luma_minus8", 0)),
      Field("bitDepthChromaMinus8", head.bitDepthChromaMinus8, Rule::kSame,
            sets.Of("bit_depth_chroma_minus8", 0)),
      Field("avgFrameRate", head.avgFrameRate, Rule::kSame, {}),
      Field("constantFrameRate", head.constantFrameRate, Rule::kSame, {}),
      Field("numTemporalLayers", head.numTemporalLayers, Rule::kNotAbove,
            PlusOne(sets.Of("sps_max_sub_layers_minus1", 0))),
      Field("temporalIdNested", head.temporalIdNested, Rule::kNotAbove,
            sets.Of("sps_temporal_id_nesting_flag", 0)),
      Field("lengthSizeMinusOne", head.lengthSizeMinusOne, Rule::kSame, {}),
  };
}

}  // namespace

std::vector<ConfigHeadField> ReadConfigHead(const ConfigRecord& config, const std::vector<Bytes>& units) {
  const Sets sets(config.codec, units);
  if (const std::optional<AvccHead> head = config.avccHead()) return AvccFields(*head, config.tail, sets);
  if (const std::optional<HvccHead> head = config.hvccHead()) return HvccFields(*head, sets);
  return {};
}

}  // namespace qlnmedia
