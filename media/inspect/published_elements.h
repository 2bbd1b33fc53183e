// The syntax elements of a set as a report shows them: by the published syntax, arrays together, each under a
// key that is unique within its set.
#ifndef MEDIA_INSPECT_PUBLISHED_ELEMENTS_H
#define MEDIA_INSPECT_PUBLISHED_ELEMENTS_H

#include <cstdint>
#include <string>
#include <vector>

#include "base/report.h"
#include "sets/set_elements.h"

namespace qlnmedia {

// All elements of a set in the order of its bits. What stands in a structure that occurs several times, or in
// one whose names occur elsewhere, carries the structure's name: "st_ref_pic_set[0].num_negative_pics",
// "nal_hrd.cpb_cnt_minus1". An array holds null where an element of it is absent. Behind the elements that
// they follow from stand the words that go by a name of their own: the profile's 32 and 48 flags as one
// number each, the scaling lists of H.264, vps_num_ticks_poc_diff_one, more_rbsp_data_present.
//
// `payload` is the unit without its emulation prevention.
std::vector<Element> PublishedElements(Codec codec, const SetElements& set, const Bytes& payload);

// The name of one element as PublishedElements calls it, with its indices: "offset_for_ref_frame[2]".
std::string PublishedName(const SetElements& set, const SetElement& element);

// The same without the indices of its array.
std::string PublishedKey(const SetElements& set, const SetElement& element);

// A number of up to 64 bits that stands at `position`; 0 where it leads past the end.
uint64_t BitsAt(const Bytes& payload, uint32_t position, uint32_t count);

}  // namespace qlnmedia

#endif
