// What parameter sets say of the pictures: the facts that timing, order, edits and checks are based on.
#ifndef MEDIA_SETS_SPS_FACTS_H
#define MEDIA_SETS_SPS_FACTS_H

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "qlnmedia/stream_values.h"
#include "sets/names.h"
#include "units/units.h"

namespace qlnmedia {

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

// Of an SPS of H.264 alone.
struct H264SpsFacts {
  bool constraintSet3 = false;          // constraint_set3_flag, which makes level 1b of 1.1 in some profiles
  bool picStruct = false;               // pic_struct_present_flag
  bool fixedFrameRate = false;          // fixed_frame_rate_flag
  bool hrd = false;                     // NAL or VCL HRD parameters
  uint32_t cpbRemovalDelayLength = 24;  // bits, inferred where there is no HRD
  uint32_t dpbOutputDelayLength = 24;
  uint32_t timeOffsetLength = 24;
  bool frameMbsOnly = true;
  uint32_t log2MaxFrameNum = 4;
  uint32_t pocType = 0;
  PocCycle pocCycle;
  uint32_t chromaArrayType = 1;
  friend bool operator==(const H264SpsFacts&, const H264SpsFacts&) = default;
};

// Of an SPS of HEVC alone.
struct HevcSpsFacts {
  std::array<bool, 3> interlace{};  // general progressive source, general interlaced source, field_seq_flag
  bool frameOnly = false;           // general_frame_only_constraint_flag
  bool frameFieldInfo = false;      // frame_field_info_present_flag
  bool highTier = false;            // general_tier_flag
  HevcDelays delays;
  friend bool operator==(const HevcSpsFacts&, const HevcSpsFacts&) = default;
};

struct SpsFacts {
  uint32_t id = 0;
  uint32_t profile = 0;     // profile_idc, general_profile_idc
  uint32_t level = 0;       // level_idc, general_level_idc: as coded, 10 and 30 times the level's number
  uint32_t codedWidth = 0;  // luma samples of the frame (HEVC: picture) before cropping
  uint32_t codedHeight = 0;
  Cropping cropping;
  uint32_t cropUnitX = 1;  // cropping goes by steps of so many luma samples
  uint32_t cropUnitY = 1;
  uint32_t width = 0;  // of the cropped picture
  uint32_t height = 0;
  uint32_t chromaFormat = 1;  // chroma_format_idc
  bool separateColourPlanes = false;
  uint32_t bitDepthLuma = 8;
  uint32_t bitDepthChroma = 8;
  uint32_t log2MaxPocLsb = 4;

  bool vui = false;
  uint32_t aspectRatioIdc = 0;  // 0, unspecified, where it is absent
  uint32_t sarWidth = 0;        // of an extended sample aspect ratio; 0 for all others
  uint32_t sarHeight = 0;
  bool signalType = false;                  // video_signal_type_present_flag
  uint32_t videoFormat = 5;                 // the inferred value where it is absent
  bool fullRange = false;                   // the inferred value where it is absent
  std::optional<ColourCodes> colour;        // nothing where it is absent
  std::optional<uint32_t> chromaLocation;   // chroma_sample_loc_type_top_field; nothing where it is absent
  std::optional<uint32_t> chromaLocBottom;  // chroma_sample_loc_type_bottom_field
  bool timing = false;                      // timing information is there
  uint32_t numUnitsInTick = 0;              // 0 where there is no timing information
  uint32_t timeScale = 0;

  H264SpsFacts h264;
  HevcSpsFacts hevc;
  friend bool operator==(const SpsFacts&, const SpsFacts&) = default;
};

// Reads a set up to the last element that these facts come from; what stands behind it may break off. Nothing
// for a set that ends before, and for one of a higher HEVC layer that leaves its format to the VPS.
std::optional<SpsFacts> ReadSpsFacts(Codec codec, ByteSpan sps);

// Of a PPS, what slice headers are read by.
struct PpsFacts {
  uint32_t id = 0;
  uint32_t spsId = 0;
  // H.264 only.
  bool fieldOrder = false;               // bottom_field_pic_order_in_frame_present_flag
  std::array<uint32_t, 2> references{};  // num_ref_idx_lX_default_active_minus1 + 1
  bool weightedP = false;                // weighted_pred_flag
  uint32_t weightedB = 0;                // weighted_bipred_idc
  bool redundant = false;                // redundant_pic_cnt_present_flag
  // HEVC only.
  bool outputFlag = false;  // output_flag_present_flag
  uint32_t extraBits = 0;   // num_extra_slice_header_bits
  friend bool operator==(const PpsFacts&, const PpsFacts&) = default;
};

// Nothing for a set that ends before the last element that these facts come from.
std::optional<PpsFacts> ReadPpsFacts(Codec codec, ByteSpan pps);

// What a set says of the shape of its samples; 0:0 for unspecified and for reserved codes.
SampleAspect SampleAspectOf(const SpsFacts& sps);

}  // namespace qlnmedia

#endif
