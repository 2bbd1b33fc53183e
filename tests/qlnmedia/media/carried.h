// Patches of MP4 and MOV held against their input, box by box and sample by sample.
#ifndef TESTS_QLNMEDIA_MEDIA_CARRIED_H
#define TESTS_QLNMEDIA_MEDIA_CARRIED_H

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "mp4/list_file.h"
#include "mp4/muxed_kinds.h"
#include "mp4/patch_by_engine.h"
#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/program.h"

namespace qln::test {

using mp4::ListFile;
using mp4::Listing;

inline std::string OutOf(const std::string& in, const std::string& name = "carried") {
  return MediaPath(name + "_" + std::filesystem::path(in).filename().string());
}

inline void Patch(const std::string& in, const std::string& out, const std::string& options) {
  std::filesystem::remove(out);
  const CommandResult patch = Qlnmedia("patch '" + in + "' '" + out + "' " + options);
  ASSERT_EQ(patch.exitCode, 0) << patch.output;
}

// Of the first video track, by an independent reader.
inline uint32_t VideoTrack(const std::string& file) {
  const std::string id = Text("ffprobe -v error -select_streams v:0 -show_entries stream=id -of csv=p=0 '" +
                              file + "' | head -1 | cut -d, -f1");
  return static_cast<uint32_t>(std::stoul(id, nullptr, 0));
}

inline std::vector<Bytes> SamplesOf(const Bytes& file, uint32_t track = 1) {
  const Listing listing = ListFile(file);
  std::vector<Bytes> samples;
  for (const mp4::ListedSample& sample : listing.samples.at(track)) samples.push_back(sample.data);
  return samples;
}

// What is not as it was but for the samples of a track; empty where all is well.
inline std::string Changed(const std::string& in, const std::string& out, uint32_t track) {
  const Bytes after = ReadFile(out);
  return mp4::Compare(ReadFile(in), after, track, SamplesOf(after, track));
}

// Delimiters go into the pictures, and all else is as it was, byte for byte; in this process.
inline void ExpectOnlyPicturesChange(const std::string& in) {
  EXPECT_EQ(mp4::JudgePatch(ReadFile(in), {}, mp4::Wishes::kDelimiters), "");
}

// The same with the built program, and as ffprobe and ffmpeg see it.
inline void ExpectOthersSeeTheSame(const std::string& in, const std::string& codec) {
  const std::string out = OutOf(in);
  const uint32_t track = VideoTrack(in);
  Patch(in, out, "--verify --delimiters --light-level 1000,400 --hdr p3 --dry-run");
  EXPECT_FALSE(std::filesystem::exists(out));
  Patch(in, out, "--verify --delimiters");
  EXPECT_EQ(Changed(in, out, track), "");
  EXPECT_EQ(Slices(out, codec), Slices(in, codec));
  EXPECT_EQ(mp4::Shown(out), mp4::Shown(in));
  std::filesystem::remove(out);
}

// A clip whose index stands behind the media data, so that boxes can be put into it.
inline Bytes ClipBytes() {
  return ReadFile(
      MediaFile("carried_clip.mp4",
                "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.6 -f lavfi -i sine=d=0.6 "
                "-c:a aac -c:v libx264 -threads 1 -pix_fmt yuv420p -g 8 {out}"));
}

}  // namespace qln::test

#endif
