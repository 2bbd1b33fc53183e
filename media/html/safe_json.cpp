// Escapes what HTML and scripts would take for theirs.

#include "html/safe_json.h"

namespace qlnmedia::html {

std::string SafeJson(const Json& value) {
  const std::string plain = value.dump(-1, ' ', false, Json::error_handler_t::replace);
  std::string safe;
  safe.reserve(plain.size());
  for (size_t i = 0; i < plain.size(); ++i) {
    // None of these stands outside of strings.
    switch (plain[i]) {
      case '<':
        safe += "\\u003c";
        break;
      case '>':
        safe += "\\u003e";
        break;
      case '&':
        safe += "\\u0026";
        break;
      case '\xE2':
        if (plain.compare(i, 3, "\xE2\x80\xA8") == 0 || plain.compare(i, 3, "\xE2\x80\xA9") == 0) {
          safe += plain[i + 2] == '\xA8' ? "\\u2028" : "\\u2029";
          i += 2;
          break;
        }
        [[fallthrough]];
      default:
        safe += plain[i];
    }
  }
  return safe;
}

}  // namespace qlnmedia::html
