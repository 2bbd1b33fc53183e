// The HEVC SEI units that tell a picture's time: time_code, pic_timing.
#ifndef QLNUTIL_INBAND_HEVC_TIMING_SEI_H
#define QLNUTIL_INBAND_HEVC_TIMING_SEI_H

#include <cstdint>

#include "qlnutil/qlnhevc.h"

namespace qln {

// Room that is enough for each of the units below; bytes.
inline constexpr uint32_t kTimingSeiRoom = 64;

// Writes a prefix SEI unit with a time_code message (ITU-T H.265 clause D.2.27), start code in front.
//
// output: room for kTimingSeiRoom bytes. frameCount: the timecode. tcType: its type, which gives
// counting_type. fieldUnits: units_field_based_flag. Returns the bytes written, 15 or 16.
uint32_t WriteTimeCodeUnit(uint8_t* output, uint32_t frameCount, uint8_t tcType, bool fieldUnits);

// The same with type and units taken from an SPS: the type by its whole frames a second, halved where the SPS
// bears the mark of a field-coded stream (a sample aspect ratio of which the height is 2).
uint32_t WriteHevcTimeCodeSei(uint8_t* output, uint32_t frameCount, const HevcSpsRecord& sps);

// Writes a prefix SEI unit with a pic_timing message (clause D.2.3), start code in front, as the SPS has it:
// the picture structure with frame_field_info_present_flag, the two delays with HRD parameters. A delay whose
// width in the SPS is 0 (modulo 2^32) or above 64 bits is left out.
//
// output: room for kTimingSeiRoom bytes. Returns the bytes written; 0 for an SPS with neither.
uint32_t WriteHevcPicTiming(uint8_t* output, uint32_t picStruct, uint32_t sourceScanType,
                            const HevcSpsRecord& sps, uint32_t auCpbRemovalDelay, uint32_t picDpbOutputDelay);

}  // namespace qln

#endif
