// What is said of files and pipes that do not open.
#ifndef MEDIA_CONTAINER_OPEN_FAILURES_H
#define MEDIA_CONTAINER_OPEN_FAILURES_H

#include <string>

#include "container/media_input.h"

namespace qlnmedia {

// Whether a file begins with a box of the ISO base media format, so that its index can be missed.
bool BeginsWithBox(const std::string& path);

// Throws for a pipe that brought nothing.
[[noreturn]] void FailWithoutBytes(const MediaInput& input);

// Throws where a pipe brings MP4 or MOV whose index stands behind the media data.
void RequireIndexInFront(const MediaInput& input);

[[noreturn]] void FailNoMedia(const std::string& path);

// Throws for a file of boxes that does not open: where a box other than the media data has a size that cannot
// be (data that is cut off is the end of the file and no wrong size), and where there is no index.
void FailBoxes(const std::string& path);

}  // namespace qlnmedia

#endif
