// OPAtom files (SMPTE ST 390) of one picture track, wrapped frame by frame: put together by hand, since
// muxers at hand write OPAtom with all pictures in one element. They are patched, checked, inspected and read
// for captions, and ffprobe sees the same before and after.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "mxf/caption_files.h"
#include "mxf/list_triplets.h"
#include "qlnmedia/check.h"
#include "qlnmedia/error.h"
#include "qlnmedia/inspect.h"
#include "qlnmedia/patch.h"

namespace qln::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

const char* const kEncode = "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x128:r=30000/1001:d=0.5 ";

struct Kind {
  const char* name;
  Coded coded;
  const char* extension;
  const char* options;
  Bytes begin;  // of each picture's bytes
};

std::vector<Kind> Kinds() {
  return {{"h264",
           Coded::kAvc,
           "h264",
           "-c:v libx264 -threads 1 -preset ultrafast -x264-params aud=1:bframes=2:b-adapt=0:keyint=6 "
           "-pix_fmt yuv420p {out}",
           {0, 0, 0, 1, 0x09}},
          {"hevc",
           Coded::kHevc,
           "hevc",
           "-pix_fmt yuv420p -c:v libx265 -preset ultrafast -x265-params "
           "pools=1:frame-threads=1:log-level=none:aud=1:bframes=0:repeat-headers=1 {out}",
           {0, 0, 0, 1, 0x46}},
          {"mpeg2video", Coded::kMpeg2, "m2v", "-c:v mpeg2video -threads 1 -g 1 {out}", {0, 0, 1, 0xB3}}};
}

std::vector<Bytes> PicturesOf(const Bytes& stream, const Bytes& begin) {
  std::vector<Bytes> pictures;
  for (size_t at = 0; at < stream.size(); ++at) {
    if (at + begin.size() <= stream.size() &&
        std::equal(begin.begin(), begin.end(), stream.begin() + static_cast<std::ptrdiff_t>(at)))
      pictures.emplace_back();
    if (!pictures.empty()) pictures.back().push_back(stream[at]);
  }
  return pictures;
}

// Header, one partition of essence and nothing else in it, the index in the footer or right behind the
// essence.
MadeOptions Atom(Coded coded, bool indexInBody) {
  MadeOptions made;
  made.coded = coded;
  made.opAtom = true;
  made.sound = made.systemItem = false;
  made.rate = 30000;
  made.rateScale = 1001;
  made.indexInBody = indexInBody;
  made.alignment = indexInBody ? 1 : 512;
  return made;
}

std::string Probed(const std::string& file) {
  return qln::test::Run("ffprobe -v quiet -show_streams -show_format -show_packets '" + file +
                        "' | grep -vE '^(filename|size|bit_rate|pos|extradata_size)=|side_data|SIDE_DATA|"
                        "closed_captions|^color_'")
      .output;
}

std::string Decoded(const std::string& file, const Kind& kind) {
  return qln::test::Run(std::string("ffmpeg -v quiet -c:v ") + kind.name + " -i '" + file + "' -f framemd5 -")
      .output;
}

std::vector<Bytes> Essence(const Bytes& file) {
  std::vector<Bytes> pictures;
  for (const ReadTriplet& triplet : ListTriplets(file)) {
    if (triplet.isEssence()) pictures.push_back(triplet.value);
  }
  return pictures;
}

std::string Patched(const std::string& in, const std::function<void(qlnmedia::PatchOptions&)>& ask,
                    std::string& lines) {
  qlnmedia::PatchOptions options;
  options.in = in;
  options.out = in + ".out.mxf";
  options.verify = true;
  ask(options);
  lines.clear();
  for (const std::string& line : qlnmedia::PatchFile(options).lines) lines += line + "\n";
  return options.out;
}

void ExpectPatched(const std::string& in, const std::string& out, const Kind& kind) {
  const Bytes was = Contents(in), is = Contents(out);
  EXPECT_NE(was, is);
  ExpectCarried(was, is, Essence(is), "15010500", true);
  EXPECT_EQ(Probed(out), Probed(in));
  EXPECT_EQ(Decoded(out, kind), Decoded(in, kind));
}

TEST(MxfAtom, IsPatchedCheckedAndInspected) {
  for (const Kind& kind : Kinds()) {
    SCOPED_TRACE(kind.name);
    const std::string stream =
        MediaFile(std::string("mxf_atom.") + kind.extension, std::string(kEncode) + kind.options);
    const std::vector<Bytes> pictures = PicturesOf(Contents(stream), kind.begin);
    ASSERT_EQ(pictures.size(), 15u);
    for (const bool behind : {false, true}) {
      SCOPED_TRACE(behind);
      const std::string in =
          Save(std::string("mxf_atom_") + kind.name + ".mxf", MakeFile(pictures, Atom(kind.coded, behind)));
      EXPECT_THAT(Probed(in), HasSubstr("TAG:operational_pattern_ul=060e2b34.04010102.0d010201.10000000"));
      const std::string report = qlnmedia::InspectFile(in).ToJson();
      EXPECT_THAT(report, HasSubstr(std::string("\"codec\": \"") + kind.name));
      for (const qlnmedia::Finding& finding : qlnmedia::CheckFile(in))
        EXPECT_NE(finding.severity, qlnmedia::Severity::kError) << finding.text;
      if (kind.coded == Coded::kMpeg2) continue;  // it takes captions alone
      std::string lines;
      const std::string out = Patched(
          in,
          [](qlnmedia::PatchOptions& options) {
            options.timecode = "10:00:00;00";
            options.colour = qlnmedia::ParseColour("bt2020-hlg");
          },
          lines);
      EXPECT_THAT(lines, HasSubstr("15 pictures got their timecode"));
      EXPECT_THAT(qlnmedia::InspectFile(out).ToJson(),
                  HasSubstr(kind.coded == Coded::kAvc ? "10:00:00;03" : "10:00:00;02"));
      ExpectPatched(in, out, kind);
    }
  }
}

TEST(MxfAtom, TakesCaptionsAndGivesThem) {
  const std::string scc = MediaPath("mxf_atom.scc");
  std::ofstream(scc) << "Scenarist_SCC V1.0\n\n"
                        "00:00:00:02\t94ae 94ae 9420 9420 9470 9470 c845 4c4c 4f80 942f 942f\n";
  for (const Kind& kind : Kinds()) {
    SCOPED_TRACE(kind.name);
    const std::string stream =
        MediaFile(std::string("mxf_atom.") + kind.extension, std::string(kEncode) + kind.options);
    const std::string in = Save(std::string("mxf_atom_bare_") + kind.name + ".mxf",
                                MakeFile(PicturesOf(Contents(stream), kind.begin), Atom(kind.coded, false)));
    std::string lines;
    const auto ask = [&scc](qlnmedia::PatchOptions& options) {
      options.captions = qlnmedia::CaptionOptions{scc, "", false};
    };
    const std::string out = Patched(in, ask, lines);
    ExpectPatched(in, out, kind);
    EXPECT_THAT(qlnmedia::CaptionFileText(out, qlnmedia::CaptionFileKind::kScc), HasSubstr("c845 4c4c"));
    // Those of the stream, where it was captioned before it was wrapped.
    qlnmedia::PatchOptions options;
    options.in = stream;
    options.out = MediaPath(std::string("mxf_atom_captions.") + kind.extension);
    ask(options);
    if (kind.coded != Coded::kMpeg2) {
      qlnmedia::PatchFile(options);
      const std::string wrapped =
          Save(std::string("mxf_atom_captions_") + kind.name + ".mxf",
               MakeFile(PicturesOf(Contents(options.out), kind.begin), Atom(kind.coded, true)));
      EXPECT_EQ(Mcc(wrapped), Mcc(options.out));
      EXPECT_EQ(Mcc(out), Mcc(options.out));
    }
  }
}

// A level in the sets goes into the properties of the AVC sub-descriptor that are there.
TEST(MxfAtom, LevelsGoIntoTheSubDescriptor) {
  const Kind kind = Kinds()[0];
  const std::string stream =
      MediaFile("mxf_atom_main.h264", std::string(kEncode) +
                                          "-c:v libx264 -threads 1 -preset ultrafast -profile:v baseline "
                                          "-x264-params aud=1 -pix_fmt yuv420p {out}");
  MadeOptions made = Atom(Coded::kAvc, false);
  made.details = true;
  const std::string in = Save("mxf_atom_level.mxf", MakeFile(PicturesOf(Contents(stream), kind.begin), made));
  const auto details = [](const std::string& file) {
    for (const ReadTriplet& triplet : ListTriplets(Contents(file))) {
      if (triplet.isSet() && triplet.key.substr(28, 2) == "6e") return TagsOf(triplet.value);
    }
    return std::map<uint16_t, Bytes>();
  };
  const std::map<uint16_t, Bytes> was = details(in);
  std::string lines;
  for (const auto& [level, number, flags] : {std::tuple("4.1", 41, 0xC0), std::tuple("1b", 11, 0xD0)}) {
    SCOPED_TRACE(level);
    const std::string text = level;
    const std::string out = Patched(
        in, [&](qlnmedia::PatchOptions& options) { options.level = qlnmedia::ParseLevel(text); }, lines);
    std::map<uint16_t, Bytes> is = details(out);
    EXPECT_EQ(is.at(kLevelTag), Bytes{static_cast<uint8_t>(number)});
    EXPECT_EQ(is.at(kConstraintsTag), Bytes{static_cast<uint8_t>(flags)});
    is[kLevelTag] = was.at(kLevelTag);
    is[kConstraintsTag] = was.at(kConstraintsTag);
    EXPECT_EQ(is, was);
    // As the bytes behind the profile in the sets are.
    const Bytes picture = Essence(Contents(out))[0];
    const Bytes sps = {0, 0, 1, 0x67, 66, static_cast<uint8_t>(flags), static_cast<uint8_t>(number)};
    EXPECT_NE(std::search(picture.begin(), picture.end(), sps.begin(), sps.end()), picture.end());
  }
  EXPECT_THAT(lines, Not(HasSubstr("sub-descriptor")));
}

// Nothing here can tell the properties of HEVC's apart: it stays, and that is said.
TEST(MxfAtom, LevelsOfHevcAreLeftInItsSubDescriptor) {
  const Kind kind = Kinds()[1];
  const std::string stream =
      MediaFile(std::string("mxf_atom.") + kind.extension, std::string(kEncode) + kind.options);
  MadeOptions made = Atom(kind.coded, false);
  made.details = true;
  const std::string in =
      Save("mxf_atom_hevc_level.mxf", MakeFile(PicturesOf(Contents(stream), kind.begin), made));
  std::string lines;
  const auto ask = [](qlnmedia::PatchOptions& options) { options.level = qlnmedia::ParseLevel("5.1"); };
  const std::string out = Patched(in, ask, lines);
  EXPECT_THAT(lines, HasSubstr("warning: stream 0: what a sub-descriptor says of its level and tier stays"));
  ExpectCarried(Contents(in), Contents(out), Essence(Contents(out)), "15010500", false);
  made.details = false;
  Save("mxf_atom_hevc_level.mxf", MakeFile(PicturesOf(Contents(stream), kind.begin), made));
  Patched(in, ask, lines);
  EXPECT_THAT(lines, Not(HasSubstr("sub-descriptor")));
}

}  // namespace
}  // namespace qln::test
