/// @file qlnaac.h
/// The start of an AudioSpecificConfig and the ADTS frame header of AAC streams, field by field.
///
/// The functions work through a QLNBitState from its `bitPos` on and judge no value. The rules of qlnbits.h
/// hold: a reader that runs past `bitLength` fills the fields with all ones and moves `bitPos` on, so that a
/// caller compares the two behind the call, and looks at no byte behind the one that holds bit `bitLength`; a
/// writer looks at no limit and needs as many bits of room as it is told to write. The caller owns states and
/// records; they are never null and belong to one thread at a time.
#ifndef QLNUTIL_QLNAAC_H
#define QLNUTIL_QLNAAC_H

#include "qlnutil/qlnbits.h"

/// The index behind which the sampling frequency stands itself.
#define QLN_AAC_EXPLICIT_FREQUENCY 15u

QLN_C_BEGIN

/// The fixed start of an AudioSpecificConfig, ISO/IEC 14496-3 clauses 1.6.2.1 and 4.4.1.
typedef struct QLNAacConfig {
  uint32_t audioObjectType;        /**< 5 bits; 2 is AAC LC */
  uint32_t samplingFrequencyIndex; /**< 4 bits */
  uint32_t samplingFrequency;      /**< hertz; 24 bits in the stream, there only behind index 15 */
  uint32_t channelConfiguration;   /**< 4 bits */
  uint32_t frameLengthFlag;        /**< 1 bit: set for frames of 960 samples in place of 1024 */
  uint32_t dependsOnCoreCoder;     /**< 1 bit */
  uint32_t extensionFlag;          /**< 1 bit */
} QLNAacConfig;

/// The header of an ADTS frame, ISO/IEC 13818-7 clause 6.2 and 14496-3 clause 1.A.2.2.
typedef struct QLNAdtsHeader {
  uint32_t syncword;                           /**< 12 bits: 0xFFF in a stream */
  uint32_t ID;                                 /**< 1 bit: set for MPEG-2 */
  uint32_t layer;                              /**< 2 bits */
  uint32_t protection_absent;                  /**< 1 bit */
  uint32_t profile;                            /**< 2 bits: the audio object type less one */
  uint32_t sampling_frequency_index;           /**< 4 bits */
  uint32_t private_bit;                        /**< 1 bit */
  uint32_t channel_configuration;              /**< 3 bits */
  uint32_t original_copy;                      /**< 1 bit */
  uint32_t home;                               /**< 1 bit */
  uint32_t copyright_identification_bit;       /**< 1 bit */
  uint32_t copyright_identification_start;     /**< 1 bit */
  uint32_t aac_frame_length;                   /**< 13 bits: bytes, header included */
  uint32_t adts_buffer_fullness;               /**< 11 bits */
  uint32_t number_of_raw_data_blocks_in_frame; /**< 2 bits: less one */
  uint32_t crc_check;                          /**< 16 bits, there only where protection_absent is not 0 */
} QLNAdtsHeader;

QLN_STATIC_ASSERT(sizeof(QLNAacConfig) == 28, "record layout");
QLN_STATIC_ASSERT(offsetof(QLNAacConfig, channelConfiguration) == 12, "record layout");
QLN_STATIC_ASSERT(sizeof(QLNAdtsHeader) == 64, "record layout");
QLN_STATIC_ASSERT(offsetof(QLNAdtsHeader, aac_frame_length) == 48, "record layout");
QLN_STATIC_ASSERT(offsetof(QLNAdtsHeader, crc_check) == 60, "record layout");

/// Reads the fixed start of an AudioSpecificConfig: 16 bits, or 40 with an explicit sampling frequency. No
/// extension is read.
/// @param[in,out] state where to read; `bitPos` ends behind the last field.
/// @param[out] config every field is set. `samplingFrequency` comes from the published table for the indices
/// 0 to 12, is 0 for 13 and 14, is read for 15, and stays as it was when the index itself lies past the end.
/// @return 0, always.
QLN_API int32_t qlnutilReadAAC(QLNBitState* state, QLNAacConfig* config);

/// Writes the fixed start of an AudioSpecificConfig: 16 bits, or 40 if `samplingFrequencyIndex` is 15. The
/// index is never derived from the frequency.
/// @param[in,out] state where to write; 2 or 5 bytes of room, and one more when `bitPos` is not at a byte.
/// @param config each field is cut to its width; the index is compared with 15 as a whole word.
/// @return 0, always.
QLN_API int32_t qlnutilWriteAAC(QLNBitState* state, const QLNAacConfig* config);

/// Reads an ADTS frame header. The syncword is not tested.
///
/// `crc_check` is taken where protection_absent is not 0, the opposite of the published meaning; hosts have
/// always lived with it. A header with protection_absent 1 is 72 bits long here, the 16 bits behind its fixed
/// 56 counting as the CRC; one with 0 is 56 bits long.
/// @param[in,out] state where to read; `bitPos` ends behind the last field.
/// @param[out] header every field is set, but `crc_check` stays as it was where protection_absent is 0.
/// @return 0, always.
QLN_API int32_t qlnutilReadADTS(QLNBitState* state, QLNAdtsHeader* header);

/// Writes an ADTS frame header: 72 bits if protection_absent, as a whole word, is not 0, and 56 if it is.
/// @param[in,out] state where to write; 9 or 7 bytes of room, and one more when `bitPos` is not at a byte.
/// @param header each field is cut to its width.
/// @return 0, always.
QLN_API int32_t qlnutilWriteADTS(QLNBitState* state, const QLNAdtsHeader* header);

QLN_C_END

#endif
