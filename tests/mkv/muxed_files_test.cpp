// Files as others write them, patched in this process: the tests' own reader finds the input but for what was
// asked, and nothing asked gives the input back.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <set>

#include "mkv/list_elements.h"
#include "qlnmedia/error.h"
#include "qlnmedia/patch.h"
#include "qlnmedia/progress.h"
#include "support/media.h"

namespace qln::test::mkv {
namespace {

using qlnmedia::PatchOptions;
using testing::HasSubstr;

const char* const kPictures =
    "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x120:r=25:d=0.6 -f lavfi -i sine=d=0.6 -pix_fmt yuv420p "
    "-c:a libopus -b:a 32k ";
const char* const kAvc = "-c:v libx264 -preset ultrafast -bf 1 -g 5 -threads 1 ";

std::string Clip() { return MediaFile("mkv_clip.mkv", std::string(kPictures) + kAvc + "{out}"); }
std::string Hevc() {
  return MediaFile("mkv_hevc.mkv", std::string(kPictures) +
                                       "-c:v libx265 -preset ultrafast -x265-params "
                                       "pools=1:frame-threads=1:log-level=none:keyint=5 {out}");
}

std::string Remuxed(const std::string& name, const std::string& options) {
  return MediaFile("mkv_" + name + ".mkv",
                   "ffmpeg -v error -y -i '" + Clip() + "' -map 0 -c copy " + options + " {out}");
}

std::string Merged(const std::string& name, const std::string& options) {
  return MediaFile("mkv_" + name + ".mkv", "mkvmerge -q -o {out} " + options + " '" + Clip() + "'");
}

std::string TextFile(const std::string& name, const std::string& text) {
  const std::string path = MediaPath("mkv_" + name);
  WriteFile(path, Bytes(text.begin(), text.end()));
  return path;
}

// The length-prefixed units of a frame that no wish here touches.
std::vector<Bytes> Kept(const Bytes& frame, bool hevc, bool everything) {
  std::vector<Bytes> units;
  for (size_t at = 0; at + 5 <= frame.size();) {
    const size_t size =
        size_t{frame[at]} << 24 | size_t{frame[at + 1]} << 16 | size_t{frame[at + 2]} << 8 | frame[at + 3];
    at += 4;
    const int type = hevc ? frame[at] >> 1 & 63 : frame[at] & 31;
    const bool delimiter = type == (hevc ? 35 : 9);
    const bool other = hevc ? (type >= 32 && type <= 33) || type == 39 || type == 40 : type == 6 || type == 7;
    const size_t end = std::min(frame.size(), at + size);
    if (!delimiter && !(everything && other))
      units.emplace_back(frame.begin() + static_cast<long>(at), frame.begin() + static_cast<long>(end));
    at = end;
  }
  return units;
}

void ExpectUnits(const Listing& was, const Listing& is, bool hevc, bool everything) {
  ASSERT_EQ(was.frames.size(), is.frames.size());
  for (const auto& [track, frames] : was.frames) {
    const std::vector<Bytes>& fresh = is.frames.at(track);
    ASSERT_EQ(frames.size(), fresh.size());
    size_t delimiters = 0;
    for (size_t i = 0; i < frames.size(); ++i) {
      EXPECT_EQ(Kept(frames[i], hevc, everything), Kept(fresh[i], hevc, everything)) << i;
      const int head = hevc ? fresh[i].at(4) >> 1 : fresh[i].at(4) & 31;
      delimiters += head == (hevc ? 35 : 9) ? 1U : 0U;
    }
    EXPECT_EQ(delimiters, frames.size());
  }
}

void Patch(const std::string& in, const std::string& out, const std::function<void(PatchOptions&)>& wish) {
  PatchOptions options;
  options.in = in;
  options.out = out;
  options.verify = true;
  wish(options);
  qlnmedia::PatchFile(options);
}

// `tracks` hold the pictures.
void ExpectPatched(const std::string& in, bool hevc = false, const std::set<uint64_t>& tracks = {1}) {
  SCOPED_TRACE(in);
  const std::string out = MediaPath("mkv_out.mkv");
  const std::string again = MediaPath("mkv_again.mkv");
  const auto delimiters = [](PatchOptions& options) { options.delimiters = true; };
  const auto everything = [](PatchOptions& options) {
    options.delimiters = true;
    options.colour = qlnmedia::ColourCodes{9, 16, 9};
    options.fullRange = true;
    options.lightLevel = qlnmedia::LightLevel{1000, 400};
    options.timecode = "10:00:00:00";
    options.sampleAspect = qlnmedia::SampleAspect{4, 3};
  };
  try {
    const Bytes bytes = ReadFile(in);
    Patch(in, out, [](PatchOptions& options) { options.remove.filler = true; });
    EXPECT_TRUE(ReadFile(out) == bytes);
    Patch(in, out, delimiters);
    const Bytes once = ReadFile(out);
    const Listing was = List(bytes, tracks);
    const Listing is = List(once, tracks);
    EXPECT_EQ(Difference(was, is), "");
    ExpectUnits(was, is, hevc, false);
    Patch(out, again, delimiters);
    EXPECT_TRUE(ReadFile(again) == once);
    Patch(in, out, everything);
    const Listing facts = List(ReadFile(out), tracks, true);
    EXPECT_EQ(Difference(List(bytes, tracks, true), facts), "");
    ExpectUnits(was, facts, hevc, true);
    Patch(out, again, everything);
    EXPECT_TRUE(ReadFile(again) == ReadFile(out));
  } catch (const qlnmedia::Error& error) {
    ADD_FAILURE() << error.what();
  }
}

// All that ffprobe says but for sizes and places of the pictures' packets.
std::string Shown(const std::string& file) {
  return test::Run("ffprobe -v error -show_packets -show_streams -show_format -show_chapters '" + file +
                   "' | grep -vE '^(filename|size|pos|bit_rate|extradata_size|nal_length_size)='")
      .output;
}

TEST(MkvFiles, OfFfmpegsMuxer) {
  const std::pair<const char*, const char*> kKinds[] = {
      {"live", "-live 1"},
      {"reserved", "-reserve_index_space 3000"},
      {"front", "-cues_to_front 1"},
      {"small", "-cluster_size_limit 900"},
      {"short", "-cluster_time_limit 60"},
      {"unchecked", "-write_crc32 0"},
      {"passed", "-default_mode passthrough -disposition:v default+forced"},
      {"dash", "-map -0:a -dash 1 -dash_track_number 1 -cluster_time_limit 200"},
      {"twice", "-map 0:v -metadata:s:v:1 language=und"},
  };
  ExpectPatched(Clip());
  ExpectPatched(Hevc(), true);
  for (const auto& [name, options] : kKinds)
    ExpectPatched(Remuxed(name, options), false,
                  std::string(name) == "twice" ? std::set<uint64_t>{1, 3} : std::set<uint64_t>{1});
  ExpectPatched(MediaFile("mkv_pipe.mkv",
                          "ffmpeg -v error -y -i '" + Clip() + "' -c copy -f matroska - | cat > {out}"));
  // One file behind the other.
  ExpectPatched(
      MediaFile("mkv_chain.mkv", "cat '" + Clip() + "' '" + Remuxed("live", "-live 1") + "' > {out}"));
}

TEST(MkvFiles, OfMkvmerge) {
  const std::string chapters = TextFile(
      "chapters.xml",
      "<?xml version=\"1.0\"?><Chapters><EditionEntry><EditionFlagOrdered>1</EditionFlagOrdered>"
      "<EditionUID>77</EditionUID><ChapterAtom><ChapterUID>5</ChapterUID>"
      "<ChapterTimeStart>00:00:00.1</ChapterTimeStart><ChapterTimeEnd>00:00:00.3</ChapterTimeEnd>"
      "<ChapterDisplay><ChapterString>one</ChapterString></ChapterDisplay></ChapterAtom></EditionEntry>"
      "<EditionEntry><EditionUID>78</EditionUID><ChapterAtom><ChapterUID>6</ChapterUID>"
      "<ChapterTimeStart>00:00:00</ChapterTimeStart></ChapterAtom></EditionEntry></Chapters>");
  const std::string tags = TextFile(
      "tags.xml",
      "<?xml version=\"1.0\"?><Tags><Tag><Targets/><Simple><Name>RATING</Name><String>5</String><Simple>"
      "<Name>INNER</Name><String>deep</String></Simple></Simple></Tag></Tags>");
  const std::string large = MediaPath("mkv_attached.bin");
  WriteFile(large, Bytes(300000, 0xA3));
  const std::pair<const char*, std::string> kKinds[] = {
      {"merged", ""},
      {"zlib", "--compression 0:zlib --compression 1:zlib"},
      {"all_cues", "--cues 0:all --cues 1:all --cluster-length 100ms"},
      {"meta_seek", "--clusters-in-meta-seek --no-cues"},
      {"durations", "--enable-durations --disable-lacing --timestamp-scale 100000"},
      {"described",
       "--chapters '" + chapters + "' --global-tags '" + tags + "' --attach-file '" + large +
           "' --title here --language 0:und --cropping 0:2,4,2,4 --display-dimensions 0:200x120"},
  };
  for (const auto& [name, options] : kKinds) ExpectPatched(Merged(name, options));
}

TEST(MkvFiles, OfGStreamersMuxer) {
  if (test::Run("gst-inspect-1.0 matroskamux && gst-inspect-1.0 h264parse").exitCode != 0) GTEST_SKIP();
  for (const std::string options : {"", "streamable=true", "max-cluster-duration=100000000"}) {
    const std::string name = "mkv_gst" + std::to_string(options.size()) + ".mkv";
    ExpectPatched(MediaFile(name, "gst-launch-1.0 -q filesrc location='" + Clip() +
                                      "' ! matroskademux ! h264parse ! matroskamux " + options +
                                      " ! filesink location={out}"));
  }
}

TEST(MkvFiles, LookTheSameToOthers) {
  const std::string out = MediaPath("mkv_shown.mkv");
  for (const std::string& in : {Clip(), Merged("zlib", "--compression 0:zlib --compression 1:zlib"),
                                Remuxed("front", "-cues_to_front 1")}) {
    Patch(in, out, [](PatchOptions& options) { options.delimiters = true; });
    EXPECT_EQ(Shown(in), Shown(out)) << in;
    const auto decoded = [](const std::string& file) {
      return test::Run("ffmpeg -v error -i '" + file + "' -map 0 -f md5 -").output;
    };
    EXPECT_EQ(decoded(in), decoded(out)) << in;
    // The index leads to the same pictures.
    const auto sought = [](const std::string& file) {
      return test::Run("ffmpeg -v error -ss 0.41 -i '" + file + "' -map 0:v -frames:v 3 -f framemd5 -")
          .output;
    };
    EXPECT_EQ(sought(in), sought(out)) << in;
    EXPECT_EQ(test::Run("mkvinfo '" + out + "' | grep -ci 'error\\|invalid'").output, "0\n") << in;
  }
}

// What the container says of pictures, as mkvinfo and ffprobe read it.
TEST(MkvFiles, FactsOfPictures) {
  const std::string out = MediaPath("mkv_facts.mkv");
  Patch(Clip(), out, [](PatchOptions& options) {
    options.colour = qlnmedia::ColourCodes{9, 16, 9};
    options.fullRange = false;
    options.mastering = qlnmedia::MasteringDisplay{{34000, 16000}, {13250, 34500}, {7500, 3000},
                                                   {15635, 16450}, 10000000,       50};
    options.lightLevel = qlnmedia::LightLevel{1000, 400};
    options.sampleAspect = qlnmedia::SampleAspect{16, 11};
    options.cropping = qlnmedia::Cropping{0, 0, 0, 16};
  });
  const std::string info = test::Run("mkvinfo '" + out + "'").output;
  for (const char* line :
       {"matrix coefficients: 9", "ransfer: 16", "rimaries: 9", "range: 1", "Maximum content light: 1000",
        "Maximum frame light: 400", "Red color coordinate x: 0.68", "Green color coordinate y: 0.69",
        "Blue color coordinate x: 0.15", "White color coordinate y: 0.329", "Maximum luminance: 1000",
        "Minimum luminance: 0.005", "Pixel width: 160", "Pixel height: 112", "Display width: 160",
        "Display height: 77"})
    EXPECT_THAT(info, HasSubstr(line));
  const std::string shown =
      test::Run("ffprobe -v error -show_streams -select_streams v '" + out + "'").output;
  for (const char* line :
       {"sample_aspect_ratio=16:11", "color_primaries=bt2020", "color_transfer=smpte2084", "height=112"})
    EXPECT_THAT(shown, HasSubstr(line));
}

// Who calls a live stream off hears so, and of no failure.
TEST(MkvFiles, ALiveStreamThatIsCalledOff) {
  const std::string raw =
      MediaFile("mkv_clip.h264", "ffmpeg -v error -y -i '" + Clip() + "' -map 0:v -c copy -f h264 {out}");
  const std::string transport =
      MediaFile("mkv_clip.ts", "ffmpeg -v error -y -i '" + Clip() + "' -map 0 -c copy {out}");
  for (const std::string& in : {Clip(), raw, transport}) {
    SCOPED_TRACE(in);
    PatchOptions options;
    options.in = in;
    options.delimiters = true;
    options.progress = [](const qlnmedia::ProgressStep&) { return false; };
    const int input = open(in.c_str(), O_RDONLY | O_CLOEXEC);
    const int output = open("/dev/null", O_WRONLY | O_CLOEXEC);
    EXPECT_THROW(qlnmedia::PatchLive(options, {input, output, [](const std::string&) {}}),
                 qlnmedia::Cancelled);
    close(input);
    close(output);
  }
}

}  // namespace
}  // namespace qln::test::mkv
