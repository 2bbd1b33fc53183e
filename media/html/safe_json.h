// JSON that can stand in a page whatever its texts are.
#ifndef MEDIA_HTML_SAFE_JSON_H
#define MEDIA_HTML_SAFE_JSON_H

#include <string>

#include "base/report.h"

namespace qlnmedia::html {

// The value as JSON on one line in which no text can end a script element, begin markup or break a line: <,
// >, & and the separators U+2028 and U+2029 come as \u escapes. Bytes that are no UTF-8 come as U+FFFD.
std::string SafeJson(const Json& value);

}  // namespace qlnmedia::html

#endif
