// Whole pipelines: encoders in front, parsers, decoders and GStreamer's caption extractor behind.

#include <gst/video/gstvideometa.h>
#include <gst/video/gstvideotimecode.h>
#include <gst/video/video-anc.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "harness.h"
#include "support/media.h"

namespace qlngst::test {
namespace {

struct Collected {
  std::vector<Bytes> buffers;
  std::string caps;
};

GstPadProbeReturn Collect(GstPad* pad, GstPadProbeInfo* info, gpointer data) {
  auto& collected = *static_cast<Collected*>(data);
  if ((info->type & GST_PAD_PROBE_TYPE_BUFFER) != 0) {
    collected.buffers.push_back(Harness::Read(gst_pad_probe_info_get_buffer(info)).data);
  } else if (GST_EVENT_TYPE(gst_pad_probe_info_get_event(info)) == GST_EVENT_CAPS) {
    GstCaps* caps = nullptr;
    gst_event_parse_caps(gst_pad_probe_info_get_event(info), &caps);
    gchar* const text = gst_caps_to_string(caps);
    collected.caps = text;
    g_free(text);
  }
  (void)pad;
  return GST_PAD_PROBE_OK;
}

struct Captioner {
  guint next = 0;
};

// "AB" to "YZ" and again, with odd parity, as line 21 has them.
Bytes PairOf(guint number) {
  const auto odd = [](guint character) {
    const bool parity = __builtin_popcount(character) % 2 != 0;
    return static_cast<uint8_t>(parity ? character : character | 0x80);
  };
  return {odd('A' + number % 25), odd('B' + number % 25)};
}

GstPadProbeReturn AddCaptions(GstPad*, GstPadProbeInfo* info, gpointer data) {
  auto& captioner = *static_cast<Captioner*>(data);
  GstBuffer* const buffer = gst_buffer_make_writable(gst_pad_probe_info_get_buffer(info));
  const Bytes pair = PairOf(captioner.next++);
  gst_buffer_add_video_caption_meta(buffer, GST_VIDEO_CAPTION_TYPE_CEA608_RAW, pair.data(), pair.size());
  info->data = buffer;
  return GST_PAD_PROBE_OK;
}

// Runs a pipeline to its end; the text of an error, or nothing.
std::string RunPipeline(
    const std::string& line,
    const std::vector<std::pair<const char*, std::pair<GstPadProbeCallback, gpointer>>>& probes) {
  GError* error = nullptr;
  GstElement* const pipeline = gst_parse_launch(line.c_str(), &error);
  if (error != nullptr) {
    const std::string text = error->message;
    g_error_free(error);
    return text;
  }
  for (const auto& [name, probe] : probes) {
    GstElement* const element = gst_bin_get_by_name(GST_BIN(pipeline), name);
    GstPad* pad = gst_element_get_static_pad(element, "src");
    if (pad == nullptr) pad = gst_element_get_static_pad(element, "sink");
    gst_pad_add_probe(
        pad, static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM),
        probe.first, probe.second, nullptr);
    gst_object_unref(pad);
    gst_object_unref(element);
  }
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  GstBus* const bus = gst_element_get_bus(pipeline);
  GstMessage* const message = gst_bus_timed_pop_filtered(
      bus, 120 * GST_SECOND, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
  std::string text = message == nullptr ? "the pipeline does not end" : "";
  if (message != nullptr && GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
    gst_message_parse_error(message, &error, nullptr);
    text = error->message;
    g_error_free(error);
  }
  if (message != nullptr) gst_message_unref(message);
  gst_element_set_state(pipeline, GST_STATE_NULL);
  gst_object_unref(bus);
  gst_object_unref(pipeline);
  return text;
}

GstPadProbeReturn OnlyBuffers(GstPad* pad, GstPadProbeInfo* info, gpointer data) {
  if ((info->type & GST_PAD_PROBE_TYPE_BUFFER) == 0) return GST_PAD_PROBE_OK;
  return AddCaptions(pad, info, data);
}

constexpr const char* kPictures =
    "videotestsrc num-buffers=30 ! video/x-raw,width=96,height=64,framerate=30000/1001 ! ";

TEST(Pipelines, CaptionsAreReadBackByGStreamerItself) {
  for (const char* const format : {"byte-stream", "avc"}) {
    Captioner captioner;
    Collected captions;
    Collected decoded;
    // Pictures come out of the encoder in coding order, and get the captions that are theirs then.
    const std::string error = RunPipeline(
        std::string(kPictures) +
            "x264enc name=enc bframes=0 key-int-max=8 speed-preset=ultrafast ! video/x-h264,stream-format=" +
            format +
            " ! qlnedit captions=true remove-caption-meta=true colour=bt709 delimiters=true ! h264parse ! "
            "avdec_h264 ! ccextractor name=cc ! fakesink name=video cc.caption ! queue ! fakesink name=text "
            "async=false",
        {{"enc", {OnlyBuffers, &captioner}}, {"text", {Collect, &captions}}, {"video", {Collect, &decoded}}});
    EXPECT_EQ(error, "");
    EXPECT_EQ(decoded.buffers.size(), 30u);
    ASSERT_EQ(captions.buffers.size(), 30u) << captions.caps;
    EXPECT_THAT(captions.caps, testing::HasSubstr("closedcaption/x-cea-708"));
    for (guint i = 0; i < 30; ++i) {
      const Bytes pair = PairOf(i);
      ASSERT_GE(captions.buffers[i].size(), 3u);
      EXPECT_EQ((Bytes{captions.buffers[i][0], captions.buffers[i][1], captions.buffers[i][2]}),
                (Bytes{0xFC, pair[0], pair[1]}));
    }
  }
}

TEST(Pipelines, DecodersShowTheSamePictures) {
  const std::string tail = " ! avdec_h264 ! fakesink name=video";
  const std::string head =
      std::string(kPictures) + "x264enc bframes=3 b-adapt=false threads=1 speed-preset=ultrafast ";
  Collected plain;
  Collected edited;
  EXPECT_EQ(RunPipeline(head + "! h264parse" + tail, {{"video", {Collect, &plain}}}), "");
  EXPECT_EQ(
      RunPipeline(
          head +
              "! qlnedit timecode-source=start timecode=10:00:00;00 colour=bt2020-pq "
              "mastering-display=p3 light-level=1000,400 delimiters=true recovery-points=true ! h264parse" +
              tail,
          {{"video", {Collect, &edited}}}),
      "");
  EXPECT_EQ(plain.buffers.size(), 30u);
  EXPECT_EQ(plain.buffers, edited.buffers);
  EXPECT_THAT(edited.caps, testing::HasSubstr("bt2100-pq"));
}

// The fenced lines of the document; files go into a folder of the test's.
TEST(Pipelines, LinesOfTheDocumentRun) {
  std::ifstream file(std::string(QLN_TEST_DATA) + "/../../docs/gstreamer.md");
  std::string folder = testing::TempDir();
  size_t lines = 0;
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("gst-launch-1.0 ", 0) != 0) continue;
    ++lines;
    const size_t at = line.find("location=");
    std::string out;
    if (at != std::string::npos) {
      out = folder + "/" + line.substr(at + 9);
      line.replace(at + 9, std::string::npos, out);
    }
    const qln::test::CommandResult result = qln::test::Run(
        "GST_REGISTRY=" QLN_GST_REGISTRY ".tool GST_PLUGIN_PATH=$(dirname " QLN_GST_PLUGIN ") " + line, 120);
    EXPECT_EQ(result.exitCode, 0) << line << "\n" << result.output;
    if (out.empty()) continue;
    const std::string said =
        qln::test::Run("ffprobe -v error -show_streams -show_frames -read_intervals %+#1 " + out).output;
    if (out.find("hdr") != std::string::npos) {
      EXPECT_THAT(said, testing::HasSubstr("color_transfer=smpte2084"));
      const std::string trace =
          qln::test::Run("ffmpeg -i " + out +
                         " -c copy -bsf:v trace_headers -f null - 2>&1 | grep -m1 max_content_light")
              .output;
      EXPECT_THAT(trace, testing::HasSubstr("= 1000"));
    } else {
      EXPECT_THAT(said, testing::HasSubstr("10:00:00:00"));
    }
    std::remove(out.c_str());
  }
  EXPECT_EQ(lines, 4u);
}

// GStreamer's own tracer counts what was not given back.
TEST(Pipelines, NothingIsLeaked) {
  const qln::test::CommandResult result =
      qln::test::Run("GST_REGISTRY=" QLN_GST_REGISTRY ".tool GST_PLUGIN_PATH=$(dirname " QLN_GST_PLUGIN
                     ") GST_TRACERS=leaks GST_DEBUG='GST_TRACER:7' gst-launch-1.0 -q videotestsrc "
                     "num-buffers=40 ! timecodestamper ! x264enc "
                     "bframes=2 speed-preset=ultrafast ! qlnedit timecode-source=start colour=bt709 "
                     "delimiters=true ! qlncheck ! h264parse ! "
                     "fakesink 2>&1",
                     120);
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_THAT(result.output, testing::Not(testing::HasSubstr("object-alive, type-name=(string)Gst")))
      << result.output;
}

}  // namespace
}  // namespace qlngst::test
