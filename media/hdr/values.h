// Colour and static HDR metadata as people read them; qlnmedia/stream_values.h reads what they write.
#ifndef MEDIA_HDR_VALUES_H
#define MEDIA_HDR_VALUES_H

#include <string>

#include "qlnmedia/stream_values.h"

namespace qlnmedia {

std::string MasteringDisplayText(const MasteringDisplay& display);
// Whether a colour can stand at a point of the chromaticity chart, as ParseMasteringDisplay says.
bool IsOnChart(const MasteringDisplay::Point& point);
// "1000", "0.005": units of 0.0001 cd/m2 in cd/m2.
std::string LuminanceText(uint32_t luminance);
std::string ColourText(const ColourCodes& codes);

}  // namespace qlnmedia

#endif
