// Static HDR metadata as containers keep it beside a stream.
#ifndef MEDIA_CONTAINER_HDR_SIDE_DATA_H
#define MEDIA_CONTAINER_HDR_SIDE_DATA_H

#include "container/libav_handles.h"
#include "hdr/stream_hdr.h"

namespace qlnmedia {

// What the container's boxes say.
StreamHdr ContainerHdr(const AVStream& stream);

}  // namespace qlnmedia

#endif
