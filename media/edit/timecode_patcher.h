// Puts a timecode into every picture of a coded video stream.
#ifndef MEDIA_EDIT_TIMECODE_PATCHER_H
#define MEDIA_EDIT_TIMECODE_PATCHER_H

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "container/media_file.h"
#include "edit/options.h"
#include "pictures/picture_tracker.h"
#include "pictures/presentation_order.h"
#include "timing/timecode.h"
#include "units/config_record.h"

namespace qlnmedia {

// Packets are announced in coding order, some ahead of being patched, so that the place of each picture in
// presentation order is known when its turn comes: by their times, or in raw streams, which have none, by
// picture order. Both fields of a frame get the frame's timecode. The caller gives H.264 parameter sets the
// pic_struct_present_flag that picture timing needs.
class TimecodePatcher {
 public:
  // Throws Error for a stream whose rate cannot be told, and for a timecode that does not exist.
  TimecodePatcher(const MediaFile& in, unsigned index, Codec codec, const ConfigRecord& config,
                  const EditOptions& options);

  // A packet as the source has it.
  void Announce(const AVPacket& packet);
  // Whether enough is announced to patch the next packet before the end of the stream.
  bool Ready() const;
  // The units of the next announced packet; true if they changed.
  bool Patch(std::vector<Unit>& units);
  // Pictures that got their timecode.
  int count() const { return count_; }

 private:
  uint32_t FrameOf(const CodedPicture& picture, const std::vector<Unit>& units);
  void CheckParity(uint32_t place, const CodedPicture& picture, const std::vector<Unit>& units);
  void PutTimecode(std::vector<Unit>& units, const CodedPicture& picture, uint32_t frame);
  void PutH264Timecode(std::vector<Unit>& units, const CodedPicture& picture, uint32_t count);
  [[noreturn]] void Fail(const std::string& what, const std::string& advice = {}) const;

  std::string path_;
  unsigned index_;
  Codec codec_;
  Framing framing_;
  bool raw_;
  TimecodeStart start_;
  PictureTracker tracker_;
  PresentationOrder order_;
  std::deque<std::vector<CodedPicture>> announced_;  // the pictures of each packet
  uint32_t frame_ = 0;                               // of the last picture
  std::optional<bool> fields_;                       // HEVC: whether pictures are fields
  std::optional<bool> evenIsBottom_;                 // of those fields: what the even places are
  int count_ = 0;
};

}  // namespace qlnmedia

#endif
