// The order of units in an access unit (ITU-T H.264 clause 7.4.1.2.3, H.265 clause 7.4.2.4.4).
#ifndef MEDIA_CHECK_UNIT_ORDER_H
#define MEDIA_CHECK_UNIT_ORDER_H

#include <string>
#include <vector>

#include "units/units.h"

namespace qlnmedia {

// What the sequence parameter sets of a stream allow its frames.
struct OrderRules {
  bool twoFields = false;      // a frame may hold two fields, each an access unit of its own
  bool anySliceOrder = false;  // H.264 Baseline and Extended: slices need not begin with the first macroblock
};

// What is wrong with the order of a frame's units, in their order; empty if nothing is. Units of layers above
// the base layer are passed over.
std::vector<std::string> OrderFindings(Codec codec, const std::vector<Unit>& units, OrderRules rules);

}  // namespace qlnmedia

#endif
