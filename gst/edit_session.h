// The work of qlnedit on one stream: buffers in, buffers out, an editor that begins anew where settings
// change or bytes are damaged.
#ifndef GST_EDIT_SESSION_H
#define GST_EDIT_SESSION_H

#include <gst/gst.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "access_unit.h"
#include "format.h"
#include "handles.h"
#include "qlnmedia/stream_editor.h"
#include "settings.h"

namespace qlngst {

// Where a session's results go.
class Outlet {
 public:
  virtual ~Outlet() = default;
  virtual GstFlowReturn Push(BufferPtr buffer) = 0;
  virtual void PushEvent(EventPtr event) = 0;
  // Something is wrong with the access unit of that number, from 0; it passes as it came.
  virtual void Warn(const std::string& text, uint64_t picture, GstClockTime pts) = 0;
  // The stream, or the settings at its beginning, cannot be edited in that way.
  virtual void Refuse(const std::string& text) = 0;
  // How long a picture waits at most.
  virtual void Delay(GstClockTime latency) = 0;
};

// To be used under the stream lock of the element's sink pad.
class EditSession {
 public:
  explicit EditSession(Outlet& outlet) : outlet_(outlet) {
    gst_segment_init(&segment_, GST_FORMAT_UNDEFINED);
  }

  // Goes on with a stream of these caps; false where it was refused.
  bool TakeCaps(GstCaps* caps, const Settings& settings);
  // `settings` are those of now: changed ones take effect with the next picture where decoding can start.
  GstFlowReturn Take(BufferPtr buffer, const Settings& settings);
  // A serialized event: it keeps its place among the buffers.
  void Take(EventPtr event);
  // Gives all that waits, as at the end of a stream.
  GstFlowReturn Drain();
  // Forgets all that waits; the stream begins anew.
  void Flush();
  // Forgets the stream as well.
  void Reset();

 private:
  struct Waiting {
    BufferPtr buffer;  // or
    EventPtr event;
    bool inEditor = false;
    uint64_t picture = 0;
  };

  // Begins with an editor of these settings; `first` is the buffer that it will begin with, null where none
  // is there yet. Throws qlnmedia::Error and leaves the old one.
  void Begin(const Settings& settings, GstBuffer* first);
  // Before a buffer: whether it goes through an editor, which may begin with it.
  bool Edits(GstBuffer* buffer, const AccessUnitFacts& facts, const Settings& settings);
  void TakeUp(GstBuffer* buffer, const Settings& settings);
  void BeginAgain(GstBuffer* buffer, const Settings& settings);
  qlnmedia::AccessUnit UnitOf(GstBuffer* buffer, const Mapped& bytes);
  std::string TimecodeFor(GstBuffer* buffer);
  GstFlowReturn Finish();
  void Restart();
  GstFlowReturn Emit();
  GstFlowReturn Push(BufferPtr buffer);
  GstFlowReturn PushEdited(Waiting waiting, qlnmedia::EditedUnit edited);
  // All that waits passes as it came, and all that comes until decoding can start again.
  void GiveUp(const std::string& text, uint64_t picture, GstClockTime pts);
  // Its running time in nanoseconds; nothing where it has none.
  std::optional<int64_t> TimeOf(GstBuffer* buffer) const;
  void WarnOnce(bool& warned, const std::string& text, GstBuffer* buffer);

  Outlet& outlet_;
  std::optional<StreamFormat> format_;
  Settings settings_;  // of the editor
  CapsPtr sentCaps_;   // the last caps that went out
  GstSegment segment_;
  KeptSets sets_;
  std::unique_ptr<qlnmedia::StreamEditor> editor_;
  bool fresh_ = false;               // nothing was given to the editor yet
  bool damaged_ = false;             // no editor until decoding can start again
  std::optional<Settings> refused_;  // that were refused
  CapsPtr refusedCaps_;              // with which they were, at the start
  std::deque<Waiting> queue_;
  uint64_t pictures_ = 0;
  std::optional<int64_t> counted_;  // running time of the picture that has the start value
  std::optional<int64_t> from_;     // pictures that are shown earlier belong to what was in front of a damage
  bool warnedOfTimecode_ = false;
  bool warnedOfCaptions_ = false;
};

}  // namespace qlngst

#endif
