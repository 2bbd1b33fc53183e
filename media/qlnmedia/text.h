/// @file text.h
/// Foreign text, made fit to be seen.
#ifndef QLNMEDIA_TEXT_H
#define QLNMEDIA_TEXT_H

#include <string>
#include <string_view>

#include "qlnmedia/api.h"

namespace qlnmedia {

/// `text` with its control characters as "\\xNN", so that what a file says cannot steer a terminal. The texts
/// of reports and captions are so already.
QLNMEDIA_API std::string Printable(std::string_view text);

}  // namespace qlnmedia

#endif
