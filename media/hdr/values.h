// Static HDR metadata as the streams carry it, and the forms in which people write it.
#ifndef MEDIA_HDR_VALUES_H
#define MEDIA_HDR_VALUES_H

#include <string>

#include "qlnmedia/stream_values.h"

namespace qlnmedia {

// "p3", "bt2020" (1000 and 0.0001 cd/m2 both), or "G(x,y)B(x,y)R(x,y)WP(x,y)L(max,min)" in stream units.
// Throws Error for anything else, and for values out of their range.
MasteringDisplay ParseMasteringDisplay(const std::string& text);
// "MAX,AVERAGE" in cd/m2.
LightLevel ParseLightLevel(const std::string& text);
// A name (bt709, bt601-525, bt601-625, bt2020-pq, bt2020-hlg, p3-pq) or "P:T:M".
ColourCodes ParseColour(const std::string& text);

std::string MasteringDisplayText(const MasteringDisplay& display);
std::string ColourText(const ColourCodes& codes);

}  // namespace qlnmedia

#endif
