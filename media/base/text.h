// Text in columns, and foreign text made fit to be seen.
#ifndef MEDIA_BASE_TEXT_H
#define MEDIA_BASE_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace qlnmedia {

// `text` filled up with blanks to `width` columns; left alone when it is longer. Bytes that continue a UTF-8
// character take no column.
std::string PadRight(std::string_view text, size_t width);
std::string PadLeft(std::string_view text, size_t width);
size_t ColumnsOf(std::string_view text);

// `text` with control characters made visible as \xNN, so that foreign strings cannot steer a terminal.
std::string Printable(std::string_view text);

}  // namespace qlnmedia

#endif
