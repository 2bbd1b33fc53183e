// Colour and static HDR metadata as people read them; qlnmedia/stream_values.h reads what they write.
#ifndef MEDIA_HDR_VALUES_H
#define MEDIA_HDR_VALUES_H

#include <string>

#include "qlnmedia/stream_values.h"

namespace qlnmedia {

std::string MasteringDisplayText(const MasteringDisplay& display);
std::string ColourText(const ColourCodes& codes);

}  // namespace qlnmedia

#endif
