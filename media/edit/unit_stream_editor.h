// The editor of H.264 and HEVC streams: brings the edits in their order to each packet.
#ifndef MEDIA_EDIT_UNIT_STREAM_EDITOR_H
#define MEDIA_EDIT_UNIT_STREAM_EDITOR_H

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "edit/caption_edit.h"
#include "edit/hdr_changes.h"
#include "edit/interlace_edit.h"
#include "edit/own_values.h"
#include "edit/picture_order.h"
#include "edit/picture_units.h"
#include "edit/set_changes.h"
#include "edit/timecode_edit.h"
#include "edit/unit_adder.h"
#include "edit/unit_remover.h"

namespace qlnmedia {

class UnitStreamEditor {
 public:
  // As StreamEditor's; `counts` must outlive it.
  UnitStreamEditor(const StreamDescription& stream, const StreamChanges& changes, const StreamSurvey* survey,
                   const std::string& where, EditCounts& counts);

  const Bytes& privateData() const { return privateData_; }
  void Push(AccessUnit unit);
  std::optional<EditedUnit> Pull();
  void Finish() { finished_ = true; }

 private:
  // A packet that waits.
  struct Waiting {
    AccessUnit unit;  // without its bytes where they wait as units alone
    UnitRun run;      // its units are in `parts`
    std::vector<PictureUnits> parts;
    bool changed = false;
  };
  void ChangePrivateData();
  void Announce(const AccessUnit& unit, const std::vector<PictureUnits>& parts);
  // Whether the next packet's places in presentation order are known, where they are asked for.
  bool PlacesKnown() const;
  bool PutCaptions(std::vector<PictureUnits>& parts);
  void Change(Waiting& waiting);
  [[noreturn]] void Fail(const std::string& what, const std::string& advice = {}) const;

  std::string where_;
  EditCounts& counts_;
  bool ownMarks_;
  Bytes privateData_;
  ConfigRecord config_;
  Codec codec_;
  PictureTracker tracker_;
  SetChanges sets_;
  UnitRemover remover_;
  HdrChanges hdr_;
  UnitAdder adder_;
  std::optional<CaptionEdit> captions_;
  std::optional<PictureOrder> captionOrder_;  // where no survey has it
  std::optional<InterlaceEdit> interlace_;
  std::optional<TimecodeEdit> timecodes_;
  std::optional<OwnTimecodes> ownTimecodes_;
  std::deque<Waiting> queue_;
  bool finished_ = false;
};

}  // namespace qlnmedia

#endif
