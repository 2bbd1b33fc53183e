// patch on real pictures in files put together by hand, in every layout that no muxer at hand writes.

#include <gtest/gtest.h>

#include <filesystem>

#include "mp4/list_file.h"
#include "qlnmedia/media/box_surgery.h"
#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/program.h"

namespace qln::test {
namespace {

namespace fs = std::filesystem;
using mp4::ListFile;

struct Pictures {
  std::vector<Bytes> samples;
  std::vector<uint32_t> sync;
  Bytes record;  // the box
};

// 20 pictures without B pictures, a key frame every 5.
const Pictures& Coded() {
  static const Pictures pictures = [] {
    const Bytes file = ReadFile(MediaFile("layouts_coded.mp4",
                                          "ffmpeg -v error -y -f lavfi -i testsrc2=s=64x64:r=25:d=0.8 -c:v "
                                          "libx264 -threads 1 -pix_fmt yuv420p -bf 0 "
                                          "-g 5 {out}"));
    Pictures out;
    const size_t at = FindBox(file, {"moov", "trak", "mdia", "minf", "stbl", "stsd", "avc1", "avcC"});
    out.record.assign(
        file.begin() + static_cast<std::ptrdiff_t>(at),
        file.begin() + static_cast<std::ptrdiff_t>(at + (size_t{file[at + 2]} << 8 | file[at + 3])));
    const mp4::Listing listing = ListFile(file);
    for (const mp4::ListedSample& sample : listing.samples.at(1)) out.samples.push_back(sample.data);
    for (uint32_t number = 1; number <= out.samples.size(); number += 5) out.sync.push_back(number);
    return out;
  }();
  return pictures;
}

mp4::TrackSpec VideoTrack(const std::vector<size_t>& chunks) {
  mp4::TrackSpec track;
  track.samples = Coded().samples;
  track.sync = Coded().sync;
  track.chunks = chunks;
  track.entryBoxes = Coded().record;
  track.durations.assign(track.samples.size(), 40);
  return track;
}

mp4::TrackSpec DataTrack() {
  mp4::TrackSpec track;
  track.id = 2;
  track.handler = "meta";
  track.format = "abcd";
  for (uint32_t i = 0; i < 30; ++i) track.samples.push_back(mp4::Noise(i % 7 == 3 ? 1 : 20 + i, i));
  track.chunks = {4, 1, 2};
  return track;
}

// Grown, and patched again: the same bytes, and nothing else than the pictures is another.
void ExpectPatched(const Bytes& file, int& files) {
  const std::string in = MediaPath("layouts_in.mp4");
  const std::string out = MediaPath("layouts_out.mp4");
  const std::string again = MediaPath("layouts_again.mp4");
  WriteFile(in, file);
  const CommandResult patch =
      Qlnmedia("patch --verify '" + in + "' '" + out + "' --delimiters --light-level 1000,400");
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
  const CommandResult more =
      Qlnmedia("patch '" + out + "' '" + again + "' --delimiters --light-level 1000,400");
  ASSERT_EQ(more.exitCode, 0) << more.output;
  EXPECT_TRUE(ReadFile(again) == ReadFile(out));
  ASSERT_EQ(Qlnmedia("patch --verify '" + in + "' '" + again + "' --delimiters").exitCode, 0);
  const Bytes after = ReadFile(again);
  std::vector<Bytes> fresh;
  const mp4::Listing listing = ListFile(after);
  for (const mp4::ListedSample& sample : listing.samples.at(1)) fresh.push_back(sample.data);
  EXPECT_EQ(mp4::Compare(file, after, 1, fresh), "");
  // A delimiter in front of each picture, and the picture as it was.
  ASSERT_EQ(fresh.size(), Coded().samples.size());
  for (size_t i = 0; i < fresh.size(); ++i) {
    ASSERT_EQ(fresh[i].size(), Coded().samples[i].size() + 6);
    EXPECT_TRUE(std::equal(fresh[i].begin() + 6, fresh[i].end(), Coded().samples[i].begin()));
  }
  ++files;
}

TEST(CarriedLayouts, PlainFiles) {
  int files = 0;
  for (const std::vector<size_t>& chunks : {std::vector<size_t>{1}, {3, 2}, {20}}) {
    for (int kind = 0; kind < 12; ++kind) {
      for (const bool moovFirst : {true, false}) {
        SCOPED_TRACE(std::to_string(chunks[0]) + " " + std::to_string(kind) +
                     (moovFirst ? " front" : " behind"));
        mp4::MovieSpec movie;
        movie.tracks = {VideoTrack(chunks), DataTrack()};
        movie.moovFirst = moovFirst;
        mp4::TrackSpec& video = movie.tracks[0];
        switch (kind) {
          case 0:
            video.sizeBits = 16;
            break;
          case 1:
            video.wideOffsets = true;
            break;
          case 2:
            video.wideHeads = true;
            break;
          case 3:
            movie.mdatWide = true;
            break;
          case 4:
            movie.twoMdats = true;
            break;
          case 5:
            movie.gap = mp4::Noise(13, 1);
            break;
          case 6:
            movie.behindMoov = Box("free", Bytes(100));
            break;
          case 7:
            movie.behindAll = mp4::Joined({Box("uuid", mp4::Noise(30, 2)), Box("free", {})});
            break;
          case 8:
            movie.brand = "qt  ";
            break;
          case 9:
            movie.tracks[1].sizeBits = 8;
            break;
          case 10:
            video.timeOffsets.assign(video.samples.size(), 40);
            break;
          default:
            std::swap(movie.tracks[0], movie.tracks[1]);
            break;
        }
        ExpectPatched(mp4::BuildMovie(movie), files);
      }
    }
  }
  EXPECT_EQ(files, 72);
}

TEST(CarriedLayouts, ALastBoxUpToTheEndAndNoBrand) {
  int files = 0;
  for (const std::vector<size_t>& chunks : {std::vector<size_t>{1}, {20}}) {
    mp4::MovieSpec movie;
    movie.tracks = {VideoTrack(chunks)};
    movie.mdatToEnd = true;
    ExpectPatched(mp4::BuildMovie(movie), files);
    movie.mdatToEnd = false;
    movie.brand.clear();
    ExpectPatched(mp4::BuildMovie(movie), files);
  }
  EXPECT_EQ(files, 4);
}

TEST(CarriedLayouts, Fragments) {
  int files = 0;
  for (int kind = 0; kind < 10; ++kind) {
    for (const size_t perRun : {size_t{1}, size_t{5}, size_t{20}}) {
      SCOPED_TRACE(std::to_string(kind) + " " + std::to_string(perRun));
      Bytes file = mp4::BuildInit({.tracks = {VideoTrack({1}), DataTrack()}});
      const std::vector<Bytes>& samples = Coded().samples;
      int64_t time = 0;
      for (size_t at = 0; at < samples.size(); at += 5) {
        mp4::TrafSpec traf;
        for (size_t i = at; i < at + 5; i += perRun) {
          const size_t end = std::min(i + perRun, at + 5);
          traf.runs.emplace_back(samples.begin() + static_cast<std::ptrdiff_t>(i),
                                 samples.begin() + static_cast<std::ptrdiff_t>(end));
        }
        traf.durations = true;
        traf.explicitBase = kind == 1;
        traf.baseIsMoof = kind != 1 && kind != 2;
        traf.firstFlags = kind == 3;
        traf.timeOffsets = kind == 4;
        traf.offsetsInAll = kind == 5;
        if (kind != 6) traf.decodeTime = time;
        if (kind == 7) traf.boxes = {Box("uuid", mp4::Noise(20, 3)), Box("abcd", {})};
        mp4::TrafSpec data;
        data.trackId = 2;
        data.runs = {{mp4::Noise(30, 1), mp4::Noise(31, 2)}};
        data.durations = true;
        data.decodeTime = time;
        const std::vector<mp4::TrafSpec> trafs =
            kind == 8 ? std::vector<mp4::TrafSpec>{data, traf} : std::vector<mp4::TrafSpec>{traf, data};
        const Bytes fragment =
            mp4::BuildFragment(trafs, file.size(), kind == 9 ? mp4::Noise(11, 5) : Bytes{});
        file.insert(file.end(), fragment.begin(), fragment.end());
        time += 200;
      }
      ExpectPatched(file, files);
    }
  }
  EXPECT_EQ(files, 30);
}

}  // namespace
}  // namespace qln::test
