// The first frames of a coded stream in its report, and what those of both codecs have in common.
#ifndef MEDIA_INSPECT_FRAMES_H
#define MEDIA_INSPECT_FRAMES_H

#include <string>
#include <vector>

#include "base/library_messages.h"
#include "base/report.h"
#include "inspect/coded_frames.h"
#include "inspect/inspect.h"
#include "inspect/timecode.h"

namespace qlnmedia {

// Adds the frames that were read, each with its units and slices. H.264 slices are read by the library.
void AddH264Frames(Section& section, const CodedStream& stream, const InspectOptions& options,
                   const StreamTimecodes& timecodes);
void AddHevcFrames(Section& section, const CodedStream& stream, const InspectOptions& options,
                   const StreamTimecodes& timecodes);

// One more frame with its time and size and its units in words; `visited` of them are visited by the
// library's frame scan.
Section& AddFrameHead(Section& section, const CodedStream& stream, size_t number, const UnitRun& run,
                      uint32_t visited);
// What the messages of the frame say: colour, timecode, captions; and whether it is cut off.
void AddFrameMessages(Section& frame, const CodedStream& stream, size_t number, const UnitRun& run,
                      const StreamTimecodes& timecodes);

// Tells where each unit of a frame stands in its packet.
class UnitOffsets {
 public:
  UnitOffsets(const CodedStream& stream, const UnitRun& run) : UnitOffsets(stream.config.framing, run) {}
  UnitOffsets(Framing framing, const UnitRun& run) : framing_(framing), at_(run.lead.size()) {}
  // The place of the next unit's start code or length.
  size_t Next(const Unit& unit);

 private:
  Framing framing_;
  size_t at_;
};

// The SEI messages of one unit in words, as "picture timing, recovery point"; says when it breaks off.
std::string SeiSummary(Codec codec, const Bytes& unit);
// The types of a run of units in words, as "SPS, PPS, SEI, IDR slice x 4".
std::string UnitSummary(Codec codec, const std::vector<Unit>& units);

}  // namespace qlnmedia

#endif
