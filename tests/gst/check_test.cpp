// qlncheck: everything passes, and findings are posted.

#include "harness.h"

namespace qlngst::test {
namespace {
using namespace qlnmedia;
using namespace qlnmedia::test;

struct Posted {
  std::string severity, kind, text;
  gint64 picture = -2;
  GstClockTime timestamp = 0;
};

std::vector<Posted> PostedBy(Harness& harness) {
  std::vector<Posted> all;
  while (GstMessage* const message = harness.Message(GST_MESSAGE_ELEMENT)) {
    const GstStructure* const structure = gst_message_get_structure(message);
    EXPECT_TRUE(gst_structure_has_name(structure, "qlncheck"));
    Posted posted;
    posted.severity = gst_structure_get_string(structure, "severity");
    posted.kind = gst_structure_get_string(structure, "kind");
    posted.text = gst_structure_get_string(structure, "text");
    gst_structure_get_int64(structure, "picture", &posted.picture);
    gst_structure_get_clock_time(structure, "timestamp", &posted.timestamp);
    all.push_back(posted);
    gst_message_unref(message);
  }
  return all;
}

Stream Pictures(int lengthBytes = 0) {
  return MakeStream({{.place = 0, .idr = true, .fields = false},
                     {.place = 1, .fields = false},
                     {.place = 2, .fields = false},
                     {.place = 3, .fields = false}},
                    lengthBytes);
}

TEST(Check, EverythingPassesAsTheSameMemory) {
  const Stream stream = Pictures(4);
  Harness harness("qlncheck");
  harness.Caps(kAvc, stream.description.privateData);
  for (const AccessUnit& packet : stream.packets) {
    AccessUnit damaged = packet;
    if (packet.pts != 0) damaged.data.resize(damaged.data.size() / 2);
    GstBuffer* const in = Harness::BufferOf(damaged);
    ASSERT_EQ(gst_harness_push(harness.get(), in), GST_FLOW_OK);
    GstBuffer* const out = gst_harness_try_pull(harness.get());
    EXPECT_EQ(out, in);
    gst_buffer_unref(out);
  }
}

TEST(Check, DamageIsPostedWithItsPictureOnce) {
  const Stream stream = Pictures(4);
  Harness harness("qlncheck");
  harness.Caps(kAvc, stream.description.privateData);
  for (size_t i = 0; i < stream.packets.size(); ++i) {
    AccessUnit packet = stream.packets[i];
    if (i >= 2) packet.data.resize(packet.data.size() - 3);
    harness.Push(packet);
    const std::vector<Posted> posted = PostedBy(harness);
    const auto damage =
        std::count_if(posted.begin(), posted.end(), [](const Posted& one) { return one.kind == "damage"; });
    EXPECT_EQ(damage, i == 2 ? 1 : 0) << i;
    if (i != 2) continue;
    EXPECT_EQ(posted[0].severity, "error");
    EXPECT_EQ(posted[0].picture, 2);
    EXPECT_EQ(posted[0].timestamp, Harness::Time(packet.pts));
  }
}

TEST(Check, CapsAreHeldAgainstTheStream) {
  const Stream stream = Pictures();
  StreamChanges changes;
  changes.colour = ColourCodes{9, 16, 9};
  const EditedStream edited = Edit(stream, changes);
  for (const bool right : {false, true}) {
    Harness harness("qlncheck");
    harness.Caps(
        "video/x-h264, stream-format=byte-stream, alignment=au, framerate=25/1, width=" +
        std::string(right ? "64, height=64, colorimetry=bt2100-pq" : "128, height=64, colorimetry=bt709"));
    harness.Push(edited.packets[0]);
    std::vector<std::string> kinds;
    for (const Posted& posted : PostedBy(harness)) kinds.push_back(posted.kind);
    EXPECT_EQ(std::count(kinds.begin(), kinds.end(), "size"), right ? 0 : 1);
    EXPECT_EQ(std::count(kinds.begin(), kinds.end(), "colour"), right ? 0 : 3);
  }
}

TEST(Check, AStreamWithoutARecordPassesUnchecked) {
  const Stream stream = Pictures(4);
  Harness harness("qlncheck");
  harness.Caps(kAvc);
  EXPECT_EQ(harness.Push(stream.packets[0]), GST_FLOW_OK);
  EXPECT_EQ(harness.Pull()->data, stream.packets[0].data);
  EXPECT_EQ(harness.Warnings().size(), 1u);
}

}  // namespace
}  // namespace qlngst::test
