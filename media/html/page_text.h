// The page without its data, as it was put together when the engine was built.
#ifndef MEDIA_HTML_PAGE_TEXT_H
#define MEDIA_HTML_PAGE_TEXT_H

#include <string_view>

namespace qlnmedia::html {

// What stands in front of the data and behind it; both empty in a build without the charting library.
std::string_view PageHead();
std::string_view PageTail();

}  // namespace qlnmedia::html

#endif
