// The element qlncheck: everything passes through as it comes, and what the engine's checker finds is posted.

#include <gst/base/gstbasetransform.h>
#include <gst/gst.h>
#include <gst/video/video-hdr.h>
#include <gst/video/video.h>

#include <exception>
#include <memory>
#include <optional>
#include <string>

#include "elements.h"
#include "format.h"
#include "handles.h"
#include "qlnmedia/stream_check.h"

namespace {

struct Checking {
  std::optional<qlngst::StreamFormat> format;
  std::unique_ptr<qlnmedia::StreamCheck> check;
};

struct QlnCheck {
  GstBaseTransform base;
  Checking* inner;
};
struct QlnCheckClass {
  GstBaseTransformClass parent;
};

G_DEFINE_TYPE(QlnCheck, qln_check, GST_TYPE_BASE_TRANSFORM)

GstStaticPadTemplate sinkTemplate =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS(QLN_CODED_VIDEO));
GstStaticPadTemplate srcTemplate =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS(QLN_CODED_VIDEO));

QlnCheck* Self(gpointer object) { return static_cast<QlnCheck*>(object); }

uint8_t Code(guint iso) { return static_cast<uint8_t>(iso); }

// What caps say of the pictures.
qlnmedia::SaidOfPictures SaidBy(GstCaps* caps) {
  qlnmedia::SaidOfPictures said;
  const GstStructure* const structure = gst_caps_get_structure(caps, 0);
  GstVideoColorimetry colorimetry{};
  const gchar* const text = gst_structure_get_string(structure, "colorimetry");
  if (text != nullptr && gst_video_colorimetry_from_string(&colorimetry, text) != FALSE) {
    said.colour = qlnmedia::ColourCodes{Code(gst_video_color_primaries_to_iso(colorimetry.primaries)),
                                        Code(gst_video_transfer_function_to_iso(colorimetry.transfer)),
                                        Code(gst_video_color_matrix_to_iso(colorimetry.matrix))};
    if (colorimetry.range != GST_VIDEO_COLOR_RANGE_UNKNOWN)
      said.fullRange = colorimetry.range == GST_VIDEO_COLOR_RANGE_0_255;
  }
  gint width = 0;
  gint height = 0;
  if (gst_structure_get_int(structure, "width", &width) != FALSE && width > 0)
    said.width = static_cast<uint32_t>(width);
  if (gst_structure_get_int(structure, "height", &height) != FALSE && height > 0)
    said.height = static_cast<uint32_t>(height);
  gint across = 0;
  gint down = 0;
  if (gst_structure_get_fraction(structure, "pixel-aspect-ratio", &across, &down) != FALSE && across > 0)
    said.sampleAspect = {static_cast<uint32_t>(across), static_cast<uint32_t>(down)};
  GstVideoMasteringDisplayInfo display{};
  if (gst_video_mastering_display_info_from_caps(&display, caps) != FALSE) {
    const auto point = [](const GstVideoMasteringDisplayInfoCoordinates& from) {
      return qlnmedia::MasteringDisplay::Point{from.x, from.y};
    };
    said.mastering = qlnmedia::MasteringDisplay{
        point(display.display_primaries[0]),     point(display.display_primaries[1]),
        point(display.display_primaries[2]),     point(display.white_point),
        display.max_display_mastering_luminance, display.min_display_mastering_luminance};
  }
  GstVideoContentLightLevel level{};
  if (gst_video_content_light_level_from_caps(&level, caps) != FALSE)
    said.lightLevel =
        qlnmedia::LightLevel{level.max_content_light_level, level.max_frame_average_light_level};
  return said;
}

// Element messages of the name "qlncheck", one for each finding.
void PostFindings(QlnCheck* self, GstClockTime pts) {
  for (const qlnmedia::Finding& finding : self->inner->check->NewFindings()) {
    GstClockTime running = GST_CLOCK_TIME_NONE;
    const GstSegment& segment = self->base.segment;
    if (GST_CLOCK_TIME_IS_VALID(pts) && segment.format == GST_FORMAT_TIME)
      running = gst_segment_to_running_time(&segment, GST_FORMAT_TIME, pts);
    GstStructure* const structure =
        gst_structure_new("qlncheck", "severity", G_TYPE_STRING, qlnmedia::SeverityWord(finding.severity),
                          "kind", G_TYPE_STRING, qlnmedia::FindingWord(finding.kind), "text", G_TYPE_STRING,
                          finding.text.c_str(), "picture", G_TYPE_INT64, gint64{finding.frame}, "timestamp",
                          GST_TYPE_CLOCK_TIME, pts, "running-time", GST_TYPE_CLOCK_TIME, running, nullptr);
    gst_element_post_message(GST_ELEMENT(self), gst_message_new_element(GST_OBJECT(self), structure));
  }
}

// Ends what was checked so far.
void Finish(QlnCheck* self) {
  if (self->inner->check == nullptr) return;
  self->inner->check->Finish();
  PostFindings(self, GST_CLOCK_TIME_NONE);
  self->inner->check.reset();
}

// Checking ends where it cannot go on; the stream does not.
template <class Work>
void Try(QlnCheck* self, const Work& work) {
  try {
    work();
  } catch (const std::exception& error) {
    self->inner->check.reset();
    GST_ELEMENT_WARNING(self, STREAM, FAILED, ("%s", error.what()), (nullptr));
  }
}

gboolean SetCaps(GstBaseTransform* base, GstCaps* caps, GstCaps*) {
  QlnCheck* const self = Self(base);
  Try(self, [&] {
    Finish(self);
    self->inner->format.reset();
    self->inner->format = qlngst::FormatOf(caps);
    self->inner->check =
        std::make_unique<qlnmedia::StreamCheck>(self->inner->format->description, SaidBy(caps));
    PostFindings(self, GST_CLOCK_TIME_NONE);
  });
  return TRUE;
}

GstFlowReturn Look(GstBaseTransform* base, GstBuffer* buffer) {
  QlnCheck* const self = Self(base);
  if (self->inner->check == nullptr || gst_buffer_get_size(buffer) == 0) return GST_FLOW_OK;
  Try(self, [&] {
    const qlngst::Mapped bytes(buffer);
    const auto time = [](GstClockTime of) {
      return GST_CLOCK_TIME_IS_VALID(of) ? static_cast<int64_t>(of) : qlnmedia::kNoTime;
    };
    self->inner->check->Take({{bytes.data(), bytes.size()},
                              time(GST_BUFFER_PTS(buffer)),
                              time(GST_BUFFER_DTS(buffer)),
                              !GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT)});
    PostFindings(self, GST_BUFFER_PTS(buffer));
  });
  return GST_FLOW_OK;
}

gboolean SinkEvent(GstBaseTransform* base, GstEvent* event) {
  QlnCheck* const self = Self(base);
  if (GST_EVENT_TYPE(event) == GST_EVENT_EOS) Try(self, [&] { Finish(self); });
  // What follows stands for itself: nothing that is missing is missing.
  if (GST_EVENT_TYPE(event) == GST_EVENT_FLUSH_STOP && self->inner->format) {
    GstCaps* const caps = gst_caps_ref(self->inner->format->caps.get());
    self->inner->check.reset();
    SetCaps(base, caps, caps);
    gst_caps_unref(caps);
  }
  return GST_BASE_TRANSFORM_CLASS(qln_check_parent_class)->sink_event(base, event);
}

gboolean Stop(GstBaseTransform* base) {
  *Self(base)->inner = {};
  return TRUE;
}

void Finalize(GObject* object) {
  delete Self(object)->inner;
  G_OBJECT_CLASS(qln_check_parent_class)->finalize(object);
}

void qln_check_class_init(QlnCheckClass* klass) {
  auto* const elementClass = GST_ELEMENT_CLASS(klass);
  auto* const baseClass = GST_BASE_TRANSFORM_CLASS(klass);
  G_OBJECT_CLASS(klass)->finalize = Finalize;
  baseClass->set_caps = SetCaps;
  baseClass->transform_ip = Look;
  baseClass->sink_event = SinkEvent;
  baseClass->stop = Stop;
  gst_element_class_add_static_pad_template(elementClass, &sinkTemplate);
  gst_element_class_add_static_pad_template(elementClass, &srcTemplate);
  gst_element_class_set_static_metadata(
      elementClass, "H.264 and HEVC stream checker", "Filter/Analyzer/Video",
      "Passes coded streams through and posts where they and their caps disagree or break their rules",
      "qlnutil maintainers <maintainers@example.org>");
}

void qln_check_init(QlnCheck* self) {
  self->inner = new Checking;
  // Buffers are looked at and never written to.
  gst_base_transform_set_in_place(GST_BASE_TRANSFORM(self), TRUE);
  gst_base_transform_set_passthrough(GST_BASE_TRANSFORM(self), TRUE);
}

}  // namespace

GType qln_check_type() { return qln_check_get_type(); }
