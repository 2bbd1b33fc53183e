// What inspect says of streams of captions beside the pictures: caption tracks and ancillary data.
#ifndef MEDIA_INSPECT_CAPTION_STREAMS_H
#define MEDIA_INSPECT_CAPTION_STREAMS_H

#include <map>
#include <string>
#include <vector>

#include "base/report.h"
#include "captions/text.h"
#include "container/anc_captions.h"
#include "container/media_file.h"

namespace qlnmedia {

// What such a stream holds.
struct CaptionStreamFacts {
  std::string form;    // "c608", "c708", "ST 2038", "ST 436"
  bool found = false;  // captions, padding included
  std::vector<CaptionService> services;
  std::vector<AnnouncedService> announced;  // by its caption packets
  std::map<AncKindName, AncKind> kinds;     // of ancillary data
  uint64_t packets = 0;                     // that were looked at
  std::vector<std::string> notes;
};

// By the index of the stream; none of a pipe, which has passed. Of ancillary data the first packets are
// looked at, as many as inspect looks at of pictures.
std::map<unsigned, CaptionStreamFacts> ReadCaptionStreams(const MediaFile& file);

// Adds it to the summary of the stream, and to its section.
void AddCaptionStreamSummary(Section& section, const CaptionStreamFacts& facts);
void AddCaptionStream(Section& section, const CaptionStreamFacts& facts);

}  // namespace qlnmedia

#endif
