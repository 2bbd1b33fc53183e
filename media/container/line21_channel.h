// The line 21 decoder of libavcodec.
#ifndef MEDIA_CONTAINER_LINE21_CHANNEL_H
#define MEDIA_CONTAINER_LINE21_CHANNEL_H

#include <memory>

#include "captions/line21_decoder.h"

namespace qlnmedia {

// Throws Error where this libavcodec has no such decoder.
std::unique_ptr<Line21Channel> MakeLine21Channel();

}  // namespace qlnmedia

#endif
