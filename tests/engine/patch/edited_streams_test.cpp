// The streams that a patch edits: what is refused before anything is read, what reaches samples and boxes,
// and what is said of it.

#include "patch/edited_streams.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "container/media_file.h"
#include "container/mp4/memory_sink.h"
#include "patch/carried_input.h"
#include "patch/carried_tracks.h"
#include "small_files.h"

namespace qlnmedia {
namespace {

using test::RefusalOf;
using testing::ElementsAre;
using testing::HasSubstr;
namespace boxes = qln::test::mp4;

// dvcC or dvvC of level 3 with RPU and base layer, as Dolby Vision's specification of ISO boxes has it.
Bytes DolbyVision(uint8_t profile, uint8_t compatibility) {
  const uint64_t flags = uint64_t{profile} << 9 | 3u << 3 | 5u;
  return boxes::Box(profile > 7 ? "dvvC" : "dvcC",
                    {boxes::Number(1, 1), boxes::Number(0, 1), boxes::Number(flags, 2),
                     boxes::Number(uint64_t{compatibility} << 4, 1), Bytes(19)});
}

// An MP4 in memory with all that a patch opens it by.
class Opened {
 public:
  explicit Opened(const Bytes& bytes)
      : bytes_(bytes),
        media_(files_.Put("clip.mp4", bytes)),
        source_(bytes_, "clip.mp4"),
        carrier_(source_),
        input_(media_.streams(), "clip.mp4", carrier_) {}

  const CarriedInput& input() const { return input_; }
  // The file with what `options` ask for, as it comes out.
  Bytes Patch(const EditOptions& options, std::vector<std::string>* summary = nullptr) {
    EditedStreams streams(input_, options);
    CarriedTracks tracks(input_, streams, options);
    carrier_.Prepare(tracks.change());
    mp4::MemorySink sink;
    carrier_.Write(sink);
    if (summary != nullptr) *summary = streams.Summary();
    return sink.bytes();
  }

 private:
  test::Files files_;
  Bytes bytes_;
  MediaFile media_;
  mp4::MemorySource source_;
  mp4::Carrier carrier_;
  CarriedInput input_;
};

// As through a muxer: nothing of the file is carried byte for byte.
class Remuxed final : public PatchInput {
 public:
  explicit Remuxed(const CarriedInput& in) : in_(in) {}
  const std::vector<MediaStream>& streams() const override { return in_.streams(); }
  bool describesPictures() const override { return true; }
  const std::string& path() const override { return in_.path(); }
  StreamDescription Describe(unsigned stream) const override { return in_.Describe(stream); }
  void Read(const std::set<unsigned>& streams, const ProgressCallback& progress,
            const Take& take) const override {
    in_.Read(streams, progress, take);
  }
  bool carried() const override { return false; }

 private:
  const CarriedInput& in_;
};

std::string Refusal(const Bytes& file, const EditOptions& options) {
  return RefusalOf([&] {
    const Opened opened(file);
    const EditedStreams streams(opened.input(), options);
  });
}

EditOptions Colour(uint8_t transfer) {
  EditOptions options;
  options.colour = ColourCodes{9, transfer, 9};
  return options;
}

TEST(EditedStreams, DolbyVisionStaysTrue) {
  const test::Stream stream = test::PictureStream();
  // Profile 9 of H.264; 0: the base layer means nothing by itself.
  const Bytes alone = test::PictureFile(stream, DolbyVision(9, 0));
  EXPECT_THAT(Refusal(alone, Colour(16)), HasSubstr("whose base layer means nothing by itself"));
  EditOptions delimiters;
  delimiters.delimiters = true;
  EXPECT_EQ(Refusal(alone, delimiters), "");
  // 4: the base layer is HLG.
  const Bytes hlg = test::PictureFile(stream, DolbyVision(8, 4));
  EXPECT_THAT(Refusal(hlg, Colour(16)), HasSubstr("another colour would not be true of it"));
  EXPECT_EQ(Refusal(hlg, Colour(18)), "");
  const Opened opened(hlg);
  const Remuxed muxed(opened.input());
  EXPECT_THAT(RefusalOf([&] { EditedStreams(muxed, delimiters); }),
              HasSubstr("whose metadata would no longer fit"));
}

TEST(EditedStreams, RefusesFilesWithoutThem) {
  boxes::TrackSpec sound;
  sound.handler = "soun";
  sound.format = "mp4a";
  sound.samples = {boxes::Noise(10, 1)};
  boxes::MovieSpec movie;
  movie.tracks = {sound};
  EditOptions delimiters;
  delimiters.delimiters = true;
  EXPECT_THAT(Refusal(boxes::BuildMovie(movie), delimiters), HasSubstr("has no H.264 or HEVC stream"));
  EditOptions captions;
  captions.captions = CaptionOptions{"captions.scc", "", false};
  EXPECT_THAT(Refusal(boxes::BuildMovie(movie), captions), HasSubstr("has no H.264, HEVC or MPEG-2 stream"));
}

TEST(EditedStreams, SaysWhatWasChanged) {
  std::vector<std::string> summary;
  Opened opened(test::PictureFile(test::PictureStream()));
  EditOptions options = Colour(16);
  options.delimiters = true;
  opened.Patch(options, &summary);
  EXPECT_THAT(summary,
              ElementsAre("stream 0: 2 sequence parameter sets in the stream changed, 1 sequence "
                          "parameter sets in the avcC changed, container colour set, 6 delimiters put in"));
  Opened same(test::PictureFile(test::PictureStream()));
  EditOptions filler;
  filler.remove.filler = true;
  EXPECT_EQ(same.Patch(filler, &summary), test::PictureFile(test::PictureStream()));
  EXPECT_THAT(summary, ElementsAre("stream 0: nothing to change"));
}

// The samples of a patched file are those that the editor makes of the stream, in order, and so is its avcC.
TEST(CarriedTracks, SamplesAndRecordAreTheEditors) {
  const test::Stream stream = test::PictureStream(7);
  EditOptions options = Colour(18);
  options.lightLevel = LightLevel{1000, 400};
  const test::EditedStream expected = test::Edit(stream, options);
  ASSERT_NE(expected.description.privateData, stream.description.privateData);
  Opened opened(test::PictureFile(stream));
  const Bytes patched = opened.Patch(options);
  const mp4::MemorySource source(patched, "out.mp4");
  const mp4::Carrier carrier(source);
  const mp4::Track& track = *carrier.FindTrack(1);
  mp4::TrackSamples samples(source, carrier.layout(), 1);
  size_t number = 0;
  Bytes bytes;
  for (mp4::Sample sample; samples.Next(sample); ++number) {
    mp4::ReadSample(source, 1, sample, bytes);
    EXPECT_EQ(bytes, expected.packets.at(number).data) << number;
    EXPECT_EQ(sample.duration, 40u);
    EXPECT_EQ(sample.sync, stream.packets[number].key);
  }
  EXPECT_EQ(number, 7u);
  std::map<uint32_t, Bytes> described;
  for (mp4::DescriptionBox& box : mp4::ReadDescriptionBoxes(source, track.descriptions.at(0)))
    described[box.type] = box.body;
  EXPECT_EQ(described[mp4::FourCc("avcC")], expected.description.privateData);
  EXPECT_EQ(described[mp4::FourCc("colr")], qln::test::Hex("6E636C78 0009 0012 0009 00"));
  EXPECT_EQ(described[mp4::FourCc("clli")], qln::test::Hex("03E8 0190"));
}

// A change of sets alone looks at the heads of units, and passes by what holds none; the result is the same.
TEST(CarriedTracks, SetsAloneLeaveOtherSamplesUnread) {
  const test::Stream stream = test::PictureStream(6);
  Opened opened(test::PictureFile(stream));
  const EditOptions options = Colour(16);
  EditedStreams streams(opened.input(), options);
  CarriedTracks tracks(opened.input(), streams, options);
  mp4::SampleEditor& editor = *tracks.change().tracks.at(0).samples;
  const Bytes file = test::PictureFile(stream);
  const mp4::MemorySource source(file, "clip.mp4");
  const mp4::Carrier carrier(source);
  mp4::TrackSamples samples(source, carrier.layout(), 1);
  std::vector<bool> wanted;
  for (mp4::Sample sample; samples.Next(sample);) wanted.push_back(editor.Wants(source, sample));
  EXPECT_THAT(wanted, ElementsAre(true, false, false, true, false, false));
  EditOptions all = options;
  all.delimiters = true;
  EditedStreams otherStreams(opened.input(), all);
  CarriedTracks otherTracks(opened.input(), otherStreams, all);
  mp4::Sample second;
  second.size = 10;
  EXPECT_TRUE(otherTracks.change().tracks.at(0).samples->Wants(source, second));
}

}  // namespace
}  // namespace qlnmedia
