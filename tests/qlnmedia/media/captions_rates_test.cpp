// Captions at every rate, and in streams whose pictures do not follow each other steadily: counts, times and
// triplets as an independent reader sees them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "captions/caption_track.h"
#include "captions/mcc_file.h"
#include "captions/service_block.h"
#include "qlnmedia/media/caption_media.h"

namespace qln::test {
namespace {

using qlnmedia::captions::CcType;
using qlnmedia::captions::Triplet;
using testing::HasSubstr;
using testing::Not;

struct RateCase {
  const char* name;
  qlnmedia::captions::Rate rate;
  const char* ffmpeg;
  double perSecond;
  size_t triplets;
  bool warned;  // a file of 29.97 frames is of another rate
};

const RateCase kRates[] = {
    {"r23_98", qlnmedia::captions::Rate::k23_976, "24000/1001", 24000 / 1001.0, 25, true},
    {"r24", qlnmedia::captions::Rate::k24, "24", 24, 25, true},
    {"r25", qlnmedia::captions::Rate::k25, "25", 25, 24, true},
    {"r29_97", qlnmedia::captions::Rate::k29_97, "30000/1001", 30000 / 1001.0, 20, false},
    {"r30", qlnmedia::captions::Rate::k30, "30", 30, 20, false},
    {"r50", qlnmedia::captions::Rate::k50, "50", 50, 12, true},
    {"r59_94", qlnmedia::captions::Rate::k59_94, "60000/1001", 60000 / 1001.0, 10, false},
    {"r60", qlnmedia::captions::Rate::k60, "60", 60, 10, false},
};

struct Coder {
  const char* name;
  const char* extension;
  const char* options;
};

const Coder kCoders[] = {
    {"avc", "mp4", "-c:v libx264 -preset ultrafast -threads 1 -pix_fmt yuv420p -bf 2 -g 24"},
    {"hevc", "mkv",
     "-c:v libx265 -preset ultrafast -pix_fmt yuv420p -x265-params "
     "bframes=2:keyint=24:pools=1:frame-threads=1:log-level=none"},
    {"mpeg2", "ts", "-c:v mpeg2video -bf 2 -g 9"},
};

std::string CleanSource(const RateCase& rate, const Coder& coder) {
  return MediaFile(std::string("captions_") + rate.name + "_" + coder.name + "." + coder.extension,
                   std::string("ffmpeg -v error -y -f lavfi -i testsrc2=s=64x48:d=1.5:r=") + rate.ffmpeg +
                       " " + coder.options + " {out}");
}

// Begin and end of the one caption of an .srt text, in seconds.
std::pair<double, double> TimesOf(const std::string& srt) {
  int h[2] = {}, m[2] = {}, s[2] = {}, ms[2] = {};
  const size_t at = srt.find('\n');
  if (at == std::string::npos || std::sscanf(srt.c_str() + at, "%d:%d:%d,%d --> %d:%d:%d,%d", &h[0], &m[0],
                                             &s[0], &ms[0], &h[1], &m[1], &s[1], &ms[1]) != 8)
    return {-1, -1};
  return {h[0] * 3600 + m[0] * 60 + s[0] + ms[0] / 1000.0, h[1] * 3600 + m[1] * 60 + s[1] + ms[1] / 1000.0};
}

// The caption shows with frame 3 + 12 of the file and goes with frame 30, at 29.97 frames a second; the
// picture that carries a pair is the first one that does not precede it, or the next one where the pair must
// wait for its field.
void ExpectTimes(const std::string& srt, double perSecond) {
  EXPECT_THAT(srt, HasSubstr("GOOD MORNING"));
  const auto [begin, end] = TimesOf(srt);
  const double frame = 1001 / 30000.0;
  const double early = 0.002;  // times are rounded to milliseconds; 30 and 60 count frames and not time
  EXPECT_GE(begin, 15 * frame - early) << srt;
  EXPECT_LE(begin, 15 * frame + 2 / perSecond + early) << srt;
  EXPECT_GE(end, 30 * frame - early) << srt;
  EXPECT_LE(end, 30 * frame + 2 / perSecond + 2 * early) << srt;
}

class Rates : public testing::TestWithParam<RateCase> {};

TEST_P(Rates, EveryPictureHasTheCountOfItsRate) {
  const RateCase& rate = GetParam();
  const std::string scc = Write(std::string("captions_") + rate.name + ".scc", kScc);
  for (const Coder& coder : kCoders) {
    SCOPED_TRACE(coder.name);
    const std::string in = CleanSource(rate, coder);
    const std::string out =
        MediaPath(std::string("captions_out_") + rate.name + "_" + coder.name + "." + coder.extension);
    const CommandResult patched =
        Qlnmedia("patch '" + in + "' '" + out + "' --verify --captions '" + scc + "'");
    ASSERT_EQ(patched.exitCode, 0) << patched.output;
    if (rate.warned)
      EXPECT_THAT(patched.output, HasSubstr("times are converted"));
    else
      EXPECT_THAT(patched.output, Not(HasSubstr("warning")));
    EXPECT_EQ(Decoded(out), Decoded(in));
    const auto [pictures, captioned] = Counted(out);
    EXPECT_EQ(captioned, pictures);
    EXPECT_EQ(TripletBytes(out).size(), static_cast<size_t>(pictures) * rate.triplets * 3);
    ExpectTimes(Shown(out), rate.perSecond);
    const std::string srt = out + ".srt";
    ASSERT_EQ(Qlnmedia("captions '" + out + "' -o '" + srt + "'").exitCode, 0);
    ExpectTimes(FileText(srt), rate.perSecond);
    EXPECT_THAT(Qlnmedia("check '" + out + "'").output, Not(HasSubstr("caption")));
  }
}

// Random pairs of both fields and random digital captions in every packet.
std::vector<std::vector<Triplet>> RandomPictures(const RateCase& rate, size_t count) {
  Random random(7 + rate.triplets);
  std::vector<std::vector<Triplet>> pictures(count);
  for (std::vector<Triplet>& picture : pictures) {
    for (size_t i = 0; i < rate.triplets; ++i)
      picture.push_back(
          {random.below(4) != 0,
           i < 2 ? static_cast<CcType>(i) : (i == 2 ? CcType::kServiceStart : CcType::kServiceData),
           static_cast<uint8_t>(random.below(3) == 0 ? 0 : random.next()),
           static_cast<uint8_t>(random.below(3) == 0 ? 0 : random.next())});
  }
  return pictures;
}

// Packet lines of a .mcc text with the bytes that count packets and sum them up taken out: what a caption
// file says of each frame.
std::vector<std::pair<int64_t, std::vector<Triplet>>> Events(const std::string& mcc) {
  std::string reason;
  const auto track = qlnmedia::captions::ReadCaptionTrack(mcc, &reason);
  EXPECT_TRUE(track) << reason;
  std::vector<std::pair<int64_t, std::vector<Triplet>>> events;
  if (track) {
    for (const auto& event : track->events) events.emplace_back(event.at, event.triplets);
  }
  return events;
}

TEST_P(Rates, WhatComesOutIsWhatWentIn) {
  const RateCase& rate = GetParam();
  const Coder& coder = kCoders[static_cast<size_t>(rate.rate) % 3];
  const std::string in = CleanSource(rate, coder);
  const auto pictures = RandomPictures(rate, static_cast<size_t>(Counted(in).first));
  qlnmedia::captions::MccTrackWriter writer(rate.rate);
  std::string text = writer.Heading();
  Bytes expected;
  for (size_t i = 0; i < pictures.size(); ++i) {
    text += writer.Lines(pictures[i], static_cast<int64_t>(i));
    for (const Triplet& t : pictures[i])
      expected.insert(
          expected.end(),
          {static_cast<uint8_t>(0xF8 | (t.valid ? 4 : 0) | static_cast<int>(t.type)), t.first, t.second});
  }
  const std::string mcc = Write(std::string("captions_in_") + rate.name + ".mcc", text);
  const std::string out = MediaPath(std::string("captions_mcc_") + rate.name + "." + coder.extension);
  const CommandResult patched = Qlnmedia("patch '" + in + "' '" + out + "' --captions '" + mcc + "'");
  ASSERT_EQ(patched.exitCode, 0) << patched.output;
  EXPECT_THAT(patched.output, Not(HasSubstr("warning")));
  EXPECT_EQ(TripletBytes(out), expected);
  ASSERT_EQ(Qlnmedia("captions '" + out + "' -o '" + out + ".mcc'").exitCode, 0);
  EXPECT_EQ(Events(FileText(out + ".mcc")), Events(text));
}

INSTANTIATE_TEST_SUITE_P(Captions, Rates, testing::ValuesIn(kRates),
                         [](const auto& rate) { return std::string(rate.param.name); });

// Every sixth picture of 30 a second is missing, so that 25 a second are left: still a stream of 30.
TEST(CaptionTimes, GoByThePicturesTimesWhereSomeAreMissing) {
  const std::string scc = Write("captions_missing.scc", kScc);
  for (const std::string extension : {"mp4", "mkv", "ts"}) {
    SCOPED_TRACE(extension);
    const std::string in = MediaFile(
        "captions_missing." + extension,
        "ffmpeg -v error -y -f lavfi -i testsrc2=s=64x48:d=2:r=30 -vf \"select='not(eq(mod(n,6),5))'\" "
        "-vsync vfr -enc_time_base 1/30 -c:v libx264 -preset ultrafast -threads 1 -pix_fmt yuv420p -bf 2 "
        "{out}");
    const std::string out = MediaPath("captions_missing_out." + extension);
    const CommandResult patched =
        Qlnmedia("patch '" + in + "' '" + out + "' --verify --captions '" + scc + "'");
    ASSERT_EQ(patched.exitCode, 0) << patched.output;
    EXPECT_THAT(patched.output, HasSubstr("20 triplets each"));
    EXPECT_THAT(patched.output, HasSubstr("captions go by time, 30 pictures a second"));
    const auto [pictures, captioned] = Counted(out);
    EXPECT_EQ(pictures, 50);
    EXPECT_EQ(captioned, 50);
    ASSERT_EQ(Qlnmedia("captions '" + out + "' -o '" + out + ".srt'").exitCode, 0);
    // Two pictures at the pace of those that are left.
    ExpectTimes(FileText(out + ".srt"), 15);
    ASSERT_EQ(Qlnmedia("captions '" + out + "' -o '" + out + ".mcc'").exitCode, 0);
    std::vector<int64_t> numbers;
    for (const auto& [number, triplets] : Events(FileText(out + ".mcc"))) numbers.push_back(number);
    std::vector<int64_t> expected;
    for (int64_t i = 0; i < 60; ++i) {
      if (i % 6 != 5) expected.push_back(i);
    }
    EXPECT_EQ(numbers, expected);
    EXPECT_THAT(Qlnmedia("check '" + out + "'").output, Not(HasSubstr("caption")));
  }
}

}  // namespace
}  // namespace qln::test
