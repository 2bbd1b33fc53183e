// Changes to the units of one access unit, by the order rules of the standards (ITU-T H.264 clause 7.4.1.2.3,
// H.265 clause 7.4.2.4.4): delimiter, parameter sets, SEI, slices.
#ifndef MEDIA_UNITS_ACCESS_UNIT_H
#define MEDIA_UNITS_ACCESS_UNIT_H

#include <functional>
#include <initializer_list>
#include <vector>

#include "units/units.h"

namespace qlnmedia {

// True for a slice that its own header says to be the first of its picture: first_mb_in_slice is 0,
// first_slice_segment_in_pic_flag is 1. Where slices may come in any order (H.264 Baseline and Extended),
// others may stand in front of it.
bool IsFirstSlice(Codec codec, ByteSpan slice);
// The size of the first unit that does not fit its length field, so that PutTogether would damage it; 0 if
// there is none.
size_t OutgrownUnit(const UnitRun& run, Framing framing);

// Index of the first unit that belongs to the coded picture itself: its first slice, or the prefix unit in
// front of it; the number of units if there is none. Slices of HEVC layers above the base layer are passed
// over: they belong to the picture in front of them.
size_t FirstPictureUnit(Codec codec, const std::vector<Unit>& units);

// True for HEVC units with slices of layers above the base layer alone. Some writers give these a packet of
// their own, which completes the picture of the packet in front of it and is none itself.
bool CompletesPicture(Codec codec, const std::vector<Unit>& units);

// True where decoding can start: an IDR or IRAP picture, or one with a recovery point message.
bool IsRandomAccess(Codec codec, const std::vector<Unit>& units);

// Where an SEI unit goes that may have only certain messages in front of it: behind the delimiter and the
// parameter sets of [begin, slice), and in front of the first SEI unit there that holds any other message.
size_t SeiPlace(Codec codec, const std::vector<Unit>& units, size_t begin, size_t slice,
                std::initializer_list<int> inFront);

// Puts a unit directly in front of the coded picture, behind delimiter, parameter sets and other SEI.
void InsertSei(Codec codec, std::vector<Unit>& units, Bytes unit);
// Puts a unit in front of the one at `at`.
void InsertSei(std::vector<Unit>& units, size_t at, Bytes unit);

// Takes the messages for which `unwanted` holds out of every SEI unit, wherever it stands; a unit that is
// left empty goes, and units without such messages keep their bytes. Returns how many messages went.
int RemoveSei(Codec codec, std::vector<Unit>& units, const std::function<bool(const SeiMessage&)>& unwanted);
// The same for one unit: nothing to do, changed, or emptied.
enum class SeiRemoval { kUntouched, kChanged, kEmptied };
SeiRemoval RemoveSeiMessages(Codec codec, Bytes& unit, const std::function<bool(const SeiMessage&)>& unwanted,
                             int* removed);

}  // namespace qlnmedia

#endif
