// MXF files that other programs made, patched by the engine: what was asked for changes, and nothing else, as
// our reader of triplets and ffprobe see it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

#include "mxf/list_triplets.h"
#include "mxf/made_file.h"
#include "qlnmedia/captions.h"
#include "qlnmedia/check.h"
#include "qlnmedia/error.h"
#include "qlnmedia/inspect.h"
#include "qlnmedia/patch.h"
#include "support/media.h"

namespace qln::test {
namespace {

using qlnmedia::PatchOptions;
using ::testing::HasSubstr;

const char* const kFfmpeg = "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x128:r=25:d=0.6 ";
const char* const kSound = "-f lavfi -i sine=r=48000:d=0.6 -c:a pcm_s16le -ac 2 ";
const char* const kAvc =
    "-c:v libx264 -threads 1 -preset ultrafast -bf 2 -g 8 -pix_fmt yuv420p -color_primaries bt709 "
    "-color_trc bt709 -colorspace bt709 ";

std::string Avc(const std::string& name, const std::string& options) {
  return MediaFile("mxf_" + name, std::string(kFfmpeg) + options + " {out}");
}

Bytes Contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

void Save(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::string Probed(const std::string& file, const std::string& show, const std::string& without) {
  return Run("ffprobe -v error " + show + " '" + file + "' | grep -vE '" + without + "'").output;
}

// Its multiplexer is another witness, where it is installed.
bool HasGStreamer() { return Run("gst-inspect-1.0 mxfmux && which gst-launch-1.0").exitCode == 0; }

// What was patched, beside what it was made of.
struct Patched {
  std::string in, path;
  Bytes was, is;
  std::string lines;
};

Patched Patch(const std::string& in, const std::function<void(PatchOptions&)>& ask) {
  Patched patched;
  patched.in = in;
  patched.path = MediaPath("patched_" + in.substr(in.rfind('/') + 1));
  PatchOptions options;
  options.in = in;
  options.out = patched.path;
  options.verify = true;
  ask(options);
  for (const std::string& line : qlnmedia::PatchFile(options).lines) patched.lines += line + "\n";
  patched.was = Contents(in);
  patched.is = Contents(patched.path);
  return patched;
}

// Digests of what an independent decoder makes of pictures and sound.
std::string Decoded(const std::string& file, const std::string& options = "") {
  return Run("ffmpeg -v error " + options + " -i '" + file + "' -f framemd5 - | grep -v '^#sar'").output;
}

// All but pictures, and what ffprobe says of times, sound and whatever `without` does not name.
void ExpectRestKept(const Patched& patched, bool described, const std::string& without = "nothing") {
  std::vector<Bytes> pictures;
  std::string number;
  for (const ReadTriplet& triplet : ListTriplets(patched.is)) {
    const std::string item = triplet.number().substr(0, 2);
    if (triplet.isEssence() && (item == "15" || item == "05")) number = triplet.number();
    if (triplet.isEssence() && triplet.number() == number) pictures.push_back(triplet.value);
  }
  ASSERT_FALSE(pictures.empty());
  ExpectCarried(patched.was, patched.is, pictures, number, described);
  const std::string moved = "^(filename|size|bit_rate|pos|extradata_size)=|" + without;
  for (const char* const show : {"-show_streams -show_format", "-show_packets"})
    EXPECT_EQ(Probed(patched.path, show, moved), Probed(patched.in, show, moved)) << show;
  EXPECT_EQ(Decoded(patched.path), Decoded(patched.in));
}

TEST(MxfFiles, MessagesGoIntoPictures) {
  std::vector<std::string> sources = {
      Avc("sound.mxf", std::string(kSound) + kAvc),
      Avc("plain.mxf", std::string(kAvc) + "-store_user_comments 0 -signal_standard smpte296m")};
  if (HasGStreamer()) {
    sources.push_back(MediaFile(
        "mxf_gst.mxf", "gst-launch-1.0 -q filesrc location='" +
                           MediaFile("mxf_gst.h264", std::string(kFfmpeg) + kAvc + "{out}") +
                           "' ! h264parse ! video/x-h264,stream-format=byte-stream,alignment=au ! mxfmux ! "
                           "filesink location={out}"));
  }
  for (const std::string& in : sources) {
    SCOPED_TRACE(in);
    const Patched patched = Patch(in, [](PatchOptions& options) {
      options.timecode = "10:00:00:00";
      options.delimiters = true;
    });
    EXPECT_THAT(patched.lines, HasSubstr("15 pictures got their timecode"));
    EXPECT_NE(patched.is, patched.was);
    ExpectRestKept(patched, false, "^(timecode|TAG:timecode|SIDE_DATA|side_data)");
    EXPECT_THAT(Probed(patched.path, "-select_streams v -show_frames", "nothing"), HasSubstr("10:00:00:14"));
  }
}

TEST(MxfFiles, DescriptorsSayWhatPicturesSay) {
  const Patched patched = Patch(Avc("sound.mxf", std::string(kSound) + kAvc), [](PatchOptions& options) {
    options.colour = qlnmedia::ParseColour("bt2020-pq");
    options.mastering = qlnmedia::ParseMasteringDisplay("p3");
    options.fullRange = true;
    options.sampleAspect = qlnmedia::ParseSampleAspect("4:3");
    options.level = qlnmedia::ParseLevel("4.1");
  });
  EXPECT_EQ(patched.is.size(), patched.was.size());  // it comes out of fill items
  ExpectRestKept(patched, true,
                 "^color_|aspect_ratio|^level|SIDE_DATA|side_data|^(red|green|blue|white|min|max)_|^pix_fmt");
  const std::string probed = Probed(patched.path, "-select_streams v -show_streams", "nothing");
  for (const char* const said :
       {"color_range=pc", "color_space=bt2020nc", "color_transfer=smpte2084", "color_primaries=bt2020",
        "sample_aspect_ratio=4:3", "level=41", "green_x=13250/50000", "max_luminance=10000000/10000"})
    EXPECT_THAT(probed, HasSubstr(said));
  for (const ReadTriplet& triplet : ListTriplets(patched.is)) {
    if (triplet.isSet() && triplet.key.substr(28, 2) == "6e") {
      EXPECT_EQ(TagsOf(triplet.value).at(0x8202), Bytes{41});
    }
  }
}

TEST(MxfFiles, AreReadLikeOthers) {
  const std::string in = Avc("sound.mxf", std::string(kSound) + kAvc);
  const std::string report = qlnmedia::InspectFile(in).ToJson();
  for (const char* const said : {"\"h264\"", "\"pcm_s16le\"", "\"format\": \"mxf\""})
    EXPECT_THAT(report, HasSubstr(said));
  for (const qlnmedia::Finding& finding : qlnmedia::CheckFile(in))
    EXPECT_NE(finding.severity, qlnmedia::Severity::kError) << finding.text;
}

// The stored size of MXF is that of whole macroblocks, of each field where these are stored apart; what is
// another one is found.
TEST(MxfFiles, StoredSizesAreNoFindings) {
  const char* const kLines =
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x120:r=25:d=0.2 -c:v libx264 "
      "-threads 1 -preset ultrafast -bf 2 -pix_fmt yuv420p ";
  const auto sizes = [](const std::string& file) {
    std::vector<std::string> found;
    for (const qlnmedia::Finding& finding : qlnmedia::CheckFile(file)) {
      if (finding.kind == qlnmedia::FindingKind::kSize) found.push_back(finding.text);
    }
    return found;
  };
  for (const auto& [name, options, stored] :
       {std::tuple("mxf_lines.mxf", "", 128),
        std::tuple("mxf_lines_fields.mxf", "-flags +ildct+ilme ", 64)}) {
    SCOPED_TRACE(name);
    const std::string in = MediaFile(name, std::string(kLines) + options + "{out}");
    EXPECT_EQ(sizes(in), std::vector<std::string>());
    Bytes bytes = Contents(in);
    const Bytes height = {0x32, 0x02, 0, 4, 0, 0, 0, static_cast<uint8_t>(stored)};
    const auto copies = [&](uint8_t to) {
      size_t count = 0;
      for (auto at = bytes.begin();; ++count) {
        at = std::search(at, bytes.end(), height.begin(), height.end() - 1);
        if (at == bytes.end()) return count;
        at += 7;
        *at = to;
      }
    };
    // What is shown is no mistake either, and neither size of one field is that of the frame.
    ASSERT_NE(copies(static_cast<uint8_t>(stored * 120 / 128)), 0u);
    Save(MediaPath("mxf_lines_shown.mxf"), bytes);
    EXPECT_EQ(sizes(MediaPath("mxf_lines_shown.mxf")), std::vector<std::string>());
    for (const int wrong : {stored / 2, stored - 16, stored + 16}) {
      copies(static_cast<uint8_t>(wrong));
      Save(MediaPath("mxf_lines_wrong.mxf"), bytes);
      EXPECT_THAT(sizes(MediaPath("mxf_lines_wrong.mxf")),
                  ::testing::ElementsAre(
                      HasSubstr(stored == 64 ? std::to_string(2 * wrong) : std::to_string(wrong))));
    }
  }
}

TEST(MxfFiles, NothingToChangeGivesTheInput) {
  const Patched patched = Patch(Avc("sound.mxf", std::string(kSound) + kAvc),
                                [](PatchOptions& options) { options.remove.filler = true; });
  EXPECT_EQ(patched.is, patched.was);
}

TEST(MxfFiles, CaptionsGoIntoMpeg2) {
  const std::string captions = MediaPath("mxf_captions.scc");
  std::ofstream(captions)
      << "Scenarist_SCC V1.0\n\n00:00:00:00\t9420 9420 94ae 94ae 9470 9470 c845 4c4c 4f80 942f 942f\n";
  const std::string rate =
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x128:r=30000/1001:d=0.6 -c:v mpeg2video -threads 1 -bf 2 "
      "-g 6 {out}";
  std::vector<std::string> sources = {MediaFile("mxf_mpeg2.mxf", rate)};
  if (HasGStreamer()) {
    sources.push_back(MediaFile("mxf_gst_mpeg2.mxf",
                                "gst-launch-1.0 -q filesrc location='" + MediaFile("mxf_gst.m2v", rate) +
                                    "' ! mpegvideoparse ! mxfmux ! filesink location={out}"));
  }
  for (const std::string& in : sources) {
    SCOPED_TRACE(in);
    const Patched patched = Patch(in, [&](PatchOptions& options) {
      options.captions = qlnmedia::CaptionOptions{captions, "", false};
    });
    ExpectRestKept(patched, false, "^closed_captions|SIDE_DATA|side_data");
    EXPECT_THAT(Probed(patched.path, "-show_frames", "nothing"), HasSubstr("ATSC A53"));
    EXPECT_THAT(qlnmedia::CaptionFileText(patched.path, qlnmedia::CaptionFileKind::kScc),
                HasSubstr("c845 4c4c"));
  }
}

TEST(MxfFiles, ConstantSizesStay) {
  const std::string in = MediaFile("mxf_avci.mxf",
                                   "ffmpeg -v error -y -f lavfi -i testsrc2=s=960x720:r=25:d=0.08 -c:v "
                                   "libx264 -threads 1 -preset ultrafast "
                                   "-x264-params avcintra-class=50 -pix_fmt yuv420p10le {out}");
  const Patched patched =
      Patch(in, [](PatchOptions& options) { options.colour = qlnmedia::ParseColour("bt2020-hlg"); });
  EXPECT_EQ(patched.is.size(), patched.was.size());
  ExpectRestKept(patched, true, "^color_");
  // D-10 in units of one size: captions would need room that there is none of.
  const std::string d10 = MediaFile(
      "mxf_d10.mxf",
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=720x512:r=30000/1001:d=0.1,noise=alls=60:allf=t -f lavfi -i "
      "sine=r=48000:d=0.1 -c:v mpeg2video -threads 1 -g 1 -b:v 30000k -minrate 30000k -maxrate 30000k "
      "-bufsize "
      "1001000 -rc_init_occupancy 1001000 -pix_fmt yuv422p -flags +ildct+low_delay -dc 10 -non_linear_quant "
      "1 "
      "-intra_vlc 1 -qmin 1 -ps 1 -qmax 12 -c:a pcm_s16le -ac 2 -f mxf_d10 {out}");
  const std::string captions = MediaPath("mxf_captions.scc");
  std::ofstream(captions)
      << "Scenarist_SCC V1.0\n\n00:00:00:00\t9420 9420 94ae 94ae 9470 9470 c845 4c4c 4f80 942f 942f\n";
  try {
    const Patched captioned = Patch(d10, [&](PatchOptions& options) {
      options.captions = qlnmedia::CaptionOptions{captions, "", false};
    });
    EXPECT_EQ(captioned.is.size(), captioned.was.size());
    ExpectRestKept(captioned, false, "^closed_captions|SIDE_DATA|side_data");
  } catch (const qlnmedia::Error& error) {
    EXPECT_THAT(error.what(), HasSubstr("bytes are missing"));
  }
}

TEST(MxfFiles, ClipsAreRefused) {
  const std::string in = MediaFile("mxf_clip.mxf",
                                   "ffmpeg -v error -y -f lavfi -i testsrc2=s=960x720:r=25:d=0.08 -c:v "
                                   "libx264 -threads 1 -preset ultrafast "
                                   "-x264-params avcintra-class=50 -pix_fmt yuv420p10le -f mxf_opatom {out}");
  try {
    Patch(in, [](PatchOptions& options) { options.delimiters = true; });
    ADD_FAILURE();
  } catch (const qlnmedia::Error& error) {
    EXPECT_THAT(error.what(), HasSubstr("its essence is clip-wrapped"));
  }
}

// The access units of a raw stream that begins each with a delimiter.
std::vector<Bytes> AccessUnits(const Bytes& stream, uint8_t delimiter) {
  std::vector<Bytes> units;
  for (size_t at = 0; at < stream.size(); ++at) {
    const bool begins = at + 4 < stream.size() && stream[at] == 0 && stream[at + 1] == 0 &&
                        stream[at + 2] == 0 && stream[at + 3] == 1 && stream[at + 4] == delimiter;
    if (begins) units.emplace_back();
    if (!units.empty()) units.back().push_back(stream[at]);
  }
  return units;
}

// No muxer here writes HEVC, nor an index that tells nothing, nor fill items of one byte of length.
TEST(MxfFiles, HevcIsReadAndPatched) {
  const std::string stream = MediaFile(
      "mxf_hevc.hevc", std::string(kFfmpeg) +
                           "-pix_fmt yuv420p -c:v libx265 -preset ultrafast -x265-params "
                           "pools=1:frame-threads=1:log-level=none:aud=1:bframes=0:repeat-headers=1 {out}");
  MadeOptions made;
  made.coded = Coded::kHevc;
  made.alignment = 512;
  for (const bool indexed : {true, false}) {
    made.index = indexed ? Indexed::kByEntries : Indexed::kNot;
    made.sound = indexed;
    const std::string in = MediaPath(indexed ? "mxf_hevc.mxf" : "mxf_hevc_bare.mxf");
    Save(in, MakeFile(AccessUnits(Contents(stream), 0x46), made));
    const std::string report = qlnmedia::InspectFile(in).ToJson();
    EXPECT_THAT(report, HasSubstr("\"codec\": \"hevc\""));
    const Patched patched = Patch(in, [](PatchOptions& options) {
      options.timecode = "01:00:00:00";
      options.colour = qlnmedia::ParseColour("bt2020-hlg");
    });
    EXPECT_THAT(patched.lines, HasSubstr("15 pictures got their timecode"));
    std::vector<Bytes> pictures;
    for (const ReadTriplet& triplet : ListTriplets(patched.is)) {
      if (triplet.isEssence() && triplet.number() == "15010500") pictures.push_back(triplet.value);
    }
    ExpectCarried(patched.was, patched.is, pictures, "15010500", true);
    EXPECT_EQ(Decoded(patched.path, "-c:v hevc"), Decoded(in, "-c:v hevc"));
  }
}

}  // namespace
}  // namespace qln::test
