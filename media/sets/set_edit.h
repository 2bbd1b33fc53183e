// Edits single elements of a sequence parameter set and leaves every other bit as it is.
//
// The library rewrites a set from its record, which is exact for the sets of most encoders but changes others
// (scaling lists, sub-layer values, predicted reference sets, extensions). This editor is for those: it finds
// the places of a few elements by walking the published syntax (ITU-T H.264 clauses 7.3.2.1.1 and E.1.1,
// H.265 clauses 7.3.2.2 and E.2.1), copies the bits in front of them and behind them, and escapes by the
// standards' full rule.
#ifndef MEDIA_SETS_SET_EDIT_H
#define MEDIA_SETS_SET_EDIT_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "units/units.h"

namespace qlnmedia {

// Codes of ITU-T H.273.
struct ColourCodes {
  uint8_t primaries = 2;
  uint8_t transfer = 2;
  uint8_t matrix = 2;
  friend bool operator==(const ColourCodes&, const ColourCodes&) = default;
};

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
  bool any() const { return colour || fullRange || picStruct || interlace || frameOnly || frameFieldInfo; }
};

// How the delays of HEVC picture timing (ITU-T H.265 clause D.2.3) are laid out; lengths in bits, those that
// do not occur 0.
struct HevcDelays {
  bool present = false;  // CpbDpbDelaysPresentFlag, as far as the VUI tells it
  uint32_t cpbRemoval = 0;
  uint32_t dpbOutput = 0;
  bool subPictures = false;           // sub_pic_hrd_params_present_flag
  uint32_t dpbOutputDu = 0;           // pic_dpb_output_du_delay
  bool unitsInPictureTiming = false;  // sub_pic_cpb_params_in_pic_timing_sei_flag
  uint32_t duIncrement = 0;           // du_cpb_removal_delay_increment_minus1
  friend bool operator==(const HevcDelays&, const HevcDelays&) = default;
};

// What H.264 pictures of pic_order_cnt_type 1 are placed by (ITU-T H.264 clause 8.2.1.2).
struct PocCycle {
  bool alwaysZero = false;            // delta_pic_order_always_zero_flag
  int32_t nonReference = 0;           // offset_for_non_ref_pic
  int32_t topToBottom = 0;            // offset_for_top_to_bottom_field
  std::vector<int32_t> offsets = {};  // offset_for_ref_frame
  friend bool operator==(const PocCycle&, const PocCycle&) = default;
};

// What a set says of the things that can be edited.
struct SpsSummary {
  uint32_t id = 0;
  bool vui = false;
  bool signalType = false;              // video_signal_type_present_flag
  bool fullRange = false;               // the inferred value where it is absent
  std::optional<ColourCodes> colour;    // nothing where it is absent
  bool picStruct = false;               // H.264: pic_struct_present_flag
  bool hrd = false;                     // H.264: NAL or VCL HRD parameters
  uint32_t cpbRemovalDelayLength = 24;  // H.264: bits, inferred where there is no HRD
  uint32_t dpbOutputDelayLength = 24;
  uint32_t timeOffsetLength = 24;
  std::array<bool, 3> interlace{};  // HEVC: progressive source, interlaced source, field_seq
  bool frameOnly = false;           // HEVC: general_frame_only_constraint_flag
  bool frameFieldInfo = false;      // HEVC: frame_field_info_present_flag
  HevcDelays delays;                // HEVC
  uint32_t sarWidth = 0;            // of an extended sample aspect ratio; 0 for all others
  uint32_t sarHeight = 0;
  uint32_t numUnitsInTick = 0;  // 0 where there is no timing information
  uint32_t timeScale = 0;
  uint32_t width = 0;  // of the cropped picture
  uint32_t height = 0;
  bool frameMbsOnly = true;      // H.264
  uint32_t log2MaxFrameNum = 4;  // H.264
  uint32_t pocType = 0;          // H.264
  uint32_t log2MaxPocLsb = 4;
  PocCycle pocCycle;             // H.264
  uint32_t chromaArrayType = 1;  // H.264
  bool separateColourPlanes = false;
  friend bool operator==(const SpsSummary&, const SpsSummary&) = default;
};

// Reads a set; nothing for one that breaks off.
std::optional<SpsSummary> ReadSpsSummary(Codec codec, ByteSpan sps);

// Edits a set; `sps` itself where nothing changes. Nothing for a set that breaks off.
std::optional<Bytes> EditSps(Codec codec, ByteSpan sps, const SpsEdit& edit);

// Edits the profile of an HEVC video parameter set: the general flags, and those of the sub-layers where the
// edit says so. Results as for EditSps.
std::optional<Bytes> EditVps(ByteSpan vps, const SpsEdit& edit);

}  // namespace qlnmedia

#endif
