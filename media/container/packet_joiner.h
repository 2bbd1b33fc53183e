// Puts the packets of a transport stream together again that belong together.
#ifndef MEDIA_CONTAINER_PACKET_JOINER_H
#define MEDIA_CONTAINER_PACKET_JOINER_H

#include <map>

#include "container/libav_handles.h"
#include "container/media_file.h"

namespace qlnmedia {

// Where a packet of a transport stream holds both fields of a frame, the demuxer hands out two, the second
// without times. Each packet of H.264 therefore waits for the next one of its stream.
class PacketJoiner {
 public:
  explicit PacketJoiner(const MediaFile& in)
      : context_(*in.context()), transport_(in.formatName() == "mpegts") {}

  // Takes over the contents of `packet` and gives what can go on, or null.
  PacketHandle Take(AVPacket* packet);
  // At the end of the file: one packet after the other that still waits, then null.
  PacketHandle Finish();

 private:
  const AVFormatContext& context_;
  bool transport_;
  std::map<int, PacketHandle> waiting_;  // by stream
};

}  // namespace qlnmedia

#endif
