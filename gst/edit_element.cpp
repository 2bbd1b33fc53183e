// The element qlnedit: pads, properties, queries and messages around a session.

#include <gst/gst.h>

#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "edit_session.h"
#include "elements.h"
#include "format.h"
#include "settings.h"

GST_DEBUG_CATEGORY_STATIC(qln_edit_debug);
#define GST_CAT_DEFAULT qln_edit_debug

namespace {

using qlngst::BufferPtr;
using qlngst::CapsPtr;
using qlngst::EventPtr;
using qlngst::Settings;

class EditElement;

struct QlnEdit {
  GstElement element;
  EditElement* inner;
};
struct QlnEditClass {
  GstElementClass parent;
};

GstStaticPadTemplate sinkTemplate =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS(QLN_CODED_VIDEO));
GstStaticPadTemplate srcTemplate =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS(QLN_CODED_VIDEO));

class EditElement : public qlngst::Outlet {
 public:
  explicit EditElement(GstElement* element)
      : element_(element), session_(*this), settings_(std::make_shared<const Settings>()) {}

  GstPad* sink = nullptr;
  GstPad* src = nullptr;

  // Properties, from any thread.
  bool Set(guint number, const GValue* value) {
    GST_OBJECT_LOCK(element_);
    auto changed = std::make_shared<Settings>(*settings_);
    const bool known = qlngst::SetProperty(*changed, number, value);
    settings_ = std::move(changed);
    GST_OBJECT_UNLOCK(element_);
    return known;
  }
  bool Get(guint number, GValue* value) { return qlngst::GetProperty(*Now(), number, value); }

  GstFlowReturn Chain(BufferPtr buffer) { return session_.Take(std::move(buffer), *Now()); }
  gboolean SinkEvent(EventPtr event);
  gboolean SrcQuery(GstPad* pad, GstObject* parent, GstQuery* query);
  void Stop() {
    session_.Reset();
    Delay(0);
  }

  GstFlowReturn Push(BufferPtr buffer) override { return gst_pad_push(src, buffer.release()); }
  void PushEvent(EventPtr event) override { gst_pad_push_event(src, event.release()); }
  void Warn(const std::string& text, uint64_t picture, GstClockTime pts) override {
    GST_ELEMENT_WARNING_WITH_DETAILS(
        element_, STREAM, DECODE, ("%s", text.c_str()), (nullptr),
        ("picture", G_TYPE_UINT64, guint64{picture}, "timestamp", GST_TYPE_CLOCK_TIME, pts, nullptr));
  }
  void Refuse(const std::string& text) override {
    GST_ELEMENT_ERROR(element_, LIBRARY, SETTINGS, ("%s", text.c_str()), (nullptr));
  }
  void Delay(GstClockTime latency) override {
    GST_OBJECT_LOCK(element_);
    const bool changed = latency_ != latency;
    latency_ = latency;
    GST_OBJECT_UNLOCK(element_);
    if (changed) gst_element_post_message(element_, gst_message_new_latency(GST_OBJECT(element_)));
  }

 private:
  std::shared_ptr<const Settings> Now() {
    GST_OBJECT_LOCK(element_);
    std::shared_ptr<const Settings> settings = settings_;
    GST_OBJECT_UNLOCK(element_);
    return settings;
  }

  GstElement* element_;
  qlngst::EditSession session_;
  std::shared_ptr<const Settings> settings_;  // under the object's lock
  GstClockTime latency_ = 0;                  // the same
};

gboolean EditElement::SinkEvent(EventPtr event) {
  switch (GST_EVENT_TYPE(event.get())) {
    case GST_EVENT_CAPS: {
      GstCaps* caps = nullptr;
      gst_event_parse_caps(event.get(), &caps);
      return session_.TakeCaps(caps, *Now()) ? TRUE : FALSE;
    }
    case GST_EVENT_FLUSH_STOP:
      session_.Flush();
      return gst_pad_push_event(src, event.release());
    case GST_EVENT_STREAM_START:
    case GST_EVENT_EOS:
      session_.Drain();
      return gst_pad_push_event(src, event.release());
    default:
      break;
  }
  const GstEventTypeFlags flags = gst_event_type_get_flags(GST_EVENT_TYPE(event.get()));
  if ((flags & GST_EVENT_TYPE_SERIALIZED) == 0) return gst_pad_push_event(src, event.release());
  session_.Take(std::move(event));
  return TRUE;
}

gboolean EditElement::SrcQuery(GstPad* pad, GstObject* parent, GstQuery* query) {
  if (GST_QUERY_TYPE(query) != GST_QUERY_LATENCY) return gst_pad_query_default(pad, parent, query);
  if (gst_pad_peer_query(sink, query) == FALSE) return FALSE;
  gboolean live = FALSE;
  GstClockTime least = 0;
  GstClockTime most = GST_CLOCK_TIME_NONE;
  gst_query_parse_latency(query, &live, &least, &most);
  GST_OBJECT_LOCK(element_);
  const GstClockTime own = latency_;
  GST_OBJECT_UNLOCK(element_);
  gst_query_set_latency(query, live, least + own, GST_CLOCK_TIME_IS_VALID(most) ? most + own : most);
  return TRUE;
}

// What one pad can have is what the peer of the other one can, but for what changes on the way.
void AnswerCaps(GstPad* pad, GstPad* other, GstQuery* query) {
  GstCaps* filter = nullptr;
  gst_query_parse_caps(query, &filter);
  CapsPtr caps(gst_pad_get_pad_template_caps(pad));
  CapsPtr peer(gst_pad_peer_query_caps(other, nullptr));
  if (peer != nullptr && gst_caps_is_any(peer.get()) == FALSE) {
    peer = qlngst::WithoutChangedFields(std::move(peer));
    caps.reset(gst_caps_intersect_full(peer.get(), caps.get(), GST_CAPS_INTERSECT_FIRST));
  }
  if (filter != nullptr) caps.reset(gst_caps_intersect_full(filter, caps.get(), GST_CAPS_INTERSECT_FIRST));
  gst_query_set_caps_result(query, caps.get());
}

EditElement& InnerOf(gpointer object) { return *static_cast<QlnEdit*>(object)->inner; }

// Nothing is thrown through GStreamer: what is left is memory that has run out.
template <class Result, class Work>
Result Guarded(gpointer object, Result failed, const Work& work) {
  try {
    return work();
  } catch (const std::exception& error) {
    GST_ELEMENT_ERROR(static_cast<GstElement*>(object), RESOURCE, FAILED, ("%s", error.what()), (nullptr));
    return failed;
  }
}

GstFlowReturn Chain(GstPad*, GstObject* parent, GstBuffer* buffer) {
  BufferPtr owned(buffer);
  return Guarded(parent, GST_FLOW_ERROR, [&] { return InnerOf(parent).Chain(std::move(owned)); });
}

gboolean SinkEvent(GstPad*, GstObject* parent, GstEvent* event) {
  EventPtr owned(event);
  return Guarded(parent, gboolean{FALSE}, [&] { return InnerOf(parent).SinkEvent(std::move(owned)); });
}

gboolean SinkQuery(GstPad* pad, GstObject* parent, GstQuery* query) {
  if (GST_QUERY_TYPE(query) != GST_QUERY_CAPS) return gst_pad_query_default(pad, parent, query);
  AnswerCaps(pad, InnerOf(parent).src, query);
  return TRUE;
}

gboolean SrcQuery(GstPad* pad, GstObject* parent, GstQuery* query) {
  EditElement& inner = InnerOf(parent);
  if (GST_QUERY_TYPE(query) != GST_QUERY_CAPS) return inner.SrcQuery(pad, parent, query);
  AnswerCaps(pad, inner.sink, query);
  return TRUE;
}

G_DEFINE_TYPE(QlnEdit, qln_edit, GST_TYPE_ELEMENT)

void SetElementProperty(GObject* object, guint number, const GValue* value, GParamSpec* pspec) {
  if (!InnerOf(object).Set(number, value)) G_OBJECT_WARN_INVALID_PROPERTY_ID(object, number, pspec);
}

void GetElementProperty(GObject* object, guint number, GValue* value, GParamSpec* pspec) {
  if (!InnerOf(object).Get(number, value)) G_OBJECT_WARN_INVALID_PROPERTY_ID(object, number, pspec);
}

GstStateChangeReturn ChangeState(GstElement* element, GstStateChange transition) {
  const GstStateChangeReturn result =
      GST_ELEMENT_CLASS(qln_edit_parent_class)->change_state(element, transition);
  if (transition == GST_STATE_CHANGE_PAUSED_TO_READY) InnerOf(element).Stop();
  return result;
}

void Finalize(GObject* object) {
  delete &InnerOf(object);
  G_OBJECT_CLASS(qln_edit_parent_class)->finalize(object);
}

void qln_edit_class_init(QlnEditClass* klass) {
  GST_DEBUG_CATEGORY_INIT(qln_edit_debug, "qlnedit", 0, "qlnedit");
  auto* const gobjectClass = G_OBJECT_CLASS(klass);
  auto* const elementClass = GST_ELEMENT_CLASS(klass);
  gobjectClass->set_property = SetElementProperty;
  gobjectClass->get_property = GetElementProperty;
  gobjectClass->finalize = Finalize;
  elementClass->change_state = ChangeState;
  qlngst::InstallProperties(gobjectClass);
  gst_element_class_add_static_pad_template(elementClass, &sinkTemplate);
  gst_element_class_add_static_pad_template(elementClass, &srcTemplate);
  gst_element_class_set_static_metadata(
      elementClass, "H.264 and HEVC stream editor", "Filter/Video/Metadata",
      "Changes colour, HDR, timecodes and captions of coded streams without touching a coded slice",
      "qlnutil maintainers <maintainers@example.org>");
}

void qln_edit_init(QlnEdit* self) {
  auto* const element = GST_ELEMENT(self);
  self->inner = new EditElement(element);
  EditElement& inner = *self->inner;
  inner.sink = gst_pad_new_from_static_template(&sinkTemplate, "sink");
  gst_pad_set_chain_function(inner.sink, Chain);
  gst_pad_set_event_function(inner.sink, SinkEvent);
  gst_pad_set_query_function(inner.sink, SinkQuery);
  inner.src = gst_pad_new_from_static_template(&srcTemplate, "src");
  gst_pad_set_query_function(inner.src, SrcQuery);
  gst_element_add_pad(element, inner.sink);
  gst_element_add_pad(element, inner.src);
}

}  // namespace

GType qln_edit_type() { return qln_edit_get_type(); }
