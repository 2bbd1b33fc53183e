// What a timecode track says of the options and the stream's rate, and which files get none.

#include "patch/timecode_track.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "small_files.h"

namespace qlnmedia {
namespace {

using test::RefusalOf;
using testing::HasSubstr;
namespace boxes = qln::test::mp4;

struct Put {
  Bytes file;
  std::string line;
  bool added = false;
};

Put PutInto(const Bytes& bytes, const PatchOptions& options) {
  test::Files files;
  const MediaFile media(files.Put("clip.mp4", bytes));
  const mp4::MemorySource source(bytes, "clip.mp4");
  const TimecodedInput made = PutTimecodeTrack(source, media, options);
  Put put{Bytes(made.source->size()), made.line, made.added};
  made.source->Read(0, put.file);
  return put;
}

PatchOptions Options(const std::string& timecode, const std::string& type = {},
                     const std::string& rate = {}) {
  PatchOptions options;
  options.in = "clip.mp4";
  options.timecode = timecode;
  options.timecodeType = type;
  options.rate = rate;
  return options;
}

// The fields of the sample description 'tmcd' (QuickTime File Format Specification): flags, timescale, frame
// duration, number of frames; and behind them the one sample, at the end of the file.
std::string Said(const Bytes& file) {
  const Bytes mark = boxes::Text("tmcd");
  auto at = file.begin();
  for (Bytes entry; (at = std::search(at, file.end(), mark.begin(), mark.end())) != file.end(); ++at) {
    // The size in front tells the description from handler and reference.
    const auto place = static_cast<size_t>(at - file.begin());
    if (file[place - 1] < 34 || file[place - 2] != 0 || file[place + 11] != 1) continue;
    const Bytes fields(at + 16, at + 29);
    return qln::test::ToHex(fields) + " | " + qln::test::ToHex(Bytes(file.end() - 4, file.end()));
  }
  return {};
}

TEST(TimecodeTracks, CountAsTheStreamDoes) {
  const Bytes clip = test::PictureFile(test::PictureStream());
  const Put put = PutInto(clip, Options("10:00:00:00"));
  EXPECT_TRUE(put.added);
  EXPECT_EQ(put.line, "stream 0: timecode track put in");
  // No flag of drop-frame; 25 units a second, 1 a frame, 25 frames; 900000 frames.
  EXPECT_THAT(Said(put.file), HasSubstr("00 00 00 19 00 00 00 01 19 | 00 0D BB A0"));
  const Put same = PutInto(put.file, Options("10:00:00:00"));
  EXPECT_EQ(same.line, "stream 0: timecode track as it was");
  EXPECT_FALSE(same.added);
  const Put other = PutInto(put.file, Options("10:00:00:01"));
  EXPECT_EQ(other.line, "stream 0: timecode track corrected");
  EXPECT_FALSE(other.added);
}

// A type that is asked for counts whatever the stream's rate is.
TEST(TimecodeTracks, TheTypeThatIsAskedForCounts) {
  boxes::TrackSpec track = test::PictureTrack(test::PictureStream());
  track.durations.assign(track.samples.size(), 100);  // 10 pictures a second
  boxes::MovieSpec movie;
  movie.tracks = {track};
  const Bytes clip = boxes::BuildMovie(movie);
  EXPECT_NE(RefusalOf([&] { PutInto(clip, Options("10:00:00:00")); }), "");
  EXPECT_EQ(RefusalOf([&] { PutInto(clip, Options("10:00:00:00", "pal")); }), "");
}

TEST(TimecodeTracks, RefusedForWhatCannotBe) {
  const Bytes clip = test::PictureFile(test::PictureStream());
  EXPECT_NE(RefusalOf([&] { PutInto(clip, Options("25:00:00:00")); }), "");
  EXPECT_NE(RefusalOf([&] { PutInto(clip, Options("10:00:00;00")); }), "");
  EXPECT_NE(RefusalOf([&] { PutInto(clip, Options("10:00:00:00", "", "30")); }), "");
  boxes::TrackSpec sound;
  sound.handler = "soun";
  sound.format = "mp4a";
  sound.samples = {boxes::Noise(10, 1)};
  boxes::MovieSpec movie;
  movie.tracks = {sound};
  EXPECT_THAT(RefusalOf([&] { PutInto(boxes::BuildMovie(movie), Options("10:00:00:00")); }),
              HasSubstr("clip.mp4: has no H.264 or HEVC stream"));
}

}  // namespace
}  // namespace qlnmedia
