// Captions from one form into all others and back, at every rate: forms that hold the same facts give the
// same triplets, others the same pairs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "captions/sequencer.h"
#include "container/file_captions.h"
#include "mp4/build_boxes.h"
#include "qlnmedia/caption_file.h"
#include "qlnmedia/check.h"
#include "qlnmedia/error.h"
#include "qlnmedia/patch.h"
#include "support/media.h"
#include "support/pes_packets.h"

namespace qlnmedia {
namespace {

using qln::test::AppendBytes;
using qln::test::Bytes;
using qln::test::MediaPath;
using testing::HasSubstr;

constexpr int kPictures = 90;
constexpr int kMap = 0x100, kVideo = 0x101;

struct Form {
  captions::Rate rate;
  bool dropFrame = false;
  const captions::RateInfo& info() const { return captions::InfoOf(rate); }
  int code() const { return static_cast<int>(rate) + 1; }  // frame_rate_code
};

std::string Save(const std::string& name, const std::string& text) {
  const std::string path = MediaPath("caption_forms_" + name);
  qln::test::WriteFile(path, Bytes(text.begin(), text.end()));
  return path;
}

// Pictures with captions of both fields and digital ones, in labels that cross a minute.
CaptionPictureList ListOf(const Form& form) {
  captions::Sequencer sequencer(form.rate);
  for (const char* text : {"HELLO", "ROUND TRIP"}) sequencer.AddPairs(1, captions::PopOnCaption(text));
  sequencer.AddPairs(2, {0x15AE, 0x15AE, 0xC1C2});
  std::vector<captions::Triplet> service = {{true, captions::CcType::kServiceStart, 0x43, 0x25}};
  for (int i = 0; i < 30; ++i) service.push_back({true, captions::CcType::kServiceData, 0x41, 0x42});
  sequencer.AddService(service);
  CaptionPictureList list{{form.info().numerator, form.info().denominator}, form.dropFrame, {}};
  const captions::Timecode first = {1, 0, 59, 0};
  const int64_t at = captions::PictureOf(first, form.info().nominal, form.dropFrame).value();
  for (int i = 0; i < kPictures; ++i) list.pictures.push_back({at + i, sequencer.NextPicture()});
  return list;
}

// The label of the first picture.
std::string Begin(const Form& form) { return form.dropFrame ? "01:00:59;00" : "01:00:59:00"; }

std::string Raw(const Form& form) {
  Bytes bytes;
  for (int i = 0; i < kPictures; ++i) AppendBytes(bytes, qln::test::SmallPicture(form.code()));
  return Save("in.m2v", {bytes.begin(), bytes.end()});
}

// Times in units of 90 kHz.
int64_t TimeOf(const Form& form, int picture) {
  return 90000 + std::llround(90000.0 * picture * form.info().denominator / form.info().numerator);
}

std::string Transport(const Form& form) {
  Bytes bytes = qln::test::TablePackets(0, qln::test::AssociationTable(kMap));
  AppendBytes(bytes, qln::test::TablePackets(kMap, qln::test::MapTable({{0x02, kVideo}})));
  for (int i = 0; i < kPictures; ++i)
    AppendBytes(bytes,
                qln::test::PesPacket(kVideo, 0xE0, TimeOf(form, i), qln::test::SmallPicture(form.code()), i));
  return Save("in.ts", {bytes.begin(), bytes.end()});
}

std::string Movie(const Form& form) {
  qln::test::mp4::TrackSpec video;
  video.format = "m2v1";
  video.samples.assign(kPictures, qln::test::SmallPicture(form.code()));
  for (int i = 0; i < kPictures; ++i)
    video.durations.push_back(
        static_cast<uint32_t>((TimeOf(form, i + 1) - 90000) / 90 - (TimeOf(form, i) - 90000) / 90));
  qln::test::mp4::MovieSpec movie;
  movie.brand = "qt  ";
  movie.tracks = {video};
  const Bytes bytes = qln::test::mp4::BuildMovie(movie);
  return Save("in.mov", {bytes.begin(), bytes.end()});
}

// Puts the captions of a file into another one, whose first picture has the label `offset`.
std::string Put(const std::string& in, const std::string& captions, const std::string& name,
                const std::string& offset = "", CaptionPlace place = CaptionPlace::kPictures) {
  PatchOptions options;
  options.in = in;
  options.out = MediaPath("caption_forms_" + name);
  options.captions = CaptionOptions{captions, offset, false, {}, place};
  PatchFile(options);
  return options.out;
}

std::string Text(const std::string& path, CaptionFileKind kind, const Form& form) {
  CaptionTiming timing;
  timing.start = Begin(form);
  return CaptionFileText(path, kind, {}, {}, timing);
}

// All triplets with their labels.
std::string Mcc(const std::string& path, const Form& form) { return Text(path, CaptionFileKind::kMcc, form); }

// Pairs alone.
std::string PairsOf(const std::string& scc) {
  std::string pairs;
  for (size_t at = 0; (at = scc.find('\t', at)) != std::string::npos;) {
    const size_t end = scc.find('\n', ++at);
    pairs += scc.substr(at, end - at) + " ";
  }
  return pairs;
}

class CaptionForms : public testing::TestWithParam<Form> {};

TEST_P(CaptionForms, LeadToEachOther) {
  const Form form = GetParam();
  const std::string text = CaptionFileText(ListOf(form), CaptionFileKind::kMcc);
  const std::string mcc = Save("in.mcc", text);
  // Pictures, an ancillary stream, and elementary ancillary data hold all triplets of each picture.
  const std::string pictures = Put(Raw(form), mcc, "pictures.m2v", Begin(form));
  EXPECT_EQ(Mcc(pictures, form), text);
  const std::string stream = Put(Transport(form), mcc, "stream.ts", Begin(form), CaptionPlace::kStream);
  EXPECT_EQ(Mcc(stream, form), text);
  const std::string anc = Save("out.anc", CaptionFileText(stream, CaptionFileKind::kAnc));
  EXPECT_EQ(Mcc(anc, form), text);
  // And from one to the next.
  const std::string inTransport = Put(Transport(form), pictures, "pictures.ts");
  EXPECT_EQ(Mcc(inTransport, form), text);
  EXPECT_EQ(Mcc(Put(Raw(form), anc, "pictures.m2v"), form), text);
  EXPECT_EQ(CaptionFileText(Put(Transport(form), inTransport, "stream.ts", "", CaptionPlace::kStream),
                            CaptionFileKind::kAnc),
            CaptionFileText(anc, CaptionFileKind::kAnc));
  // A .scc file has field 1 alone, a track of MOV line 21; both have every pair.
  const std::string scc = Text(pictures, CaptionFileKind::kScc, form);
  EXPECT_THAT(PairsOf(scc), HasSubstr("942f"));
  for (const std::string& other : {stream, anc}) EXPECT_EQ(Text(other, CaptionFileKind::kScc, form), scc);
  EXPECT_EQ(PairsOf(CaptionFileText(mcc, CaptionFileKind::kScc)), PairsOf(scc));
  const std::string track = Put(Movie(form), mcc, "track.mov", Begin(form), CaptionPlace::kTrack);
  EXPECT_EQ(PairsOf(Text(track, CaptionFileKind::kScc, form)), PairsOf(scc));
  const std::string ofTrack = Put(Transport(form), track, "track.ts", "", CaptionPlace::kStream);
  EXPECT_EQ(PairsOf(Text(ofTrack, CaptionFileKind::kScc, form)), PairsOf(scc));
  const std::string ofScc = Put(Raw(form), Save("out.scc", scc), "scc.m2v", Begin(form));
  const std::string again = Text(ofScc, CaptionFileKind::kScc, form);
  EXPECT_EQ(PairsOf(again), PairsOf(scc));
  // Slower pictures have two pairs here and one there, so that a run of them may be parted.
  if (form.info().nominal >= 30) {
    EXPECT_EQ(again, scc);
  }
  for (const std::string& path : {pictures, stream}) {
    for (const Finding& finding : CheckFile(path))
      EXPECT_NE(finding.kind, FindingKind::kCaptions) << finding.text;
  }
}

using captions::Rate;
INSTANTIATE_TEST_SUITE_P(Rates, CaptionForms,
                         testing::Values(Form{Rate::k23_976}, Form{Rate::k24}, Form{Rate::k25},
                                         Form{Rate::k29_97}, Form{Rate::k29_97, true}, Form{Rate::k30},
                                         Form{Rate::k50}, Form{Rate::k59_94}, Form{Rate::k59_94, true},
                                         Form{Rate::k60}),
                         [](const auto& test) {
                           return std::to_string(test.param.code()) + (test.param.dropFrame ? "drop" : "");
                         });

// 40 pictures that are shown for 3, 2, 3, 2 ... fields, as 50 frames of 29.97 a second.
std::string Pulldown() {
  Bytes bytes = qln::test::TablePackets(0, qln::test::AssociationTable(kMap));
  AppendBytes(bytes, qln::test::TablePackets(kMap, qln::test::MapTable({{0x02, kVideo}})));
  int field = 0;
  for (int i = 0; i < 40; ++i) {
    const int fields = i % 2 == 0 ? 3 : 2;
    AppendBytes(bytes, qln::test::PesPacket(kVideo, 0xE0, 90000 + field * 3003 / 2,
                                            qln::test::SmallPicture(4, fields, field % 2 == 0), i));
    field += fields;
  }
  return Save("pulldown.ts", {bytes.begin(), bytes.end()});
}

TEST(CaptionPulldown, HasTheTripletsOfEachFieldThatIsShown) {
  const Form form = {captions::Rate::k29_97};
  CaptionPictureList list = ListOf(form);
  list.pictures.resize(50);
  const std::string mcc = Save("pulldown.mcc", CaptionFileText(list, CaptionFileKind::kMcc));
  const std::string out = Put(Pulldown(), mcc, "pulldown_out.ts", Begin(form));
  // 600 triplets a second (ATSC A/53 Part 4 clause 6.2.3): ten for each field.
  const CaptionSurvey survey = SurveyCaptions(out);
  std::vector<uint8_t> wanted;
  for (int i = 0; i < 40; ++i) wanted.push_back(i % 2 == 0 ? 30 : 20);
  EXPECT_EQ(survey.counts, wanted);
  for (const Finding& finding : CheckFile(out))
    EXPECT_NE(finding.kind, FindingKind::kCaptions) << finding.text;
  // Pairs of the fields in turn, as they are shown; each picture of three begins with the other one.
  size_t picture = 0, pairs = 0;
  ReadCaptions(survey, [&](const CaptionedPicture& one) {
    size_t ofPicture = 0;
    for (const captions::Triplet& t : one.triplets) {
      if (t.type != captions::CcType::kField1 && t.type != captions::CcType::kField2) continue;
      EXPECT_EQ(t.type, pairs % 2 == 0 ? captions::CcType::kField1 : captions::CcType::kField2);
      ++pairs;
      ++ofPicture;
    }
    EXPECT_EQ(ofPicture, picture++ % 2 == 0 ? 3u : 2u);
  });
  EXPECT_EQ(pairs, 100u);
  // The frames that are shown have what went in.
  EXPECT_EQ(Text(out, CaptionFileKind::kScc, form), CaptionFileText(mcc, CaptionFileKind::kScc));
  EXPECT_THAT(Mcc(out, form), HasSubstr("Time Code Rate=30\n"));
  EXPECT_EQ(ReadFileCaptions(out).services.size(), ReadFileCaptions(mcc).services.size());
  // A rate that is asked for has its own.
  PatchOptions options;
  options.in = Pulldown();
  options.out = MediaPath("caption_forms_asked.ts");
  options.captions = CaptionOptions{mcc, Begin(form), false};
  options.rate = "23.976";
  PatchFile(options);
  EXPECT_EQ(SurveyCaptions(options.out).counts, std::vector<uint8_t>(40, 25));
  // A count that is not that of its fields is found.
  const auto found = CheckFile(options.out);
  EXPECT_TRUE(std::any_of(found.begin(), found.end(), [](const Finding& finding) {
    return finding.text == "a picture with 25 caption triplets, fewer than the 30 of its rate";
  }));
}

// pic_struct 5 of HEVC (table D.2): each picture stands for three fields, twenty pictures a second for sixty.
TEST(CaptionPulldown, HasThoseOfFieldsOfHevc) {
  const CaptionSurvey survey = SurveyCaptions(qln::test::MediaFile(
      "pulldown_hevc.ts",
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x112:r=20000/1001:d=0.5 -c:v libx265 -preset ultrafast "
      "-x265-params "
      "log-level=none:pools=1:frame-threads=1:pic-struct=5:hrd=1:vbv-maxrate=1000:vbv-bufsize=1000 "
      "{out}"));
  EXPECT_EQ(survey.fields, std::vector<uint8_t>(10, 3));
  EXPECT_EQ(survey.fieldRate, captions::Rate::k59_94);
}

}  // namespace
}  // namespace qlnmedia
