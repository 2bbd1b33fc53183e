// qlnedit: events, latency, changes while playing, and damage.

#include "harness.h"
#include "units/access_unit.h"

namespace qlngst::test {
namespace {
using namespace qlnmedia;
using namespace qlnmedia::test;

// Groups of I P P P, each of which begins with an IDR picture.
Stream Groups(int groups, int lengthBytes = 0) {
  std::vector<CodedFrame> frames;
  for (int i = 0; i < groups * 4; ++i) frames.push_back({.place = i % 4, .idr = i % 4 == 0, .fields = false});
  return MakeStream(frames, lengthBytes);
}

bool HasDelimiter(const Pulled& pulled) {
  const std::vector<Unit> units = TakeApart(pulled.data, {}).units;
  return !units.empty() && UnitType(Codec::kH264, units.front().bytes) == 9;
}

void CountFrom(Harness& harness, const char* timecode) {
  gst_util_set_object_arg(G_OBJECT(harness.element()), "timecode-source", "start");
  harness.Set("timecode", timecode);
}

std::vector<GstEventType> EventTypes(Harness& harness) {
  std::vector<GstEventType> types;
  while (GstEvent* const event = gst_harness_try_pull_event(harness.get())) {
    types.push_back(GST_EVENT_TYPE(event));
    gst_event_unref(event);
  }
  return types;
}

TEST(EditStream, LatencyIsThatOfTimecodesInPresentationOrder) {
  for (const bool counts : {false, true}) {
    Harness harness;
    if (counts) CountFrom(harness, "10:00:00:00");
    gst_harness_set_upstream_latency(harness.get(), 7 * GST_MSECOND);
    harness.Caps(kByteStream);
    // 32 pictures of 40 ms may come in front of one that is shown earlier.
    EXPECT_EQ(gst_harness_query_latency(harness.get()), (counts ? 32 * 40 + 7 : 7) * GST_MSECOND);
    GstMessage* const message = harness.Message(GST_MESSAGE_LATENCY);
    EXPECT_EQ(message != nullptr, counts);
    if (message != nullptr) gst_message_unref(message);
  }
}

TEST(EditStream, NothingWaitsWithoutATimecode) {
  const Stream stream = Groups(2);
  Harness harness;
  harness.Set("delimiters", TRUE);
  harness.Set("colour", "bt709");
  harness.Caps(kByteStream);
  for (const AccessUnit& packet : stream.packets) {
    harness.Push(packet);
    EXPECT_TRUE(harness.Pull());
    EXPECT_FALSE(harness.Pull());
  }
}

TEST(EditStream, EndOfStreamGivesAllThatWaits) {
  const Stream stream = Groups(3);
  Harness harness;
  CountFrom(harness, "10:00:00:00");
  harness.Caps(kByteStream);
  for (const AccessUnit& packet : stream.packets) harness.Push(packet);
  EXPECT_FALSE(harness.Pull());
  gst_harness_push_event(harness.get(), gst_event_new_eos());
  const std::vector<std::string> timecodes = TimecodesIn(harness.PullAll());
  ASSERT_EQ(timecodes.size(), 12u);
  for (size_t i = 0; i < timecodes.size(); ++i)
    EXPECT_EQ(timecodes[i], "10:00:00:" + std::string(i < 10 ? "0" : "") + std::to_string(i));
  EXPECT_EQ(EventTypes(harness).back(), GST_EVENT_EOS);
}

TEST(EditStream, SerializedEventsKeepTheirPlace) {
  const Stream stream = Groups(10);
  Harness harness;
  CountFrom(harness, "00:00:00:00");
  harness.Caps(kByteStream);
  for (size_t i = 0; i < stream.packets.size(); ++i) {
    if (i == 3) gst_harness_push_event(harness.get(), gst_event_new_gap(0, GST_SECOND));
    harness.Push(stream.packets[i]);
  }
  // 40 pictures less the 32 that wait: the gap is out, and stands behind three of the eight.
  EXPECT_EQ(harness.PullAll().size(), 8u);
  EXPECT_EQ(EventTypes(harness).back(), GST_EVENT_GAP);
  Harness early;
  CountFrom(early, "00:00:00:00");
  early.Caps(kByteStream);
  early.Push(stream.packets[0]);
  gst_harness_push_event(early.get(), gst_event_new_gap(0, GST_SECOND));
  EXPECT_EQ(EventTypes(early).back(), GST_EVENT_SEGMENT);
  gst_harness_push_event(early.get(), gst_event_new_eos());
  EXPECT_EQ(EventTypes(early), (std::vector<GstEventType>{GST_EVENT_GAP, GST_EVENT_EOS}));
}

TEST(EditStream, FlushesForgetWhatWaits) {
  const Stream stream = Groups(2);
  Harness harness;
  CountFrom(harness, "01:00:00:00");
  harness.Caps(kByteStream);
  for (const AccessUnit& packet : stream.packets) harness.Push(packet);
  gst_harness_push_event(harness.get(), gst_event_new_flush_start());
  gst_harness_push_event(harness.get(), gst_event_new_flush_stop(TRUE));
  GstSegment segment;
  gst_segment_init(&segment, GST_FORMAT_TIME);
  gst_harness_push_event(harness.get(), gst_event_new_segment(&segment));
  EXPECT_FALSE(harness.Pull());
  for (size_t i = 4; i < 8; ++i) harness.Push(stream.packets[i]);
  gst_harness_push_event(harness.get(), gst_event_new_eos());
  const std::vector<Pulled> pulled = harness.PullAll();
  ASSERT_EQ(pulled.size(), 4u);
  EXPECT_EQ(TimecodesIn(pulled).front(), "01:00:00:00");
}

TEST(EditStream, NewCapsBeginAnewAndGoOnCounting) {
  const Stream stream = Groups(2, 4);
  Harness harness;
  CountFrom(harness, "01:00:00:00");
  harness.Set("colour", "bt709");
  harness.Caps(kAvc, stream.description.privateData);
  for (size_t i = 0; i < 4; ++i) harness.Push(stream.packets[i]);
  EXPECT_FALSE(harness.Pull());
  harness.Caps(kAvc + ", pixel-aspect-ratio=4/3", stream.description.privateData);
  EXPECT_EQ(harness.PullAll().size(), 4u);
  EXPECT_THAT(harness.OutputCaps(), testing::HasSubstr("4/3"));
  EXPECT_NE(harness.OutputCodecData(), stream.description.privateData);
  for (size_t i = 4; i < 8; ++i) harness.Push(stream.packets[i]);
  gst_harness_push_event(harness.get(), gst_event_new_eos());
  Stream edited;
  edited.description = stream.description;
  edited.description.privateData = harness.OutputCodecData();
  for (const Pulled& pulled : harness.PullAll()) edited.packets.push_back({pulled.data, 0, 0, false});
  EXPECT_EQ(TimecodesOf(edited).at(0), std::vector<std::string>{"01:00:00:04"});
}

TEST(EditStream, ChangesTakeEffectWhereDecodingCanStart) {
  const Stream stream = Groups(3);
  Harness harness;
  harness.Caps(kByteStream);
  for (size_t i = 0; i < stream.packets.size(); ++i) {
    if (i == 2) {
      harness.Set("delimiters", TRUE);
      harness.Set("colour", "bt2020-hlg");
    }
    harness.Push(stream.packets[i]);
    const std::optional<Pulled> pulled = harness.Pull();
    ASSERT_TRUE(pulled);
    EXPECT_EQ(HasDelimiter(*pulled), i >= 4) << i;
    EXPECT_EQ(harness.OutputField("colorimetry"), i >= 4 ? "bt2100-hlg" : "");
  }
}

TEST(EditStream, CountingGoesOnThroughChanges) {
  const Stream stream = Groups(3);
  Harness harness;
  CountFrom(harness, "10:00:00:00");
  harness.Caps(kByteStream);
  for (size_t i = 0; i < stream.packets.size(); ++i) {
    if (i == 6) harness.Set("delimiters", TRUE);
    harness.Push(stream.packets[i]);
  }
  EXPECT_EQ(harness.PullAll().size(), 8u);  // the editor in front of the change has given all
  gst_harness_push_event(harness.get(), gst_event_new_eos());
  const std::vector<Pulled> rest = harness.PullAll();
  ASSERT_EQ(rest.size(), 4u);
  EXPECT_TRUE(HasDelimiter(rest[0]));
  EXPECT_EQ(TimecodesIn(rest),
            (std::vector<std::string>{"10:00:00:08", "10:00:00:09", "10:00:00:10", "10:00:00:11"}));
}

TEST(EditStream, WhatIsRefusedWhilePlayingLeavesTheOldSettings) {
  const Stream stream = Groups(3);
  Harness harness;
  harness.Set("delimiters", TRUE);
  harness.Caps(kByteStream);
  for (size_t i = 0; i < stream.packets.size(); ++i) {
    if (i == 2) harness.Set("light-level", "much");
    harness.Push(stream.packets[i]);
    EXPECT_TRUE(HasDelimiter(*harness.Pull()));
  }
  EXPECT_EQ(harness.Warnings().size(), 1u);
  EXPECT_TRUE(harness.Errors().empty());
}

TEST(EditStream, SetsThatCameOnceServeALaterStart) {
  Stream stream = Groups(2);
  std::vector<Unit> units = UnitsOf(stream.packets[4].data, 0);
  std::erase_if(units, [](const Unit& unit) {
    return IsParameterSet(Codec::kH264, UnitType(Codec::kH264, unit.bytes));
  });
  stream.packets[4].data = Framed(units, 0);
  Harness harness;
  CountFrom(harness, "10:00:00:00");
  harness.Caps(kByteStream);
  for (size_t i = 0; i < 8; ++i) {
    if (i == 2) harness.Set("delimiters", TRUE);
    harness.Push(stream.packets[i]);
  }
  gst_harness_push_event(harness.get(), gst_event_new_eos());
  EXPECT_EQ(harness.PullAll().size(), 8u);
  EXPECT_TRUE(harness.Warnings().empty());
}

TEST(EditStream, DamagePassesAsItCameAndIsReported) {
  const Stream stream = Groups(3, 4);
  for (const bool counts : {false, true}) {
    Harness harness;
    if (counts) CountFrom(harness, "10:00:00:00");
    harness.Set("delimiters", TRUE);
    harness.Caps(kAvc, stream.description.privateData);
    std::vector<Bytes> in;
    for (size_t i = 0; i < stream.packets.size(); ++i) {
      AccessUnit packet = stream.packets[i];
      if (i == 5) packet.data.resize(packet.data.size() / 2);
      in.push_back(packet.data);
      EXPECT_EQ(harness.Push(packet), GST_FLOW_OK);
    }
    gst_harness_push_event(harness.get(), gst_event_new_eos());
    const std::vector<Pulled> pulled = harness.PullAll();
    ASSERT_EQ(pulled.size(), 12u);
    for (size_t i = 0; i < 12; ++i) {
      // With timecodes all that waited passes as it came.
      const bool edited = i >= 8 || (!counts && i < 5);
      EXPECT_EQ(pulled[i].data != in[i], edited) << i;
    }
    GstMessage* const message = harness.Message(GST_MESSAGE_WARNING);
    ASSERT_NE(message, nullptr);
    const GstStructure* details = nullptr;
    gst_message_parse_warning_details(message, &details);
    guint64 picture = 0;
    ASSERT_TRUE(gst_structure_get_uint64(details, "picture", &picture));
    EXPECT_EQ(picture, 5u);
    gst_message_unref(message);
    EXPECT_TRUE(harness.Warnings().empty());
    if (!counts) continue;
    Stream edited;
    edited.description = stream.description;
    edited.description.privateData = harness.OutputCodecData();
    for (size_t i = 8; i < 12; ++i) edited.packets.push_back({pulled[i].data, 0, 0, false});
    EXPECT_EQ(TimecodesOf(edited).at(0), std::vector<std::string>{"10:00:00:08"});
  }
}

TEST(EditStream, NoBytesMakeItFall) {
  const Stream stream = Groups(2);
  for (const char* const caps : {"h264", "h265"}) {
    for (size_t cut = 0; cut < stream.packets[0].data.size(); cut += 3) {
      Harness harness;
      CountFrom(harness, "10:00:00:00");
      harness.Set("delimiters", TRUE);
      harness.Set("colour", "bt709");
      harness.Set("replace-captions", TRUE);
      harness.Caps("video/x-" + std::string(caps) +
                   ", stream-format=byte-stream, alignment=au, framerate=25/1");
      const Bytes& whole = stream.packets[0].data;
      harness.Push(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut)), 0, true);
      harness.Push(stream.packets[1]);
      gst_harness_push_event(harness.get(), gst_event_new_eos());
      EXPECT_EQ(harness.PullAll().size(), 2u);
    }
  }
}

TEST(EditStream, DownstreamEndsTheFlow) {
  const Stream stream = Groups(1);
  Harness harness;
  harness.Caps(kByteStream);
  GstHarness* const inner = harness.get();
  gst_pad_set_active(inner->sinkpad, FALSE);
  EXPECT_EQ(harness.Push(stream.packets[0]), GST_FLOW_FLUSHING);
  gst_pad_set_active(inner->sinkpad, TRUE);
}

TEST(EditStream, TimecodesTakeARate) {
  for (const char* const source : {"start", "meta", "running-time"}) {
    Harness harness;
    gst_util_set_object_arg(G_OBJECT(harness.element()), "timecode-source", source);
    harness.Caps("video/x-h264, stream-format=byte-stream, alignment=au");
    EXPECT_EQ(harness.Push(Groups(1).packets[0]), GST_FLOW_NOT_NEGOTIATED);
    const std::vector<std::string> errors = harness.Errors();
    ASSERT_EQ(errors.size(), 1u) << source;
    EXPECT_THAT(errors[0], testing::HasSubstr("framerate"));
  }
}

}  // namespace
}  // namespace qlngst::test
