// How the pictures of a stream are coded and in which order their fields are shown, by the pictures that were
// read.
#ifndef MEDIA_INSPECT_SCAN_FACTS_H
#define MEDIA_INSPECT_SCAN_FACTS_H

#include <string>
#include <vector>

#include "container/media_stream.h"
#include "inspect/coded_frames.h"

namespace qlnmedia {

struct ScanFacts {
  std::string type;        // "progressive" or "interlaced"; empty where nothing tells it
  std::string coding;      // "frames", "fields", "fields and frames", "macroblock-adaptive frames" ...
  std::string fieldOrder;  // "top field first" or "bottom field first"; empty where nothing tells it
};

// Of H.264 and HEVC: by parameter sets, slice headers and picture timing.
ScanFacts ScanOf(const CodedStream& stream);
// Of other codecs: what libavcodec found.
ScanFacts ScanOf(FieldOrder order);

// "interlaced, top field first, coded as fields"; empty where nothing is known.
std::string ScanText(const ScanFacts& scan);

}  // namespace qlnmedia

#endif
