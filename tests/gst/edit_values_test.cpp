// qlnedit: colour, range, HDR, delimiters and recovery points, and the caps that follow them.

#include <gst/video/video-hdr.h>

#include "engine/small_streams.h"
#include "harness.h"
#include "hdr/stream_hdr.h"
#include "units/access_unit.h"

namespace qlngst::test {
namespace {
using namespace qlnmedia;
using namespace qlnmedia::test;

struct Form {
  const char* name;
  int lengthBytes;
  bool hevc;
};
constexpr Form kForms[] = {{"byte-stream", 0, false}, {"avc", 4, false}, {"avc3", 4, false},
                           {"byte-stream", 0, true},  {"hvc1", 4, true}, {"hev1", 4, true}};

Codec CodecOf(const Form& form) { return form.hevc ? Codec::kHevc : Codec::kH264; }

std::string CapsOf(const Form& form, const std::string& more = {}) {
  return std::string(form.hevc ? "video/x-h265" : "video/x-h264") + ", stream-format=" + form.name +
         ", alignment=au, framerate=25/1, width=64, height=64" + more;
}

// The body of an hvcC box (ISO/IEC 14496-15 clause 8.3.3.1) with a set of each kind.
Bytes SmallHvcc() {
  Bytes body = {1, 1, 0x40, 0, 0, 0, 0, 0, 0, 0, 0, 0, 93, 0xF0, 0, 0xFC, 0xFD, 0xF8, 0xF8, 0, 0, 0x0F, 3};
  int type = 32;
  for (const Bytes& unit : {HevcVps(), HevcSps(), HevcPps()}) {
    body.insert(body.end(), {static_cast<uint8_t>(0x80 | type++), 0, 1,
                             static_cast<uint8_t>(unit.size() >> 8), static_cast<uint8_t>(unit.size())});
    body.insert(body.end(), unit.begin(), unit.end());
  }
  return body;
}

// Two pictures, the first an IDR one with its sets in front; of H.264 all are intra pictures.
Stream Small(const Form& form) {
  if (!form.hevc)
    return MakeStream({{.place = 0, .idr = true, .fields = false}, {.place = 1, .fields = false}},
                      form.lengthBytes);
  Stream stream;
  stream.description.codec = VideoCodec::kHevc;
  if (form.lengthBytes != 0) stream.description.privateData = SmallHvcc();
  stream.packets.push_back(
      {PacketOf({HevcVps(), HevcSps(), HevcPps(), HevcSlice(19, 0)}, form.lengthBytes), 0, 0, true});
  stream.packets.push_back({PacketOf({HevcSlice(1, 1, 0)}, form.lengthBytes), 3600, 3600, false});
  return stream;
}

std::vector<Unit> UnitsIn(const Pulled& pulled, const Form& form) {
  return TakeApart(pulled.data, Framing{form.lengthBytes}).units;
}

std::optional<SpsFacts> SpsIn(const std::vector<Unit>& units, Codec codec) {
  for (const Unit& unit : units) {
    if (IsSps(codec, UnitType(codec, unit.bytes))) return ReadSpsFacts(codec, unit.bytes);
  }
  return {};
}

class EachForm : public testing::TestWithParam<Form> {};

INSTANTIATE_TEST_SUITE_P(Edit, EachForm, testing::ValuesIn(kForms), [](const auto& form) {
  std::string name = std::string(form.param.hevc ? "Hevc_" : "H264_") + form.param.name;
  std::erase(name, '-');
  return name;
});

TEST_P(EachForm, ColourGoesIntoSetsAndCaps) {
  const Form form = GetParam();
  const Stream stream = Small(form);
  Harness harness;
  harness.Set("colour", "bt2020-pq");
  harness.Caps(CapsOf(form, ", colorimetry=bt709"), stream.description.privateData);
  harness.Push(stream.packets[0]);
  // GStreamer's own name for primaries 9, transfer 16, matrix 9 and limited range.
  EXPECT_EQ(harness.OutputField("colorimetry"), "bt2100-pq");
  const std::optional<Pulled> pulled = harness.Pull();
  ASSERT_TRUE(pulled);
  const std::optional<SpsFacts> sps = SpsIn(UnitsIn(*pulled, form), CodecOf(form));
  ASSERT_TRUE(sps);
  EXPECT_EQ(sps->colour, (ColourCodes{9, 16, 9}));
  if (form.lengthBytes == 0) return;
  const ConfigRecord record = ReadConfigRecord(CodecOf(form), harness.OutputCodecData());
  std::vector<Unit> sets;
  for (const Bytes& unit : record.units()) sets.push_back({.bytes = unit});
  EXPECT_EQ(SpsIn(sets, CodecOf(form))->colour, (ColourCodes{9, 16, 9}));
}

TEST_P(EachForm, NothingToChangeIsTheSameMemory) {
  const Form form = GetParam();
  const Stream stream = Small(form);
  Harness harness;
  harness.Caps(CapsOf(form), stream.description.privateData);
  for (const AccessUnit& packet : stream.packets) {
    GstBuffer* const in = Harness::BufferOf(packet);
    ASSERT_EQ(gst_harness_push(harness.get(), in), GST_FLOW_OK);
    GstBuffer* const out = gst_harness_try_pull(harness.get());
    EXPECT_EQ(out, in);
    gst_buffer_unref(out);
  }
  EXPECT_TRUE(harness.Warnings().empty());
}

TEST_P(EachForm, SlicesKeepTheirBytes) {
  const Form form = GetParam();
  const Stream stream = Small(form);
  Harness harness;
  harness.Set("colour", "bt709");
  harness.Set("delimiters", TRUE);
  harness.Set("mastering-display", "p3");
  harness.Caps(CapsOf(form), stream.description.privateData);
  for (const AccessUnit& packet : stream.packets) {
    harness.Push(packet);
    const std::optional<Pulled> pulled = harness.Pull();
    ASSERT_TRUE(pulled);
    const Codec codec = CodecOf(form);
    const auto slices = [codec](const std::vector<Unit>& units) {
      std::vector<Bytes> bytes;
      for (const Unit& unit : units) {
        if (IsSlice(codec, UnitType(codec, unit.bytes))) bytes.push_back(unit.bytes);
      }
      return bytes;
    };
    const std::vector<Unit> units = UnitsIn(*pulled, form);
    EXPECT_EQ(slices(units), slices(TakeApart(packet.data, Framing{form.lengthBytes}).units));
    EXPECT_TRUE(IsDelimiter(codec, UnitType(codec, units.front().bytes)));
    EXPECT_EQ(pulled->pts, Harness::Time(packet.pts));
    EXPECT_EQ(pulled->dts, Harness::Time(packet.dts));
    EXPECT_EQ((pulled->flags & GST_BUFFER_FLAG_DELTA_UNIT) == 0, packet.key);
  }
}

TEST_P(EachForm, HdrGoesIntoEntriesAndCaps) {
  const Form form = GetParam();
  const Stream stream = Small(form);
  Harness harness;
  harness.Set("mastering-display", "G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)");
  harness.Set("light-level", "1000,400");
  harness.Caps(CapsOf(form, ", content-light-level=(string)1:1"), stream.description.privateData);
  for (const AccessUnit& packet : stream.packets) harness.Push(packet);
  GstCaps* const caps = gst_caps_from_string(harness.OutputCaps().c_str());
  GstVideoMasteringDisplayInfo display{};
  ASSERT_TRUE(gst_video_mastering_display_info_from_caps(&display, caps));
  EXPECT_EQ(display.display_primaries[0].x, 34000);  // red comes first in caps
  EXPECT_EQ(display.display_primaries[1].y, 34500);
  EXPECT_EQ(display.display_primaries[2].x, 7500);
  EXPECT_EQ(display.white_point.x, 15635);
  EXPECT_EQ(display.max_display_mastering_luminance, 10000000u);
  EXPECT_EQ(display.min_display_mastering_luminance, 1u);
  GstVideoContentLightLevel level{};
  ASSERT_TRUE(gst_video_content_light_level_from_caps(&level, caps));
  EXPECT_EQ(level.max_content_light_level, 1000);
  EXPECT_EQ(level.max_frame_average_light_level, 400);
  gst_caps_unref(caps);
  const std::vector<Pulled> pulled = harness.PullAll();
  ASSERT_EQ(pulled.size(), 2u);
  const auto types = [&](const Pulled& picture) {
    std::vector<int> found;
    for (const Unit& unit : UnitsIn(picture, form)) {
      if (!IsSei(CodecOf(form), UnitType(CodecOf(form), unit.bytes))) continue;
      for (const SeiMessage& message : ReadSeiMessages(CodecOf(form), unit.bytes))
        found.push_back(message.type);
    }
    return found;
  };
  // ITU-T H.264 table of clause D.1.1: mastering_display_colour_volume, content_light_level_info.
  EXPECT_EQ(types(pulled[0]), (std::vector<int>{137, 144}));
  EXPECT_TRUE(types(pulled[1]).empty());
}

TEST(EditValues, RangeFollowsInCaps) {
  const Form form = kForms[1];
  const Stream stream = Small(form);
  for (const bool full : {false, true}) {
    Harness harness;
    gst_util_set_object_arg(G_OBJECT(harness.element()), "range", full ? "full" : "limited");
    harness.Caps(CapsOf(form, ", colorimetry=bt709"), stream.description.privateData);
    harness.Push(stream.packets[0]);
    EXPECT_EQ(harness.OutputField("colorimetry"), full ? "1:3:5:1" : "bt709");
    const std::optional<SpsFacts> sps = SpsIn(UnitsIn(*harness.Pull(), form), Codec::kH264);
    EXPECT_EQ(sps->fullRange, full);
  }
}

TEST(EditValues, CapsStayWhereNothingChanges) {
  const Form form = kForms[1];
  const Stream stream = Small(form);
  Harness harness;
  harness.Set("delimiters", TRUE);
  const std::string more = ", colorimetry=bt709, profile=high, level=4.1, pixel-aspect-ratio=4/3";
  harness.Caps(CapsOf(form, more), stream.description.privateData);
  EXPECT_EQ(harness.OutputField("profile"), "high");
  EXPECT_EQ(harness.OutputField("colorimetry"), "bt709");
  EXPECT_EQ(harness.OutputCodecData(), stream.description.privateData);
}

TEST(EditValues, ARecoveryPointMakesAnEntry) {
  // Sets in front of a picture of intra slices say that decoding can start there.
  Stream stream = MakeStream({{.place = 0, .idr = true, .fields = false}, {.place = 1, .fields = false}}, 0);
  std::vector<Unit> units = UnitsOf(stream.packets[0].data, 0);
  std::erase_if(units,
                [](const Unit& unit) { return IsSlice(Codec::kH264, UnitType(Codec::kH264, unit.bytes)); });
  for (const Unit& unit : UnitsOf(stream.packets[1].data, 0)) units.push_back(unit);
  stream.packets[1].data = Framed(units, 0);
  Harness harness;
  harness.Set("recovery-points", TRUE);
  harness.Caps(kByteStream);
  for (const AccessUnit& packet : stream.packets) harness.Push(packet);
  const std::vector<Pulled> pulled = harness.PullAll();
  ASSERT_EQ(pulled.size(), 2u);
  EXPECT_EQ(pulled[0].data, stream.packets[0].data);
  EXPECT_TRUE(IsRandomAccess(Codec::kH264, TakeApart(pulled[1].data, {}).units));
  EXPECT_EQ(pulled[1].flags & GST_BUFFER_FLAG_DELTA_UNIT, 0u);
}

TEST(EditValues, OtherMetasAndFlagsStay) {
  const Stream stream = Small(kForms[0]);
  Harness harness;
  harness.Set("colour", "bt709");
  harness.Caps(kByteStream);
  GstBuffer* const in = Harness::BufferOf(stream.packets[0]);
  GST_BUFFER_DURATION(in) = 40 * GST_MSECOND;
  GST_BUFFER_FLAG_SET(in, GST_BUFFER_FLAG_MARKER);
  GST_BUFFER_FLAG_SET(in, GST_BUFFER_FLAG_DISCONT);
  GstCaps* const reference = gst_caps_from_string("timestamp/x-unix");
  gst_buffer_add_reference_timestamp_meta(in, reference, 77, 5);
  ASSERT_EQ(gst_harness_push(harness.get(), in), GST_FLOW_OK);
  GstBuffer* const out = gst_harness_try_pull(harness.get());
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(GST_BUFFER_DURATION(out), 40 * GST_MSECOND);
  EXPECT_TRUE(GST_BUFFER_FLAG_IS_SET(out, GST_BUFFER_FLAG_MARKER));
  EXPECT_TRUE(GST_BUFFER_FLAG_IS_SET(out, GST_BUFFER_FLAG_DISCONT));
  const GstReferenceTimestampMeta* const meta = gst_buffer_get_reference_timestamp_meta(out, reference);
  ASSERT_NE(meta, nullptr);
  EXPECT_EQ(meta->timestamp, 77u);
  gst_caps_unref(reference);
  gst_buffer_unref(out);
}

TEST(EditValues, WhatSaysNothingIsRefusedAtTheStart) {
  const struct {
    const char* property;
    const char* value;
    const char* reason;
  } kRefused[] = {
      {"colour", "purple", "purple"}, {"mastering-display", "p4", "p4"}, {"light-level", "bright", "bright"}};
  const Stream stream = Small(kForms[0]);
  for (const auto& refused : kRefused) {
    Harness harness;
    harness.Set(refused.property, refused.value);
    harness.Caps(kByteStream);
    EXPECT_EQ(harness.Push(stream.packets[0]), GST_FLOW_NOT_NEGOTIATED);
    const std::vector<std::string> errors = harness.Errors();
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_THAT(errors[0], testing::HasSubstr(refused.reason));
    EXPECT_FALSE(harness.Pull());
  }
}

TEST(EditValues, LengthsTakeARecord) {
  const Stream stream = Small(kForms[1]);
  for (const Bytes& record :
       {Bytes{}, Bytes{1, 77, 0},
        Bytes(stream.description.privateData.begin(), stream.description.privateData.begin() + 9)}) {
    Harness harness;
    harness.Set("colour", "bt709");
    harness.Caps(kAvc, record);
    EXPECT_EQ(harness.Push(stream.packets[0]), GST_FLOW_NOT_NEGOTIATED);
    EXPECT_EQ(harness.Errors().size(), 1u);
  }
}

TEST(EditValues, PropertiesComeBackAsTheyWereSet) {
  Harness harness;
  harness.Set("colour", "bt709");
  harness.Set("timecode", "10:00:00:00");
  harness.Set("captions", TRUE);
  gst_util_set_object_arg(G_OBJECT(harness.element()), "timecode-source", "running-time");
  gchar* colour = nullptr;
  gchar* timecode = nullptr;
  gboolean captions = FALSE;
  gint source = 0;
  g_object_get(harness.element(), "colour", &colour, "timecode", &timecode, "captions", &captions,
               "timecode-source", &source, nullptr);
  EXPECT_STREQ(colour, "bt709");
  EXPECT_STREQ(timecode, "10:00:00:00");
  EXPECT_TRUE(captions);
  EXPECT_EQ(source, 2);
  g_free(colour);
  g_free(timecode);
}

}  // namespace
}  // namespace qlngst::test
