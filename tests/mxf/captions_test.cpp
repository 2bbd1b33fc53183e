// Captions in the coded pictures of MXF, whatever its index says of their order, and beside those of another
// writer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "container/coded_stream.h"
#include "container/media_file.h"
#include "html/stream_recorder.h"
#include "mxf/caption_files.h"
#include "qlnmedia/check.h"
#include "qlnmedia/error.h"
#include "qlnmedia/inspect.h"
#include "qlnmedia/patch.h"
#include "support/field_stream.h"

namespace qln::test {
namespace {

using qlnmedia::CaptionFileKind;
using ::testing::HasSubstr;

// Puts captions of line 21 that show "HELLO" into a stream's pictures.
std::string Captioned(const std::string& in, const std::string& name) {
  const std::string scc = MediaPath("mxf_hello.scc");
  std::ofstream(scc) << "Scenarist_SCC V1.0\n\n"
                        "00:00:00:02\t94ae 94ae 9420 9420 9470 9470 c845 4c4c 4f80 942f 942f\n";
  qlnmedia::PatchOptions options;
  options.in = in;
  options.out = MediaPath(name);
  options.captions = qlnmedia::CaptionOptions{scc, "", false};
  qlnmedia::PatchFile(options);
  return options.out;
}

const char* const kPictures = "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x128:r=30000/1001:d=0.8 ";

// The same pictures in a container whose order is told, and in MXF by ffmpeg: of MPEG-2 its index tells the
// order, of H.264 it does not.
TEST(MxfCaptions, OfPicturesComeInTheirOrder) {
  for (const auto& [name, options, raw] :
       {std::tuple("mpeg2", "-c:v mpeg2video -threads 1 -bf 2 -g 9 ", "m2v"),
        std::tuple("avc",
                   "-c:v libx264 -threads 1 -preset ultrafast -bf 3 -b_strategy 0 -g 12 -pix_fmt yuv420p ",
                   "h264")}) {
    SCOPED_TRACE(name);
    const std::string in =
        MediaFile(std::string("mxf_order.") + raw, std::string(kPictures) + options + "{out}");
    const std::string captioned = Captioned(in, std::string("mxf_order_captions.") + raw);
    const std::string mxf = MediaPath(std::string("mxf_order_") + name + ".mxf");
    ASSERT_EQ(qln::test::Run("ffmpeg -v error -y -r 30000/1001 -i '" + captioned + "' -c copy '" + mxf + "'")
                  .exitCode,
              0);
    EXPECT_EQ(Mcc(mxf), Mcc(captioned));
    const auto services = qlnmedia::ReadFileCaptions(mxf).services;
    ASSERT_EQ(services.size(), 1u);
    ASSERT_EQ(services[0].lines.size(), 1u);
    EXPECT_EQ(services[0].lines[0].text, "HELLO");
    EXPECT_THAT(qlnmedia::InspectFile(mxf).ToJson(), HasSubstr("CC1"));
    for (const qlnmedia::Finding& finding : qlnmedia::CheckFile(mxf))
      EXPECT_NE(finding.kind, qlnmedia::FindingKind::kCaptions) << finding.text;
    // As the source of another file's.
    qlnmedia::PatchOptions options2;
    options2.in = in;
    options2.out = MediaPath(std::string("mxf_order_again.") + raw);
    options2.captions = qlnmedia::CaptionOptions{mxf, "", false};
    qlnmedia::PatchFile(options2);
    EXPECT_EQ(Contents(options2.out), Contents(captioned));
  }
}

// What a page draws of a file's pictures.
qlnmedia::Json Drawn(const std::string& path) {
  qlnmedia::MediaFile file(path);
  const qlnmedia::StreamDescription stream = DescribeStream(file, 0);
  qlnmedia::html::StreamRecorder recorder(file.streams()[0], stream, qlnmedia::OwnOrder(file, stream));
  for (qlnmedia::MediaPacket packet; file.Next(packet);) recorder.Take(packet.view, recorder.packets());
  recorder.Finish();
  return recorder.ToJson();
}

TEST(MxfCaptions, OfPicturesAreDrawnInTheirOrder) {
  const std::string in = MediaFile(
      "mxf_drawn.mp4",
      std::string(kPictures) +
          "-c:v libx264 -threads 1 -preset ultrafast -bf 3 -b_strategy 0 -g 12 -pix_fmt yuv420p {out}");
  const std::string captioned = Captioned(in, "mxf_drawn_captions.mp4");
  const std::string mxf = MediaPath("mxf_drawn.mxf");
  ASSERT_EQ(qln::test::Run("ffmpeg -v error -y -i '" + captioned + "' -c copy -bsf:v h264_mp4toannexb '" +
                           mxf + "'")
                .exitCode,
            0);
  const qlnmedia::Json drawn = Drawn(mxf), wanted = Drawn(captioned);
  EXPECT_EQ(drawn["captions"], wanted["captions"]);
  EXPECT_EQ(drawn["columns"]["place"], wanted["columns"]["place"]);
  // Its times count pictures, from the one that is shown first on.
  EXPECT_EQ(drawn["columns"]["pts"], drawn["columns"]["place"]);
  EXPECT_NE(drawn["columns"]["dts"], drawn["columns"]["place"]);
}

// The access units of a raw stream of HEVC that begins each with a delimiter.
std::vector<Bytes> AccessUnits(const Bytes& stream) {
  const Bytes begin = {0, 0, 0, 1, 0x46};
  std::vector<Bytes> units;
  for (size_t at = 0; at < stream.size(); ++at) {
    if (at + begin.size() < stream.size() &&
        std::equal(begin.begin(), begin.end(), stream.begin() + static_cast<std::ptrdiff_t>(at)))
      units.emplace_back();
    if (!units.empty()) units.back().push_back(stream[at]);
  }
  return units;
}

TEST(MxfCaptions, OfHevcComeInTheirOrder) {
  const std::string in =
      MediaFile("mxf_order.hevc",
                std::string(kPictures) +
                    "-pix_fmt yuv420p -c:v libx265 -preset ultrafast -x265-params "
                    "pools=1:frame-threads=1:log-level=none:aud=1:bframes=3:b-adapt=0:repeat-headers=1 "
                    "{out}");
  const std::string captioned = Captioned(in, "mxf_order_captions.hevc");
  MadeOptions made;
  made.coded = Coded::kHevc;
  made.rate = 30000;
  made.rateScale = 1001;
  for (const Indexed index : {Indexed::kByEntries, Indexed::kNot}) {
    made.index = index;
    EXPECT_EQ(Mcc(Save("mxf_order_hevc.mxf", MakeFile(AccessUnits(Contents(captioned)), made))),
              Mcc(captioned));
  }
}

// Frames of two coded fields, both in the element of their edit unit.
TEST(MxfCaptions, OfFieldPairsBelongToTheirFrame) {
  for (const bool bottomFirst : {false, true}) {
    std::vector<CodedFrame> frames;
    for (int group = 0; group < 5; ++group) {
      frames.push_back({.place = 0, .idr = true, .bottomFirst = bottomFirst});
      frames.push_back({.place = 3, .bottomFirst = bottomFirst});
      frames.push_back({.place = 1, .bottomFirst = bottomFirst, .reference = false});
      frames.push_back({.place = 2, .bottomFirst = bottomFirst, .reference = false});
    }
    const std::string in =
        Save("mxf_fields.h264", MakeFieldStream(frames, {.pictureTiming = true, .delimiters = true}));
    const Bytes captioned = Contents(Captioned(in, "mxf_fields_captions.h264"));
    // A delimiter begins each field.
    const Bytes delimiter = {0, 0, 0, 1, 9};
    std::vector<Bytes> pictures;
    size_t fields = 0;
    for (auto at = captioned.begin(); at != captioned.end();) {
      const auto next = std::search(at + 1, captioned.end(), delimiter.begin(), delimiter.end());
      if (fields++ % 2 == 0) pictures.emplace_back();
      pictures.back().insert(pictures.back().end(), at, next);
      at = next;
    }
    ASSERT_EQ(pictures.size(), frames.size());
    for (const Indexed index : {Indexed::kByEntries, Indexed::kNot}) {
      MadeOptions made;
      made.index = index;
      const std::string mxf = Save("mxf_fields.mxf", MakeFile(pictures, made));
      const qlnmedia::FileCaptions captions = qlnmedia::ReadFileCaptions(mxf);
      EXPECT_EQ(captions.pictures, frames.size());
      EXPECT_EQ(captions.captioned, frames.size());
      ASSERT_EQ(captions.services.size(), 1u);
      ASSERT_EQ(captions.services[0].lines.size(), 1u);
      EXPECT_EQ(captions.services[0].lines[0].text, "HELLO");
      EXPECT_EQ(Mcc(mxf), Mcc(MediaPath("mxf_fields_captions.h264")));
      for (const qlnmedia::Finding& finding : qlnmedia::CheckFile(mxf))
        EXPECT_NE(finding.kind, qlnmedia::FindingKind::kCaptions) << finding.text;
    }
  }
}

// Its wrapper is another writer, where it is installed.
TEST(MxfCaptions, OfAnotherWriterAreRead) {
  if (qln::test::Run("gst-inspect-1.0 mxfmux && gst-inspect-1.0 ccextractor && gst-inspect-1.0 avdec_h264 && "
                     "which gst-launch-1.0")
          .exitCode != 0)
    GTEST_SKIP() << "no GStreamer";
  const std::string in = MediaFile(
      "mxf_gst_anc.mp4",
      std::string(kPictures) + "-c:v libx264 -threads 1 -preset ultrafast -g 12 -pix_fmt yuv420p {out}");
  const std::string captioned = Captioned(in, "mxf_gst_anc_captions.mp4");
  const std::string mxf = MediaPath("mxf_gst_anc.mxf");
  ASSERT_EQ(
      qln::test::Run("gst-launch-1.0 -q mxfmux name=m ! filesink location='" + mxf + "' filesrc location='" +
                     captioned +
                     "' ! qtdemux ! h264parse ! tee name=t t. ! queue ! h264parse ! "
                     "video/x-h264,stream-format=byte-stream,alignment=au ! m. t. ! queue ! avdec_h264 ! "
                     "ccextractor name=e e.src ! fakesink e.caption ! queue ! ccconverter ! "
                     "closedcaption/x-cea-708,format=cdp,framerate=30000/1001 ! m.")
          .exitCode,
      0);
  qlnmedia::CaptionSourceOptions from;
  from.stream = "1";
  EXPECT_EQ(qlnmedia::CaptionFileText(mxf, CaptionFileKind::kScc, {}, {}, {}, from),
            qlnmedia::CaptionFileText(captioned, CaptionFileKind::kScc));
}

}  // namespace
}  // namespace qln::test
