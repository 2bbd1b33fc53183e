// What the reports of both codecs share, and the entry point of each.
#ifndef MEDIA_INSPECT_CODEC_H
#define MEDIA_INSPECT_CODEC_H

#include "base/report.h"
#include "hdr/stream_hdr.h"
#include "inspect/coded_frames.h"
#include "inspect/elements.h"
#include "inspect/inspect.h"

namespace qlnmedia {

// Adds the coded side of an H.264 stream: configuration record, parameter sets, what follows from them, the
// first frames with their units and slices.
void ReportH264(Section& section, const CodedStream& stream, const InspectOptions& options,
                MessageSink& messages);

// The same for HEVC.
void ReportHevc(Section& section, const CodedStream& stream, const InspectOptions& options,
                MessageSink& messages);

// Says whether a set that was read and written back has the same bytes, and if not, the first element that
// changes and why; `cause` is said where the element's name alone does not explain it. No element behind the
// one whose name begins with `lostBehind` (if any does) is named: there the library's reading may have left
// the stream's syntax, and a note says so.
void AddComparison(Section& section, Codec codec, const Bytes& source, const Bytes& written,
                   const ElementLister& list, const std::string& cause, const std::string& lostBehind = "");
// Closed captions in one frame's SEI (ATSC A/53 user data): how many triplets.
void AddCaptionMessages(Section& frame, Codec codec, const UnitRun& run);
// Mastering display and content light level, where there are such.
void AddHdr(Section& section, const StreamHdr& hdr);
// The same, found by the library in one frame's SEI.
void AddColourMessages(Section& frame, Codec codec, const UnitRun& run);

// Width and height.
struct PictureSize {
  uint64_t width = 0;
  uint64_t height = 0;
};

// Facts that both codecs derive from their SPS, under the same keys and labels.
void AddPictureSize(Section& section, const char* key, const char* label, PictureSize size);
void AddSampleAspect(Section& section, uint32_t aspect_ratio_idc, uint32_t sar_width, uint32_t sar_height);
void AddFrameRate(Section& section, uint64_t numerator, uint64_t denominator, const char* note = "");
void AddColour(Section& section, uint32_t primaries, uint32_t transfer, uint32_t matrix);
void AddRange(Section& section, bool full);

// The SEI messages of one unit in words, as "picture timing, recovery point"; says when it breaks off.
std::string SeiSummary(Codec codec, const Bytes& unit);
// The types of a run of units in words, as "SPS, PPS, SEI, IDR slice x 4".
std::string UnitSummary(Codec codec, const std::vector<Unit>& units);

}  // namespace qlnmedia

#endif
