// Puts a timecode into every picture of a coded video stream.
#ifndef MEDIA_EDIT_TIMECODE_EDIT_H
#define MEDIA_EDIT_TIMECODE_EDIT_H

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "edit/picture_units.h"
#include "edit/timecode_messages.h"
#include "pictures/declared_order.h"
#include "qlnmedia/stream_editor.h"
#include "timing/timecode.h"
#include "units/config_record.h"

namespace qlnmedia {

// Packets are announced in coding order, some ahead of being changed, so that the place of each picture in
// presentation order is known when its turn comes. Both fields of a frame get the frame's timecode. H.264
// parameter sets need the pic_struct_present_flag that picture timing asks for.
class TimecodeEdit {
 public:
  // Throws Error, in the name of `where`, for a stream whose rate cannot be told, and for a timecode that
  // does not exist. Counts what it does in `counts`, which must outlive it.
  TimecodeEdit(const StreamDescription& stream, const ConfigRecord& config, const StreamChanges& changes,
               std::string where, EditCounts& counts);

  // A packet, and its pictures.
  void Announce(const PacketView& packet, const std::vector<PictureUnits>& parts);
  // Whether enough is announced to change the next packet before the end of the stream.
  bool Ready() const;
  // The pictures of the next announced packet; true if they changed.
  bool Change(std::vector<PictureUnits>& parts);

 private:
  uint32_t FrameOf(const CodedPicture& picture, const std::vector<Unit>& units);
  void CheckParity(uint32_t place, const CodedPicture& picture, const std::vector<Unit>& units);
  [[noreturn]] void Fail(const std::string& what, const std::string& advice = {}) const;

  std::string where_;
  EditCounts& counts_;
  Codec codec_;
  TimecodeMessages messages_;
  TimecodeStart start_;
  PresentationKeys keys_;
  DeclaredOrder order_;
  std::deque<bool> frames_;           // whether each announced packet begins one
  uint32_t frame_ = 0;                // of the last picture
  std::optional<bool> fields_;        // HEVC: whether pictures are fields
  std::optional<bool> evenIsBottom_;  // of those fields: what the even places are
};

}  // namespace qlnmedia

#endif
