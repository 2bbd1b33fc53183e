// The streams of pictures in a transport stream, as its tables and its first pictures tell them.
#ifndef MEDIA_PATCH_LIVE_PROGRAMS_H
#define MEDIA_PATCH_LIVE_PROGRAMS_H

#include <string>
#include <vector>

#include "container/ts/packet.h"
#include "units/coded_stream.h"

namespace qlnmedia {

struct LiveProgramStream {
  unsigned index = 0;  // of all streams of the program maps, in their order
  uint16_t identifier = 0;
  StreamDescription stream;
};

struct LivePrograms {
  std::vector<LiveProgramStream> streams;  // H.264 and HEVC whose parameter sets came
  std::vector<uint16_t> without;           // and those whose did not
};

// Reads a source from its beginning until all streams of pictures have told their parameter sets, or too
// much has come. Throws Error where no program map comes, or it has no such stream.
LivePrograms ReadLivePrograms(const mp4::Source& source);

}  // namespace qlnmedia

#endif
