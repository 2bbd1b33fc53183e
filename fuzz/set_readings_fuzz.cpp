// Parameter sets as the library's readers hold them, against the published syntax: the first element of a
// whole set that a record holds otherwise is one that it is meant to. What stands behind it may be read from
// other bits.

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "fuzz_input.h"
#include "inspect/departures.h"
#include "mutators/formats.h"

namespace {

using namespace qlnmedia;

constexpr std::string_view kOtherwiseInH264[] = {
    "bit_depth_luma_minus8",   // 8 in a record of a profile whose sets do not tell it
    "offset_for_",             // kept as code numbers
    "ScalingList",             // by differences beyond the range of the standard
    "more_rbsp_data_present",  // seven bits are looked at
    "cpb_cnt_minus1",          // at most eight schedules are kept
    "bit_rate_value_minus1",   // the same
    "cpb_size_value_minus1",   // the same
    "cbr_flag",                // the same
    "slice_group_id",          // not kept
};
constexpr std::string_view kOtherwiseInHevc[] = {
    "sps_max_sub_layers_minus1",  // sets of other layers tell sps_ext_or_max_sub_layers_minus1 in its place
    "sps_max_dec_pic_buffering_minus1",  // one value for all sub-layers
    "sps_max_num_reorder_pics",
    "sps_max_latency_increase_plus1",
    "vps_max_dec_pic_buffering_minus1",
    "vps_max_num_reorder_pics",
    "vps_max_latency_increase_plus1",
    "separate_colour_plane_flag",  // read as ue(v)
    "scaling_list_",               // walked, not kept
    "sps_scaling_list_data_present_flag",
    "lists_modification_present_flag",   // of a PPS with scaling lists, which are not parsed
    "log2_parallel_merge_level_minus2",  // the same
    "slice_segment_header_extension_present_flag",
    "pps_extension_present_flag",
    "st_ref_pic_set[",    // counts of predicted sets are not derived, and at most 16 entries are kept
    "hrd_layer_set_idx",  // HRD parameters without common information count as without any kind
    "vps_extension_flag",
    "cprms_present_flag",   // of the layers' extension, which is not read
    "profile_tier_level[",  // the same
};

// Whether the library takes the same bytes for emulation prevention as the standards do: it looks for them
// from the fourth byte on, takes 00 00 0C for one in a PPS of H.264, and none at the end of an SPS.
bool IsEscapedPlainly(Codec codec, const Bytes& unit) {
  if (unit.size() < 6 || unit[1] == 0 || unit[2] == 0 || unit[unit.size() - 2] == 0) return false;
  if (codec == Codec::kHevc) return (unit[1] & 7) != 0;
  for (size_t i = 2; i < unit.size(); ++i) {
    if (unit[i - 2] == 0 && unit[i - 1] == 0 && unit[i] == 12) return false;
  }
  return true;
}

template <size_t kCount>
bool IsToldOtherwise(const std::string_view (&names)[kCount], std::string_view element) {
  return std::any_of(std::begin(names), std::end(names), [element](std::string_view name) {
    return element.find(name) != std::string_view::npos;
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const Codec codec = (data[0] & 1) != 0 ? Codec::kHevc : Codec::kH264;
  const Bytes unit(data + 1, data + size);
  if (!HasSetSyntax(codec, UnitType(codec, unit))) return 0;
  if (!IsEscapedPlainly(codec, unit)) return 0;
  const PublishedSet published(codec, unit, {});
  if (!published.set.whole()) return 0;
  // The library reads one rectangle more than there are, and HRD parameters in a form of its own.
  const SetElement* const map = published.set.Find("slice_group_map_type");
  const SetElement* const hrd = published.set.Find("vui_hrd_parameters_present_flag");
  if ((map != nullptr && map->value == 2) || (hrd != nullptr && hrd->value == 1)) return 0;
  static MessageSink messages;
  for (const Departure& departure : DeparturesOf(published, ReadWithLibrary(codec, unit, messages))) {
    if (departure.oneOfSeveral) continue;
    const bool told = codec == Codec::kH264 ? IsToldOtherwise(kOtherwiseInH264, departure.element)
                                            : IsToldOtherwise(kOtherwiseInHevc, departure.element);
    if (!told) {
      std::fprintf(stderr, "%s: %s in the record, %s in the set\n", departure.element.c_str(),
                   departure.as.dump().c_str(), departure.stream.dump().c_str());
      __builtin_trap();
    }
    break;
  }
  return 0;
}

QLN_FUZZ_BY_PIECES(qln::fuzz::Codes(), 1)
