// Numbers and rates, for the engine's own rooms.
#ifndef MEDIA_BASE_NUMBERS_H
#define MEDIA_BASE_NUMBERS_H

#include <string>

#include "qlnmedia/numbers.h"

namespace qlnmedia {

// A number of frames, or frames a second, in plain digits: three behind the point at most, nine below 1, and
// none that says nothing.
std::string PlainNumber(double number);

}  // namespace qlnmedia

#endif
