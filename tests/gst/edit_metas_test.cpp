// qlnedit: timecodes and captions that come with buffers, or with their times.

#include <gst/video/gstvideometa.h>
#include <gst/video/gstvideotimecode.h>
#include <gst/video/video-anc.h>

#include "captions/cdp.h"
#include "harness.h"

namespace qlngst::test {
namespace {
using namespace qlnmedia;
using namespace qlnmedia::test;
using qlnmedia::captions::CaptionPacket;

constexpr GstClockTime kFrame = 40 * GST_MSECOND;

// I P B B: shown 0 3 1 2.
const std::vector<CodedFrame> kReordered = {{.place = 0, .idr = true, .fields = false},
                                            {.place = 3, .fields = false},
                                            {.place = 1, .fields = false, .reference = false},
                                            {.place = 2, .fields = false, .reference = false}};

void TakeTimecodesFrom(Harness& harness, const char* source) {
  gst_util_set_object_arg(G_OBJECT(harness.element()), "timecode-source", source);
}

TEST(EditTimecodes, RunningTimeGivesThemAtOnce) {
  const Stream stream = MakeStream(kReordered, 0);
  Harness harness;
  TakeTimecodesFrom(harness, "running-time");
  harness.Set("timecode", "09:59:59:24");
  harness.Caps(kByteStream);
  EXPECT_EQ(gst_harness_query_latency(harness.get()), 0u);
  for (const AccessUnit& packet : stream.packets) {
    harness.Push(packet);
    EXPECT_EQ(gst_harness_buffers_in_queue(harness.get()), 1u + (&packet - stream.packets.data()));
  }
  EXPECT_EQ(TimecodesIn(harness.PullAll()),
            (std::vector<std::string>{"09:59:59:24", "10:00:00:02", "10:00:00:00", "10:00:00:01"}));
}

TEST(EditTimecodes, RunningTimeIsNotTheTimestamp) {
  const Stream stream = MakeStream(kReordered, 0);
  Harness harness;
  TakeTimecodesFrom(harness, "running-time");
  harness.Caps(kByteStream);
  GstSegment segment;
  gst_segment_init(&segment, GST_FORMAT_TIME);
  segment.start = 3600 * GST_SECOND;
  segment.base = 2 * GST_SECOND;
  gst_harness_push_event(harness.get(), gst_event_new_segment(&segment));
  harness.Push(stream.packets[0].data, segment.start + kFrame, true);
  EXPECT_EQ(TimecodesIn(harness.PullAll()), std::vector<std::string>{"00:00:02:01"});
}

TEST(EditTimecodes, DropFrameLeavesNumbersOut) {
  const Stream stream = MakeStream({{.place = 0, .idr = true, .fields = false}}, 0);
  Harness harness;
  TakeTimecodesFrom(harness, "running-time");
  harness.Set("timecode", "00:00:00;00");
  harness.Caps("video/x-h264, stream-format=byte-stream, alignment=au, framerate=30000/1001");
  // SMPTE ST 12-1: behind 00:00:59;29, frame 1799, comes 00:01:00;02.
  for (const guint64 frame : {1799u, 1800u}) {
    harness.Push(stream.packets[0].data, gst_util_uint64_scale(frame * GST_SECOND, 1001, 30000), true);
  }
  EXPECT_EQ(TimecodesIn(harness.PullAll()), (std::vector<std::string>{"00:00:59;29", "00:01:00;02"}));
}

TEST(EditTimecodes, BothFieldsOfAFrameShareOne) {
  const Stream stream = MakeStream({{.place = 0, .idr = true}, {.place = 1}}, 0, {}, false);
  Harness harness;
  TakeTimecodesFrom(harness, "running-time");
  harness.Caps(kByteStream);
  for (const AccessUnit& packet : stream.packets) harness.Push(packet);
  EXPECT_EQ(TimecodesIn(harness.PullAll()),
            (std::vector<std::string>{"00:00:00:00", "00:00:00:00", "00:00:00:01", "00:00:00:01"}));
}

TEST(EditTimecodes, MetasGiveThem) {
  const Stream stream = MakeStream(kReordered, 0);
  Harness harness;
  TakeTimecodesFrom(harness, "meta");
  harness.Caps(kByteStream);
  for (size_t i = 0; i < stream.packets.size(); ++i) {
    GstBuffer* const buffer = Harness::BufferOf(stream.packets[i]);
    if (i != 2)
      gst_buffer_add_video_time_code_meta_full(buffer, 25, 1, nullptr, GST_VIDEO_TIME_CODE_FLAGS_NONE, 20, 30,
                                               static_cast<guint>(i), 24, 0);
    gst_harness_push(harness.get(), buffer);
  }
  EXPECT_EQ(TimecodesIn(harness.PullAll()),
            (std::vector<std::string>{"20:30:00:24", "20:30:01:24", "", "20:30:03:24"}));
  EXPECT_TRUE(harness.Warnings().empty());
}

TEST(EditTimecodes, AMetaOfAnotherRateIsToldOnce) {
  const Stream stream = MakeStream(kReordered, 0);
  Harness harness;
  TakeTimecodesFrom(harness, "meta");
  harness.Caps(kByteStream);
  for (const AccessUnit& packet : stream.packets) {
    GstBuffer* const buffer = Harness::BufferOf(packet);
    gst_buffer_add_video_time_code_meta_full(buffer, 50, 1, nullptr, GST_VIDEO_TIME_CODE_FLAGS_NONE, 1, 2, 3,
                                             4, 0);
    gst_harness_push(harness.get(), buffer);
  }
  EXPECT_EQ(TimecodesIn(harness.PullAll()), (std::vector<std::string>(4)));
  EXPECT_EQ(harness.Warnings().size(), 1u);
}

struct CaptionForm {
  const char* name;
  GstVideoCaptionType type;
  Bytes data;
  std::vector<Triplet> triplets;  // what the picture then has, padding left out
};

std::vector<CaptionForm> CaptionForms() {
  const std::vector<Triplet> service = {{true, CcType::kField1, 0x94, 0x2C},
                                        {true, CcType::kField2, 0x80, 0x80},
                                        {true, CcType::kServiceStart, 0x02, 0x21},
                                        {true, CcType::kServiceData, 0x41, 0x00}};
  CaptionPacket packet;
  packet.triplets = service;
  const std::vector<Triplet> pair = {{true, CcType::kField1, 0x94, 0x2C}};
  const std::vector<Triplet> both = {{true, CcType::kField1, 0x94, 0x2C},
                                     {true, CcType::kField2, 0x15, 0xAE}};
  return {
      {"cea708_raw",
       GST_VIDEO_CAPTION_TYPE_CEA708_RAW,
       {0xFC, 0x94, 0x2C, 0xFD, 0x80, 0x80, 0xFF, 0x02, 0x21, 0xFE, 0x41, 0x00},
       service},
      {"cea708_cdp", GST_VIDEO_CAPTION_TYPE_CEA708_CDP, captions::WriteCdp(packet), service},
      {"cea608_raw", GST_VIDEO_CAPTION_TYPE_CEA608_RAW, {0x94, 0x2C}, pair},
      {"cea608_s334_1a", GST_VIDEO_CAPTION_TYPE_CEA608_S334_1A, {0x8B, 0x94, 0x2C, 0x0B, 0x15, 0xAE}, both}};
}

std::vector<Triplet> WithoutPadding(std::vector<Triplet> triplets) {
  std::erase(triplets, Triplet{false, CcType::kServiceData, 0, 0});
  return triplets;
}

TEST(EditCaptions, EachFormGoesIntoItsPicture) {
  const Stream stream = MakeStream(kReordered, 4);
  for (const CaptionForm& form : CaptionForms()) {
    Harness harness;
    harness.Set("captions", TRUE);
    harness.Caps(kAvc, stream.description.privateData);
    for (size_t i = 0; i < stream.packets.size(); ++i) {
      GstBuffer* const buffer = Harness::BufferOf(stream.packets[i]);
      if (i != 1) gst_buffer_add_video_caption_meta(buffer, form.type, form.data.data(), form.data.size());
      gst_harness_push(harness.get(), buffer);
      GstBuffer* const out = gst_harness_try_pull(harness.get());
      ASSERT_NE(out, nullptr);
      const auto found = CaptionsOf(VideoCodec::kH264, Harness::Read(out).data, Framing{4});
      ASSERT_EQ(found.has_value(), i != 1) << form.name;
      if (found) {
        EXPECT_EQ(WithoutPadding(*found), form.triplets) << form.name;
        // CTA-708: 600 triplets a second, so that 25 pictures a second have 24 each.
        EXPECT_EQ(found->size(), form.triplets.size() < 3 ? 24u : form.triplets.size());
        EXPECT_NE(gst_buffer_get_video_caption_meta(out), nullptr);
      }
      gst_buffer_unref(out);
    }
    EXPECT_TRUE(harness.Warnings().empty());
  }
}

TEST(EditCaptions, MetasGoWhereTheyAreNotWanted) {
  const Stream stream = MakeStream(kReordered, 0);
  const CaptionForm form = CaptionForms()[0];
  for (const bool put : {false, true}) {
    Harness harness;
    harness.Set("captions", put ? TRUE : FALSE);
    harness.Set("remove-caption-meta", TRUE);
    harness.Caps(kByteStream);
    GstBuffer* const buffer = Harness::BufferOf(stream.packets[0]);
    gst_buffer_add_video_caption_meta(buffer, form.type, form.data.data(), form.data.size());
    gst_harness_push(harness.get(), buffer);
    GstBuffer* const out = gst_harness_try_pull(harness.get());
    EXPECT_EQ(gst_buffer_get_video_caption_meta(out), nullptr);
    EXPECT_EQ(CaptionsOf(VideoCodec::kH264, Harness::Read(out).data, {}).has_value(), put);
    gst_buffer_unref(out);
  }
}

TEST(EditCaptions, WhatIsThereStaysOrIsReplaced) {
  Stream stream = MakeStream(kReordered, 0);
  for (AccessUnit& packet : stream.packets) packet.captions = CaptionAt(9);
  stream.packets = Edit(stream, {}).packets;
  const CaptionForm form = CaptionForms()[0];
  for (const bool replace : {false, true}) {
    Harness harness;
    harness.Set("captions", TRUE);
    harness.Set("replace-captions", replace ? TRUE : FALSE);
    harness.Caps(kByteStream);
    for (const bool own : {true, false}) {
      GstBuffer* const buffer = Harness::BufferOf(stream.packets[0]);
      if (own) gst_buffer_add_video_caption_meta(buffer, form.type, form.data.data(), form.data.size());
      gst_harness_push(harness.get(), buffer);
      const auto found = CaptionsOf(VideoCodec::kH264, harness.Pull()->data, {});
      if (!replace) {
        EXPECT_EQ(found, CaptionAt(9));
      } else {
        EXPECT_EQ(found.value_or(std::vector<Triplet>{}), own ? form.triplets : std::vector<Triplet>{});
      }
    }
  }
}

TEST(EditCaptions, APacketThatIsNoneIsTold) {
  const Stream stream = MakeStream(kReordered, 0);
  const Bytes whole = CaptionForms()[1].data;
  Harness harness;
  harness.Set("captions", TRUE);
  harness.Caps(kByteStream);
  for (size_t size = 1; size < whole.size(); ++size) {
    GstBuffer* const buffer = Harness::BufferOf(stream.packets[0]);
    gst_buffer_add_video_caption_meta(buffer, GST_VIDEO_CAPTION_TYPE_CEA708_CDP, whole.data(), size);
    gst_harness_push(harness.get(), buffer);
    EXPECT_EQ(harness.Pull()->data, stream.packets[0].data);
  }
  EXPECT_EQ(harness.Warnings().size(), 1u);
}

}  // namespace
}  // namespace qlngst::test
