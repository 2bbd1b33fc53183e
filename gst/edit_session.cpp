// Buffers on their way through an editor.

#include "edit_session.h"

#include <gst/video/video-anc.h>

#include <utility>
#include <vector>

#include "captions.h"
#include "timecodes.h"

namespace qlngst {

namespace {

bool IsKey(GstBuffer* buffer) { return !GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT); }

int64_t TimeOrNone(GstClockTime time) {
  return GST_CLOCK_TIME_IS_VALID(time) ? static_cast<int64_t>(time) : qlnmedia::kNoTime;
}

// A buffer of the editor's bytes, with all that the old one had beside its memory.
BufferPtr BufferOf(std::vector<uint8_t> data, GstBuffer* old) {
  auto* const bytes = new std::vector<uint8_t>(std::move(data));
  BufferPtr made(gst_buffer_new_wrapped_full(
      static_cast<GstMemoryFlags>(0), bytes->data(), bytes->size(), 0, bytes->size(), bytes,
      [](gpointer owner) { delete static_cast<std::vector<uint8_t>*>(owner); }));
  gst_buffer_copy_into(made.get(), old,
                       static_cast<GstBufferCopyFlags>(GST_BUFFER_COPY_FLAGS | GST_BUFFER_COPY_TIMESTAMPS |
                                                       GST_BUFFER_COPY_META),
                       0, static_cast<gsize>(-1));
  return made;
}

// How long a timecode in presentation order waits for the pictures that may come in front.
GstClockTime DelayOf(const Settings& settings, qlnmedia::Rational rate) {
  if (settings.timecodeSource != TimecodeSource::kStart) return 0;
  return gst_util_uint64_scale_ceil((qlnmedia::StreamEditor::kMostWaiting - 1) * GST_SECOND,
                                    static_cast<guint64>(rate.denominator),
                                    static_cast<guint64>(rate.numerator));
}

bool CountsTime(const Settings& settings) { return settings.timecodeSource != TimecodeSource::kNone; }

}  // namespace

bool EditSession::TakeCaps(GstCaps* caps, const Settings& settings) {
  if (format_ && gst_caps_is_equal(format_->caps.get(), caps) != FALSE) return true;
  // Sticky events come again until they are taken.
  if (refusedCaps_ != nullptr && gst_caps_is_equal(refusedCaps_.get(), caps) != FALSE && refused_ == settings)
    return false;
  Finish();
  editor_.reset();
  damaged_ = false;
  sets_.Clear();
  refusedCaps_.reset();
  refused_.reset();
  try {
    format_ = FormatOf(caps);
    Begin(settings, nullptr);
  } catch (const qlnmedia::Error& error) {
    format_.reset();
    refusedCaps_.reset(gst_caps_ref(caps));
    refused_ = settings;
    outlet_.Refuse(error.what());
    return false;
  }
  return true;
}

void EditSession::Begin(const Settings& settings, GstBuffer* first) {
  qlnmedia::StreamChanges changes = ChangesOf(settings);
  qlnmedia::StreamDescription description = format_->description;
  const qlnmedia::Rational rate = description.averageRate;
  if (CountsTime(settings) && rate.numerator == 0)
    throw qlnmedia::Error("caps", "have no framerate, which timecodes count by", "put a parser in front");
  if (settings.timecodeSource == TimecodeSource::kRunningTime) TimecodeBehind(settings.timecode, 0, rate);
  const bool sameCount =
      settings.timecodeSource == settings_.timecodeSource && settings.timecode == settings_.timecode;
  std::optional<int64_t> counted = sameCount ? counted_ : std::nullopt;
  if (settings.timecodeSource == TimecodeSource::kStart && first != nullptr) {
    const std::optional<int64_t> time = TimeOf(first);
    description.ownOrder = !time;
    if (counted && time)
      changes.timecode = TimecodeBehind(settings.timecode, FrameAt(*time - *counted, rate), rate);
    if (!counted) counted = time;
  }
  if (format_->lengthBytes == 0) description.privateData = sets_.Bytes();
  auto editor = std::make_unique<qlnmedia::StreamEditor>(description, changes);
  CapsPtr caps = EditedCaps(*format_, changes, editor->privateData());
  editor_ = std::move(editor);
  settings_ = settings;
  counted_ = counted;
  fresh_ = first == nullptr;
  damaged_ = false;
  from_.reset();
  refused_.reset();
  if (sentCaps_ == nullptr || gst_caps_is_equal(sentCaps_.get(), caps.get()) == FALSE) {
    outlet_.PushEvent(EventPtr(gst_event_new_caps(caps.get())));
    sentCaps_ = std::move(caps);
  }
  outlet_.Delay(DelayOf(settings, rate));
}

bool EditSession::Edits(GstBuffer* buffer, const AccessUnitFacts& facts, const Settings& settings) {
  if (damaged_) {
    if (!IsKey(buffer)) return false;
    TakeUp(buffer, settings);
    return editor_ != nullptr;
  }
  const bool counts = settings_.timecodeSource == TimecodeSource::kStart;
  // Pictures that are shown in front of an open entry would lose their count.
  const bool entry = IsKey(buffer) && (!counts || facts.idr || fresh_);
  if ((entry && settings != settings_ && settings != refused_) || (fresh_ && counts))
    BeginAgain(buffer, settings);
  fresh_ = false;
  if (!from_) return true;
  const std::optional<int64_t> time = TimeOf(buffer);
  if (time && *time < *from_) return false;
  if (!time || *time > *from_) from_.reset();
  return true;
}

// Behind damage.
void EditSession::TakeUp(GstBuffer* buffer, const Settings& settings) {
  try {
    Begin(settings, buffer);
    if (settings.timecodeSource == TimecodeSource::kStart) from_ = TimeOf(buffer);
  } catch (const qlnmedia::Error& error) {
    editor_.reset();
    outlet_.Warn(error.what(), pictures_, GST_BUFFER_PTS(buffer));
  }
}

// At a sound picture: with other settings, or to know the time of the first one.
void EditSession::BeginAgain(GstBuffer* buffer, const Settings& settings) {
  const bool wasFresh = fresh_;
  try {
    Finish();
    Begin(settings, buffer);
  } catch (const qlnmedia::Error& error) {
    outlet_.Warn(error.what(), pictures_, GST_BUFFER_PTS(buffer));
    Begin(settings_, buffer);
    refused_ = settings;
    fresh_ = wasFresh;
  }
}

GstFlowReturn EditSession::Take(BufferPtr buffer, const Settings& settings) {
  if (!format_) return GST_FLOW_NOT_NEGOTIATED;
  Waiting waiting;
  waiting.picture = pictures_;
  {
    const Mapped bytes(buffer.get());
    AccessUnitFacts facts;
    if (bytes.size() != 0)
      facts = LookAt(format_->description.codec, format_->lengthBytes, bytes.data(), bytes.size(), sets_);
    if (!facts.damage.empty()) {
      if (!damaged_) GiveUp(facts.damage, pictures_, GST_BUFFER_PTS(buffer.get()));
    } else if (bytes.size() != 0) {
      try {
        waiting.inEditor = Edits(buffer.get(), facts, settings);
        if (waiting.inEditor) editor_->Push(UnitOf(buffer.get(), bytes));
      } catch (const qlnmedia::Error& error) {
        waiting.inEditor = false;
        GiveUp(error.what(), pictures_, GST_BUFFER_PTS(buffer.get()));
      }
    }
  }
  ++pictures_;
  waiting.buffer = std::move(buffer);
  queue_.push_back(std::move(waiting));
  return Emit();
}

void EditSession::Take(EventPtr event) {
  if (GST_EVENT_TYPE(event.get()) == GST_EVENT_SEGMENT) gst_event_copy_segment(event.get(), &segment_);
  if (queue_.empty()) {
    outlet_.PushEvent(std::move(event));
  } else {
    queue_.emplace_back().event = std::move(event);
  }
}

qlnmedia::AccessUnit EditSession::UnitOf(GstBuffer* buffer, const Mapped& bytes) {
  qlnmedia::AccessUnit unit;
  unit.data.assign(bytes.data(), bytes.data() + bytes.size());
  unit.pts = TimeOrNone(GST_BUFFER_PTS(buffer));
  unit.dts = TimeOrNone(GST_BUFFER_DTS(buffer));
  unit.key = IsKey(buffer);
  unit.timecode = TimecodeFor(buffer);
  if (settings_.captions) {
    std::string problem;
    unit.captions = CaptionsOf(buffer, format_->description.averageRate, &problem);
    if (!problem.empty()) WarnOnce(warnedOfCaptions_, problem, buffer);
  }
  return unit;
}

std::string EditSession::TimecodeFor(GstBuffer* buffer) {
  const qlnmedia::Rational rate = format_->description.averageRate;
  if (settings_.timecodeSource == TimecodeSource::kMeta) {
    std::string problem;
    std::string timecode = TimecodeOf(buffer, rate, &problem);
    if (!problem.empty()) WarnOnce(warnedOfTimecode_, problem, buffer);
    return timecode;
  }
  if (settings_.timecodeSource != TimecodeSource::kRunningTime) return {};
  const std::optional<int64_t> time = TimeOf(buffer);
  if (time) return TimecodeBehind(settings_.timecode, FrameAt(*time, rate), rate);
  WarnOnce(warnedOfTimecode_, "a picture without a presentation time gets no timecode", buffer);
  return {};
}

GstFlowReturn EditSession::Emit() {
  GstFlowReturn flow = GST_FLOW_OK;
  while (!queue_.empty() && flow == GST_FLOW_OK) {
    std::optional<qlnmedia::EditedUnit> edited;
    Waiting& front = queue_.front();
    if (front.inEditor) {
      try {
        edited = editor_->Pull();
        if (!edited) break;
      } catch (const qlnmedia::Error& error) {
        GiveUp(error.what(), front.picture, GST_BUFFER_PTS(front.buffer.get()));
      }
    }
    Waiting waiting = std::move(front);
    queue_.pop_front();
    if (waiting.event != nullptr) {
      outlet_.PushEvent(std::move(waiting.event));
    } else if (edited && edited->changed) {
      flow = PushEdited(std::move(waiting), std::move(*edited));
    } else {
      flow = Push(std::move(waiting.buffer));
    }
  }
  return flow;
}

GstFlowReturn EditSession::Push(BufferPtr buffer) {
  if (settings_.removeCaptionMeta &&
      gst_buffer_get_meta(buffer.get(), GST_VIDEO_CAPTION_META_API_TYPE) != nullptr) {
    buffer.reset(gst_buffer_make_writable(buffer.release()));
    RemoveCaptionMetas(buffer.get());
  }
  return outlet_.Push(std::move(buffer));
}

GstFlowReturn EditSession::PushEdited(Waiting waiting, qlnmedia::EditedUnit edited) {
  BufferPtr made = BufferOf(std::move(edited.unit.data), waiting.buffer.get());
  if (edited.unit.key) GST_BUFFER_FLAG_UNSET(made.get(), GST_BUFFER_FLAG_DELTA_UNIT);
  return Push(std::move(made));
}

void EditSession::GiveUp(const std::string& text, uint64_t picture, GstClockTime pts) {
  for (Waiting& waiting : queue_) waiting.inEditor = false;
  editor_.reset();
  damaged_ = true;
  outlet_.Warn(text, picture, pts);
}

GstFlowReturn EditSession::Finish() {
  if (editor_ != nullptr) editor_->Finish();
  const GstFlowReturn flow = Emit();
  if (flow != GST_FLOW_OK) queue_.clear();
  return flow;
}

GstFlowReturn EditSession::Drain() {
  const GstFlowReturn flow = Finish();
  Restart();
  return flow;
}

void EditSession::Flush() {
  queue_.clear();
  gst_segment_init(&segment_, GST_FORMAT_UNDEFINED);
  counted_.reset();
  warnedOfTimecode_ = warnedOfCaptions_ = false;
  Restart();
}

// With the same caps and settings, and nothing of what came so far but sets.
void EditSession::Restart() {
  editor_.reset();
  if (!format_) return;
  try {
    Begin(settings_, nullptr);
  } catch (const qlnmedia::Error&) {
    damaged_ = true;  // told where decoding can start
  }
}

void EditSession::Reset() {
  queue_.clear();
  editor_.reset();
  format_.reset();
  sentCaps_.reset();
  sets_.Clear();
  refused_.reset();
  refusedCaps_.reset();
  counted_.reset();
  from_.reset();
  damaged_ = fresh_ = warnedOfTimecode_ = warnedOfCaptions_ = false;
  pictures_ = 0;
  gst_segment_init(&segment_, GST_FORMAT_UNDEFINED);
}

std::optional<int64_t> EditSession::TimeOf(GstBuffer* buffer) const {
  if (!GST_BUFFER_PTS_IS_VALID(buffer) || segment_.format != GST_FORMAT_TIME) return {};
  guint64 time = 0;
  const gint sign =
      gst_segment_to_running_time_full(&segment_, GST_FORMAT_TIME, GST_BUFFER_PTS(buffer), &time);
  if (sign == 0) return {};
  return sign > 0 ? static_cast<int64_t>(time) : -static_cast<int64_t>(time);
}

void EditSession::WarnOnce(bool& warned, const std::string& text, GstBuffer* buffer) {
  if (!warned) outlet_.Warn(text, pictures_, GST_BUFFER_PTS(buffer));
  warned = true;
}

}  // namespace qlngst
