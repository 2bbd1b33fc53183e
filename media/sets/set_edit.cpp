// Replaces single elements of parameter sets.

#include "sets/set_edit.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "sets/rbsp_reader.h"
#include "sets/set_elements.h"
#include "sets/vui_front_syntax.h"

namespace qlnmedia {

namespace {

void PutUe(BitFields& fields, uint32_t value) {
  const int width = BitsUpTo(value + 1);
  fields.emplace_back(width - 1, 0);
  fields.emplace_back(width, value + 1);
}

void Append(BitFields& fields, const BitFields& more) {
  fields.insert(fields.end(), more.begin(), more.end());
}

// The places of one set's elements, and what takes their place.
class Places {
 public:
  explicit Places(const SetElements& set) : set_(set) {}

  bool has(std::string_view name) const { return set_.Find(name) != nullptr; }

  // Gives the element of that name another value in as many bits.
  void Set(std::string_view name, uint32_t to) {
    if (const SetElement* element = set_.Find(name)) Set(*element, to);
  }
  void Set(const SetElement& element, uint32_t to) {
    if (element.value == int64_t{to}) return;
    splices_.push_back({element.position, element.bits, {{static_cast<int>(element.bits), to}}});
  }
  // Puts bits in the place of all elements from `first` up to, but without, `behind`.
  void Replace(std::string_view first, std::string_view behind, BitFields fields) {
    const SetElement* from = set_.Find(first);
    const SetElement* to = set_.Find(behind);
    if (from == nullptr || to == nullptr) {
      lost_ = true;
      return;
    }
    splices_.push_back({from->position, to->position - from->position, std::move(fields)});
  }
  // Puts bits in the place of one element.
  void Replace(const SetElement& element, BitFields fields) {
    splices_.push_back({element.position, element.bits, std::move(fields)});
  }
  const SetElements& set() const { return set_; }

  // The unit with all changes; `unit` itself where there are none.
  std::optional<Bytes> Apply(ByteSpan unit) {
    if (lost_) return {};
    if (splices_.empty()) return Bytes(unit.begin(), unit.end());
    std::sort(splices_.begin(), splices_.end(),
              [](const Splice& a, const Splice& b) { return a.position < b.position; });
    return RbspReader(unit).With(splices_);
  }

 private:
  const SetElements& set_;
  std::vector<Splice> splices_;
  bool lost_ = false;
};

// The flags of the profile that shall be others than they are.
void EditProfiles(Places& places, const SpsEdit& edit) {
  const SetElement* general = places.set().Find("general_progressive_source_flag");
  if (general == nullptr) return;
  // Those of one profile_tier_level(): a VPS may hold more of them.
  for (const SetElement& element : places.set().elements) {
    if (element.structure != general->structure) continue;
    const bool subLayer = element.name.starts_with("sub_layer_");
    if (subLayer && !edit.subLayers) continue;
    std::string_view name = element.name;
    name.remove_prefix(std::min(name.size(), std::string_view(subLayer ? "sub_layer_" : "general_").size()));
    if (name == "progressive_source_flag" && edit.interlace) places.Set(element, (*edit.interlace)[0]);
    if (name == "interlaced_source_flag" && edit.interlace) places.Set(element, (*edit.interlace)[1]);
    if (name == "frame_only_constraint_flag" && edit.frameOnly) places.Set(element, *edit.frameOnly);
  }
  if (edit.highTier) places.Set("general_tier_flag", *edit.highTier);
  if (edit.level) places.Set("general_level_idc", *edit.level * 3);
}

// Level 1b is a value of its own, or level 1.1 with a flag in the profiles that were there before it.
void EditH264Level(Places& places, const SpsFacts& is, uint32_t level) {
  const bool old = is.profile == 66 || is.profile == 77 || is.profile == 88;
  const bool was1b = old && is.level == 11 && is.h264.constraintSet3;
  if (old && level == 9) {
    places.Set("level_idc", 11);
    places.Set("constraint_set3_flag", 1);
    return;
  }
  places.Set("level_idc", level);
  if (was1b || (old && level == 11)) places.Set("constraint_set3_flag", 0);
}

// num_units_in_tick and time_scale: H.264 counts two ticks a frame.
struct Ticks {
  uint32_t units;
  uint32_t scale;
};
Ticks TicksOf(Codec codec, const VuiTiming& timing) {
  return {timing.denominator, timing.numerator * (codec == Codec::kH264 ? 2 : 1)};
}

// What a VUI shall say otherwise than it does; nothing where it says so already.
struct VuiChanges {
  std::optional<BitFields> aspect;  // each from its present flag to its last element
  std::optional<BitFields> signal;
  std::optional<BitFields> chromaLocation;
  std::optional<bool> picStruct;
  std::optional<bool> fieldSeq;
  std::optional<bool> fieldInfo;
  std::optional<BitFields> timing;  // H.264: with fixed_frame_rate_flag; HEVC: up to vui_time_scale
  bool any() const {
    return aspect || signal || chromaLocation || picStruct || fieldSeq || fieldInfo || timing;
  }
};

BitFields AspectFields(const SampleAspect& aspect) {
  for (uint32_t idc = 0; idc <= kLastSampleAspect; ++idc) {
    if (aspect == SampleAspectRatio(idc, 0, 0)) return {{1, 1}, {8, idc}};
  }
  return {{1, 1}, {8, kExtendedSar}, {16, aspect.width}, {16, aspect.height}};
}

// video_signal_type_present_flag and what depends on it, as they shall be.
BitFields SignalFields(const SpsFacts& is, const SpsEdit& edit) {
  const std::optional<ColourCodes> codes = edit.colour ? edit.colour : is.colour;
  BitFields fields = {
      {1, 1}, {3, is.videoFormat}, {1, edit.fullRange.value_or(is.fullRange) ? 1 : 0}, {1, codes ? 1 : 0}};
  if (codes) Append(fields, {{8, codes->primaries}, {8, codes->transfer}, {8, codes->matrix}});
  return fields;
}

VuiChanges ChangesOf(Codec codec, const SpsFacts& is, const SpsEdit& edit) {
  const bool h264 = codec == Codec::kH264;
  VuiChanges changes;
  if (edit.aspect && *edit.aspect != SampleAspectOf(is)) changes.aspect = AspectFields(*edit.aspect);
  if ((edit.colour && edit.colour != is.colour) || (edit.fullRange && *edit.fullRange != is.fullRange))
    changes.signal = SignalFields(is, edit);
  if (edit.chromaLocation &&
      (edit.chromaLocation != is.chromaLocation || edit.chromaLocation != is.chromaLocBottom)) {
    changes.chromaLocation = BitFields{{1, 1}};
    PutUe(*changes.chromaLocation, *edit.chromaLocation);
    PutUe(*changes.chromaLocation, *edit.chromaLocation);
  }
  if (h264 && edit.picStruct && *edit.picStruct != is.h264.picStruct) changes.picStruct = edit.picStruct;
  if (!h264 && edit.interlace && (*edit.interlace)[2] != is.hevc.interlace[2])
    changes.fieldSeq = (*edit.interlace)[2];
  if (!h264 && edit.frameFieldInfo && *edit.frameFieldInfo != is.hevc.frameFieldInfo)
    changes.fieldInfo = edit.frameFieldInfo;
  if (edit.timing) {
    const Ticks ticks = TicksOf(codec, *edit.timing);
    const bool fixed = edit.timing->fixed.value_or(is.h264.fixedFrameRate);
    if (!is.timing || ticks.units != is.numUnitsInTick || ticks.scale != is.timeScale ||
        (h264 && fixed != is.h264.fixedFrameRate)) {
      changes.timing = BitFields{{1, 1}, {32, ticks.units}, {32, ticks.scale}};
      if (h264) changes.timing->emplace_back(1, fixed);
    }
  }
  return changes;
}

// A VUI, with its present flag, of which only the wanted elements say anything.
BitFields NewVui(Codec codec, const VuiChanges& changes) {
  const BitFields absent = {{1, 0}};
  BitFields fields = {{1, 1}};
  Append(fields, changes.aspect.value_or(absent));
  fields.emplace_back(1, 0);  // overscan
  Append(fields, changes.signal.value_or(absent));
  Append(fields, changes.chromaLocation.value_or(absent));
  if (codec == Codec::kH264) {
    Append(fields, changes.timing.value_or(absent));
    fields.emplace_back(2, 0);  // both HRDs
    fields.emplace_back(1, changes.picStruct.value_or(false));
    fields.emplace_back(1, 0);  // bitstream restriction
    return fields;
  }
  fields.emplace_back(1, 0);  // neutral chroma
  fields.emplace_back(1, changes.fieldSeq.value_or(false));
  fields.emplace_back(1, changes.fieldInfo.value_or(false));
  fields.emplace_back(1, 0);  // display window
  Append(fields, changes.timing.value_or(absent));
  if (changes.timing) fields.emplace_back(2, 0);  // proportional to order counts, HRD
  fields.emplace_back(1, 0);                      // bitstream restriction
  return fields;
}

void EditVui(Codec codec, Places& places, const SpsFacts& is, const VuiChanges& changes) {
  const bool h264 = codec == Codec::kH264;
  if (!changes.any()) return;
  if (!is.vui) {
    const SetElement& flag = *places.set().Find("vui_parameters_present_flag");
    places.Replace(flag, NewVui(codec, changes));
    return;
  }
  if (changes.aspect)
    places.Replace("aspect_ratio_info_present_flag", "overscan_info_present_flag", *changes.aspect);
  if (changes.signal)
    places.Replace("video_signal_type_present_flag", "chroma_loc_info_present_flag", *changes.signal);
  if (changes.chromaLocation)
    places.Replace("chroma_loc_info_present_flag",
                   h264 ? "timing_info_present_flag" : "neutral_chroma_indication_flag",
                   *changes.chromaLocation);
  if (changes.picStruct) places.Set("pic_struct_present_flag", *changes.picStruct);
  if (changes.fieldSeq) places.Set("field_seq_flag", *changes.fieldSeq);
  if (changes.fieldInfo) places.Set("frame_field_info_present_flag", *changes.fieldInfo);
  if (!changes.timing) return;
  if (h264) {
    places.Replace("timing_info_present_flag", "nal_hrd_parameters_present_flag", *changes.timing);
  } else if (is.timing) {
    places.Replace("vui_timing_info_present_flag", "vui_poc_proportional_to_timing_flag", *changes.timing);
  } else {
    BitFields fields = *changes.timing;
    fields.emplace_back(2, 0);  // proportional to order counts, HRD
    places.Replace(*places.set().Find("vui_timing_info_present_flag"), fields);
  }
}

// False for cropping that does not fit the picture.
bool EditCropping(Codec codec, Places& places, const SpsFacts& is, const Cropping& wanted) {
  const auto fits = [](uint32_t a, uint32_t b, uint32_t unit, uint32_t size) {
    return a % unit == 0 && b % unit == 0 && uint64_t{a} + b < size;
  };
  if (!fits(wanted.left, wanted.right, is.cropUnitX, is.codedWidth) ||
      !fits(wanted.top, wanted.bottom, is.cropUnitY, is.codedHeight))
    return false;
  if (wanted == is.cropping) return true;
  BitFields fields = {{1, wanted == Cropping{} ? 0u : 1u}};
  if (wanted != Cropping{}) {
    PutUe(fields, wanted.left / is.cropUnitX);
    PutUe(fields, wanted.right / is.cropUnitX);
    PutUe(fields, wanted.top / is.cropUnitY);
    PutUe(fields, wanted.bottom / is.cropUnitY);
  }
  if (codec == Codec::kH264) {
    places.Replace("frame_cropping_flag", "vui_parameters_present_flag", fields);
  } else {
    places.Replace("conformance_window_flag", "bit_depth_luma_minus8", fields);
  }
  return true;
}

// True where every value of the edit has room in its element.
bool InRange(Codec codec, const SpsEdit& edit) {
  if (edit.aspect && (edit.aspect->width > 0xFFFF || edit.aspect->height > 0xFFFF)) return false;
  if (edit.level && *edit.level > 85) return false;
  if (edit.chromaLocation && *edit.chromaLocation > 5) return false;
  if (!edit.timing) return true;
  const uint32_t most = codec == Codec::kH264 ? 0x7FFFFFFF : 0xFFFFFFFF;
  return edit.timing->numerator > 0 && edit.timing->denominator > 0 && edit.timing->numerator <= most;
}

}  // namespace

std::optional<Bytes> EditSps(Codec codec, ByteSpan sps, const SpsEdit& edit) {
  const std::optional<SpsFacts> is = ReadSpsFacts(codec, sps);
  if (!is || !InRange(codec, edit)) return {};
  const SetElements set = ListElementsAs(codec, codec == Codec::kH264 ? 7 : 33, sps);
  Places places(set);
  EditVui(codec, places, *is, ChangesOf(codec, *is, edit));
  if (edit.cropping && !EditCropping(codec, places, *is, *edit.cropping)) return {};
  if (codec == Codec::kHevc) {
    EditProfiles(places, edit);
  } else if (edit.level) {
    EditH264Level(places, *is, *edit.level);
  }
  return places.Apply(sps);
}

std::optional<Bytes> EditVps(ByteSpan vps, const SpsEdit& edit) {
  const SetElements set = ListElementsAs(Codec::kHevc, 32, vps);
  if (!set.factsWhole || !InRange(Codec::kHevc, edit)) return {};
  Places places(set);
  EditProfiles(places, edit);
  if (edit.timing && places.has("vps_time_scale")) {
    const Ticks ticks = TicksOf(Codec::kHevc, *edit.timing);
    places.Set("vps_num_units_in_tick", ticks.units);
    places.Set("vps_time_scale", ticks.scale);
  }
  return places.Apply(vps);
}

}  // namespace qlnmedia
