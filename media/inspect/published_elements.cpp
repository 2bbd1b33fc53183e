// Groups the elements of a set, and adds the words that follow from them.

#include "inspect/published_elements.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <utility>

namespace qlnmedia {

namespace {

// Bits of no known meaning are shown one by one up to so many.
constexpr uint32_t kMostShownBits = 4096;

bool IsOneOf(std::string_view name, std::initializer_list<std::string_view> names) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// Structures of H.264 subset SPS whose elements have names that occur elsewhere in the set.
bool HasNamesOfOthers(std::string_view structure) {
  return IsOneOf(structure, {"seq_parameter_set_svc_extension", "seq_parameter_set_mvc_extension",
                             "seq_parameter_set_mvcd_extension", "svc_vui_parameters_extension",
                             "mvc_vui_parameters_extension", "mvcd_vui_parameters_extension"});
}

// What a structure puts in front of the names in it.
std::string PrefixOf(const SetElements& set, uint16_t structure) {
  if (structure == 0) return {};
  const SetStructure& own = set.structures[structure];
  const std::string outer = PrefixOf(set, own.parent);
  std::string name(own.name);
  const bool hrd = IsOneOf(own.name, {"nal_hrd_parameters", "vcl_hrd_parameters"});
  if (hrd) name.resize(name.size() - std::string_view("_parameters").size());
  if (own.index >= 0) return fmt::format("{}{}[{}].", outer, name, own.index);
  return hrd || HasNamesOfOthers(own.name) ? outer + name + "." : outer;
}

// Elements of H.264 HRD schedules and of HEVC's long-term pictures have a place for each index.
std::string_view EntryOf(const SetElements& set, const SetElement& element) {
  if (IsOneOf(element.name, {"lt_ref_pic_poc_lsb_sps", "used_by_curr_pic_lt_sps_flag"}))
    return "long_term_ref_pics";
  if (IsOneOf(element.name, {"bit_rate_value_minus1", "cpb_size_value_minus1", "cbr_flag"}) &&
      IsOneOf(set.structures[element.structure].name, {"nal_hrd_parameters", "vcl_hrd_parameters"}))
    return "schedule";
  return {};
}

// Puts a value into nested arrays; nulls fill what is left out.
void Place(Json& root, const SetElement& element, size_t firstIndex, Json value) {
  Json* at = &root;
  for (size_t i = firstIndex; i < element.indices; ++i) {
    if (!at->is_array()) *at = Json::array();
    while (at->size() <= element.index[i]) at->push_back(nullptr);
    at = &(*at)[element.index[i]];
  }
  *at = std::move(value);
}

// The elements that have been listed so far, by their keys.
class List {
 public:
  explicit List(const SetElements& set) : set_(set) {}

  void Take(const SetElement& element, Json value) {
    const bool entry = !EntryOf(set_, element).empty();
    if (entry || element.structure != structure_ || element.name != name_) {
      structure_ = element.structure;
      name_ = element.name;
      at_ = PlaceOf(PublishedKey(set_, element));
    }
    Json& to = elements_[at_].value;
    if (!entry && element.indices > 0) {
      Place(to, element, 0, std::move(value));
    } else if (entry || to.is_null()) {
      to = std::move(value);
    } else {
      // Repeated without an index.
      if (!to.is_array()) to = Json::array({std::move(to)});
      to.push_back(std::move(value));
    }
  }
  void Add(std::string key, Json value) { elements_[PlaceOf(std::move(key))].value = std::move(value); }
  bool Has(const std::string& key) const { return places_.contains(key); }
  const Json& At(const std::string& key) const { return elements_[places_.at(key)].value; }
  std::vector<Element> Elements() { return std::move(elements_); }

 private:
  size_t PlaceOf(std::string key) {
    const auto [place, added] = places_.try_emplace(std::move(key), elements_.size());
    if (added) elements_.push_back({place->first, nullptr, {}});
    return place->second;
  }

  const SetElements& set_;
  std::vector<Element> elements_;
  std::map<std::string, size_t> places_;
  uint16_t structure_ = 0;
  std::string_view name_;
  size_t at_ = 0;
};

Json RunOfBits(const Bytes& payload, const SetElement& element) {
  if (element.bits > kMostShownBits) return fmt::format("{} bits", element.bits);
  Json bits = Json::array();
  for (uint32_t i = 0; i < element.bits; ++i) bits.push_back(BitsAt(payload, element.position + i, 1));
  return bits;
}

// scaling_list() of ITU-T H.264 clause 7.3.2.1.1.1 from its differences. A list that asks for the default
// one has a first scale of 0.
Json ScalingList(const Json& delta_scale, uint32_t list) {
  Json values = Json::array();
  int lastScale = 8;
  int nextScale = 8;
  for (size_t j = 0; j < (list < 6 ? 16u : 64u); ++j) {
    if (nextScale != 0) {
      if (j >= delta_scale.size()) break;  // the set ends in the list
      nextScale = static_cast<int>((lastScale + delta_scale[j].get<int64_t>() % 256 + 512) % 256);
    }
    if (nextScale != 0) lastScale = nextScale;
    values.push_back(lastScale);
  }
  return values;
}

// The words that follow from an element and those in front of it.
void AddWords(List& list, Codec codec, const SetElement& element, const SetElements& set,
              const Bytes& payload) {
  constexpr uint32_t kSourceFlags = 4;
  constexpr uint32_t kConstraintFlags = 48;
  const std::string prefix = PrefixOf(set, element.structure);
  if (element.name == "general_profile_compatibility_flag" && element.index[0] == 31)
    list.Add(prefix + "general_profile_compatibility_flags", BitsAt(payload, element.position - 31, 32));
  if (element.name == "general_frame_only_constraint_flag")
    list.Add(prefix + "general_constraint_indicator_flags",
             BitsAt(payload, element.position + 1 - kSourceFlags, kConstraintFlags));
  if (element.name == "sub_layer_profile_compatibility_flag" && element.index[1] == 31) {
    const std::string key = prefix + "sub_layer_profile_compatibility_flags";
    Json words = list.Has(key) ? list.At(key) : Json::array();
    while (words.size() < element.index[0]) words.push_back(nullptr);
    words.push_back(BitsAt(payload, element.position - 31, 32));
    list.Add(key, std::move(words));
  }
  if (element.name == "vps_num_ticks_poc_diff_one_minus1")
    list.Add("vps_num_ticks_poc_diff_one", element.value + 1);
  if (codec != Codec::kH264) return;
  if (element.name == "redundant_pic_cnt_present_flag")
    list.Add("more_rbsp_data_present", element.position + element.bits < set.stop ? 1 : 0);
  if (element.name == "delta_scale") {
    const SetElement* const behind = set.Behind(&element);
    if (behind != nullptr && behind->structure == element.structure) return;
    const auto number = static_cast<uint32_t>(set.structures[element.structure].index);
    const Json values = ScalingList(list.At(prefix + "delta_scale"), number);
    list.Add(number < 6 ? fmt::format("ScalingList4x4[{}]", number)
                        : fmt::format("ScalingList8x8[{}]", number - 6),
             values);
  }
}

}  // namespace

uint64_t BitsAt(const Bytes& payload, uint32_t position, uint32_t count) {
  if (uint64_t{position} + count > payload.size() * uint64_t{8}) return 0;
  uint64_t value = 0;
  for (uint32_t at = position; at < position + count; ++at)
    value = value << 1 | (payload[at / 8] >> (7 - at % 8) & 1);
  return value;
}

std::string PublishedKey(const SetElements& set, const SetElement& element) {
  const std::string prefix = PrefixOf(set, element.structure);
  const std::string_view entry = EntryOf(set, element);
  if (!entry.empty()) return fmt::format("{}{}[{}].{}", prefix, entry, element.index[0], element.name);
  return prefix + std::string(element.name);
}

std::string PublishedName(const SetElements& set, const SetElement& element) {
  std::string name = PublishedKey(set, element);
  if (!EntryOf(set, element).empty()) return name;
  for (size_t i = 0; i < element.indices; ++i) name += fmt::format("[{}]", element.index[i]);
  return name;
}

std::vector<Element> PublishedElements(Codec codec, const SetElements& set, const Bytes& payload) {
  List list(set);
  for (const SetElement& element : set.elements) {
    list.Take(element, element.run ? RunOfBits(payload, element) : Json(element.value));
    AddWords(list, codec, element, set, payload);
  }
  // rbsp_trailing_bits()
  if (set.whole() && set.stop != 0) {
    list.Add("rbsp_stop_one_bit", 1);
    if (set.stop % 8 != 7) list.Add("rbsp_alignment_zero_bit", 0);
  }
  return list.Elements();
}

}  // namespace qlnmedia
