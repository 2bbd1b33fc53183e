/// @file qlnbits.h
/// MSB-first bit reading and writing with the Exp-Golomb codes of ITU-T H.264 clause 9.1 and H.265
/// clause 9.2.
///
/// All functions work on one QLNBitState and touch nothing but it and its buffer; a state belongs to one
/// thread at a time. The state pointer is never null.
///
/// Reading never fails. A bit at a position above `bitLength` is 0xFFFFFFFF and the position moves on all the
/// same, so that a caller notices truncation by comparing `bitPos` with `bitLength`. The comparison is
/// strict: a read at exactly `bitLength` takes a real bit, so every buffer handed to these functions must
/// have one readable byte behind its last valid bit (byte `bitLength` / 8). `bitPos` is a 32-bit word; a
/// caller keeps it from wrapping.
///
/// Writing looks at no limit: the caller owns the buffer and sizes it in advance. No byte behind the one that
/// holds the last written bit is touched.
#ifndef QLNUTIL_QLNBITS_H
#define QLNUTIL_QLNBITS_H

#include "qlnutil/qlnapi.h"

QLN_C_BEGIN

/// A bit position in a byte buffer; reader and writer share it. It owns nothing.
typedef struct QLNBitState {
  uint8_t* data;      /**< first byte; its most significant bit is bit 0 of the stream */
  int32_t size;       /**< buffer size in bytes; used by the stream parsers, by no function of this header */
  uint32_t bitLength; /**< number of valid bits: the reader's limit */
  uint32_t bitPos;    /**< the next bit to read or write, counted from the start of data */
} QLNBitState;

/// Reads one bit. @return 0, 1, or 0xFFFFFFFF past the limit; `bitPos` moves by 1 in every case.
QLN_API uint32_t ReadBit(QLNBitState* state);

/// Reads @p count bits, first bit highest. `bitPos` moves by @p count.
/// @return the value; 0xFFFFFFFF for any read that runs past the limit; 0, moving nothing, for a count
/// below 1. Counts above 32 fold: bits 32 places apart are OR-ed into one.
QLN_API uint32_t ReadBits(QLNBitState* state, int32_t count);

/// Reads @p count bits into 64. `bitPos` moves by @p count.
/// @return the value; where the first bit past the limit has k bits still to come, the real bits in front of
/// it and the low min(64, 32 + k) bits set; 0, moving nothing, for a count below 1.
QLN_API uint64_t ReadBits64(QLNBitState* state, int32_t count);

/// Reads the number form of SEI payload type and size: groups of 8 bits, summed for as long as a group is
/// 255.
/// @return the sum; a group that runs past the limit counts as -1 and ends the number.
QLN_API uint32_t ReadCodedNumber(QLNBitState* state);

/// Reads ue(v). Leading zeros are counted up to the end of the data, without a limit of 32; a stream of zeros
/// yields a large value. A code that begins past the limit gives 0 and moves `bitPos` by 1.
QLN_API uint32_t ReadExponentialGolombCode(QLNBitState* state);

/// Reads se(v): code k gives (k + 1) / 2 for odd k and -(k / 2) for even k, in wrapping 32-bit arithmetic.
QLN_API int32_t ReadExponentialGolombCodeSigned(QLNBitState* state);

/// Adds @p count to `bitPos` without any test.
QLN_API void SkipBits(QLNBitState* state, uint32_t count);

/// Writes the low bit of @p bit.
QLN_API void WriteBit(QLNBitState* state, uint8_t bit);

/// Writes bits @p count - 1 down to 0 of @p value; a count below 1 writes nothing. Counts above 32 repeat the
/// value's bits every 32 places.
QLN_API void WriteBits(QLNBitState* state, int32_t count, uint32_t value);

/// Writes ue(v) for values from 0 to 0xFFFFFE. Values from 0xFFFFFF up take 48 bits more than the standard's
/// code (0xFFFFFF: 65 zero bits and the 32 bits of 0x01000000) and do not read back. -1 is written as a
/// single 0 bit; any value below it, and 0x7FFFFFFF, as 0 is.
QLN_API void WriteExponentialGolombCode(QLNBitState* state, int32_t value);

/// Length of the ue(v) code of a value from 0 to 127, in bits; 2 for every negative value.
QLN_API int32_t LengthExponentialGolombCode(int8_t value);

QLN_C_END

#endif
