// Edits single elements of a parameter set and leaves every other bit as it is.
//
// The library rewrites a set from its record, which is exact for the sets of most encoders but changes others
// (scaling lists, sub-layer values, predicted reference sets, extensions). This editor is for those: it finds
// the places of a few elements by the published syntax, copies the bits in front of them and behind them, and
// escapes by the standards' full rule.
#ifndef MEDIA_SETS_SET_EDIT_H
#define MEDIA_SETS_SET_EDIT_H

#include <array>
#include <cstdint>
#include <optional>

#include "qlnmedia/stream_values.h"
#include "sets/sps_facts.h"
#include "units/units.h"

namespace qlnmedia {

// What shall be changed; what is not set stays.
struct SpsEdit {
  std::optional<ColourCodes> colour;
  std::optional<bool> fullRange;
  std::optional<bool> picStruct;  // H.264 pic_struct_present_flag
  // HEVC: general_progressive_source_flag, general_interlaced_source_flag, field_seq_flag.
  std::optional<std::array<bool, 3>> interlace;
  std::optional<bool> frameOnly;       // HEVC general_frame_only_constraint_flag
  std::optional<bool> frameFieldInfo;  // HEVC frame_field_info_present_flag
  bool subLayers = false;              // HEVC: the general flags go into the sub-layers' profiles as well

  std::optional<SampleAspect> aspect;      // 16 bits each; 0:0 for unspecified
  std::optional<uint32_t> level;           // ten times the level's number, up to 85; 9 for level 1b of H.264
  std::optional<bool> highTier;            // HEVC general_tier_flag
  std::optional<VuiTiming> timing;         // in H.264 and HEVC sets, and in a VPS that has timing information
  std::optional<uint32_t> chromaLocation;  // 0 to 5, for both fields; of pictures in 4:2:0 only
  std::optional<Cropping> cropping;

  bool any() const {
    return colour || fullRange || picStruct || interlace || frameOnly || frameFieldInfo || aspect || level ||
           highTier || timing || chromaLocation || cropping;
  }
};

// Edits a set; `sps` itself where nothing changes. Nothing for a set that breaks off, and where the edit does
// not fit the set: cropping that goes by no whole steps or leaves no picture, values out of their ranges.
std::optional<Bytes> EditSps(Codec codec, ByteSpan sps, const SpsEdit& edit);

// Edits an HEVC video parameter set: the flags of the general profile, and those of the sub-layers where the
// edit says so; level, tier and timing. Results as for EditSps.
std::optional<Bytes> EditVps(ByteSpan vps, const SpsEdit& edit);

}  // namespace qlnmedia

#endif
