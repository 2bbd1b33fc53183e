// What check and inspect say of captions: each fault planted by hand into a stream that had none.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <nlohmann/json.hpp>

#include "captions/caption_track.h"
#include "captions/line21.h"
#include "captions/service_block.h"
#include "qlnmedia/media/caption_media.h"

namespace qln::test {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

const Kind kSteady = {"avc_p", "h264", "25",
                      "-c:v libx264 -threads 1 -pix_fmt yuv420p -bf 0 -g 12 -x264-params slices=2:aud=1"};

TEST(CaptionCheck, NamesJoinedAndSpedUpStreams) {
  const std::string scc = Write("captions_check.scc", kScc);
  const Kind& kind = kSteady;
  const std::string in = Source(kind, "ts");
  const std::string out = MediaPath("captions_check.ts");
  ASSERT_EQ(Qlnmedia("patch '" + in + "' '" + out + "' --captions '" + scc + "'").exitCode, 0);
  EXPECT_THAT(Qlnmedia("check '" + out + "'").output, Not(HasSubstr("caption")));
  EXPECT_THAT(Qlnmedia("inspect --details '" + out + "'").output, HasSubstr("GOOD MORNING"));
  const auto plain = nlohmann::json::parse(Qlnmedia("inspect '" + in + "' --json").output);
  EXPECT_FALSE(plain["streams"][0].contains("captions"));
  EXPECT_EQ(plain["summary"]["streams"][0]["captions"], nullptr);

  const std::string joined = MediaPath("captions_joined.mp4");
  Text("ffmpeg -v error -y -i 'concat:" + out + "|" + in + "' -map 0:v -c copy '" + joined + "'");
  const CommandResult gaps = Qlnmedia("check '" + joined + "'");
  EXPECT_EQ(gaps.exitCode, 3);
  EXPECT_THAT(gaps.output,
              ContainsRegex("a gap of [0-9]+ pictures .* without captions in a stream that has some"));

  const std::string raw = MediaPath("captions_check.h264");
  const std::string faster = MediaPath("captions_faster.mp4");
  Text("ffmpeg -v error -y -i '" + out + "' -map 0:v -c copy '" + raw + "' && ffmpeg -v error -y -r 50 -i '" +
       raw + "' -c copy '" + faster + "'");
  EXPECT_THAT(Qlnmedia("check '" + faster + "'").output,
              HasSubstr("a picture with 24 caption triplets, more than the 12 of its rate"));
}

using Units = std::vector<Bytes>;

// The captions of each picture of a stream of 25 pictures a second, one unit each, as `change` leaves them.
std::string Planted(const std::string& name, const std::function<void(std::vector<Units>&)>& change) {
  const std::string scc = Write("captions_planted.scc", kScc);
  const std::string source =
      MediaFile("captions_planted.h264",
                "ffmpeg -v error -y -f lavfi -i testsrc2=s=64x48:d=1.2:r=25 -c:v libx264 "
                "-preset ultrafast -threads 1 -pix_fmt yuv420p -bf 0 -g 12 {out}");
  const std::string captioned = MediaPath("captions_planted_good.h264");
  EXPECT_EQ(Qlnmedia("patch '" + source + "' '" + captioned + "' --captions '" + scc + "'").exitCode, 0);
  const Bytes ga94 = {'G', 'A', '9', '4'};
  const auto isCaption = [&](const Bytes& unit) {
    return unit[0] == 6 && std::search(unit.begin(), unit.end(), ga94.begin(), ga94.end()) != unit.end();
  };
  const auto isSlice = [](const Bytes& unit) { return (unit[0] & 31) == 1 || (unit[0] & 31) == 5; };
  const Units units = SplitByteStream(ReadFile(captioned));
  std::vector<Units> captions;
  for (const Bytes& unit : units) {
    if (isCaption(unit)) captions.push_back({unit});
  }
  EXPECT_EQ(captions.size(), 30u);
  change(captions);
  Bytes stream;
  const auto add = [&stream](const Bytes& unit) {
    const Bytes coded = WithStartCode(unit);
    stream.insert(stream.end(), coded.begin(), coded.end());
  };
  size_t picture = 0;
  for (const Bytes& unit : units) {
    if (isCaption(unit)) continue;
    if (isSlice(unit)) std::for_each(captions[picture].begin(), captions[picture].end(), add);
    if (isSlice(unit)) ++picture;
    add(unit);
  }
  const std::string raw = MediaPath("captions_planted_" + name + ".h264");
  WriteFile(raw, stream);
  const std::string out = MediaPath("captions_planted_" + name + ".mp4");
  Text("ffmpeg -v error -y -r 25 -i '" + raw + "' -c copy '" + out + "'");
  return out;
}

// What check says of captions; streams that a test has put together may have other faults.
std::string Said(const std::string& file) {
  const CommandResult result = Qlnmedia("check '" + file + "'");
  EXPECT_EQ(result.exitCode == 3, result.output != "nothing found\n") << result.output;
  return Text("echo '" + result.output + "' | grep captions: || true");
}

TEST(CaptionCheck, FindsNothingWhereNothingIsPlanted) {
  EXPECT_EQ(Said(Planted("none", [](auto&) {})), "");
}

TEST(CaptionCheck, NamesBursts) {
  const std::string file = Planted("bursts", [](std::vector<Units>& captions) {
    for (size_t i = 10; i < 20; i += 2) {
      captions[i].push_back(captions[i + 1][0]);
      captions[i + 1].clear();
    }
  });
  EXPECT_EQ(Said(file),
            "stream 0, frame 10: captions: a burst of 48 caption triplets on one picture between pictures "
            "without any; its rate asks for 24 on each (5 times)\n");
}

TEST(CaptionCheck, NamesGaps) {
  const std::string file = Planted("gaps", [](std::vector<Units>& captions) {
    for (size_t i = 5; i < 15; ++i) captions[i].clear();
    captions[20].clear();
    captions[25].clear();
  });
  const CommandResult result = Qlnmedia("check '" + file + "' --json");
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_THAT(result.output,
              HasSubstr("a gap of 10 pictures (0.40 s) without captions in a stream that has some"));
  EXPECT_THAT(result.output, HasSubstr("\"frame\": 5"));
  EXPECT_THAT(result.output, HasSubstr("a picture without captions in a stream that has some"));
  EXPECT_THAT(result.output, HasSubstr("\"frame\": 20"));
  EXPECT_THAT(result.output, HasSubstr("\"count\": 2"));
}

TEST(CaptionCheck, NamesWrongCounts) {
  const std::string file = Planted("counts", [](std::vector<Units>& captions) {
    // Two triplets, and 31 of them, by hand.
    captions[3] = {Hex("06 04 11 B5 00 31 47 41 39 34 03 C2 FF FC 80 80 FA 00 00 FF 80")};
    Bytes most = Hex("06 04 68 B5 00 31 47 41 39 34 03 DF FF");
    for (int i = 0; i < 31; ++i) most.insert(most.end(), {0xFA, 0, 0});
    most.insert(most.end(), {0xFF, 0x80});
    captions[7] = {most};
  });
  EXPECT_EQ(
      Said(file),
      "stream 0, frame 3: captions: a picture with 2 caption triplets, fewer than the 24 of its rate\n"
      "stream 0, frame 7: captions: a picture with 31 caption triplets, more than the 24 of its rate\n");
}

TEST(CaptionCheck, LooksAtMpeg2) {
  const std::string scc = Write("captions_check_mpeg2.scc", kScc);
  const Kind kind = {"check_mpeg2", "m2v", "25", "-c:v mpeg2video -bf 2 -g 9"};
  const std::string in = Source(kind, "ts");
  const std::string out = PatchedName(kind, "ts");
  ASSERT_EQ(Qlnmedia("patch '" + in + "' '" + out + "' --captions '" + scc + "'").exitCode, 0);
  EXPECT_EQ(Qlnmedia("check '" + out + "'").output, "nothing found\n");
  const std::string joined = MediaPath("captions_check_mpeg2.mpg");
  Text("ffmpeg -v error -y -i 'concat:" + out + "|" + in + "' -map 0:v -c copy '" + joined + "'");
  const CommandResult result = Qlnmedia("check '" + joined + "'");
  EXPECT_EQ(result.exitCode, 3) << result.output;
  EXPECT_THAT(result.output, ContainsRegex("a gap of [0-9]+ pictures"));
}

// ---- Services ----

// Line 21 captions in both fields, and two digital services.
std::string ServicesFile() {
  qlnmedia::captions::Sequencer sequencer(qlnmedia::captions::Rate::k29_97);
  sequencer.AddPairs(1, qlnmedia::captions::PopOnCaption("FIRST FIELD"));
  std::vector<qlnmedia::captions::Pair> second;
  for (const qlnmedia::captions::Pair pair : qlnmedia::captions::PopOnCaption("SECOND FIELD"))
    second.push_back(pair >> 8 == 0x94 ? static_cast<qlnmedia::captions::Pair>(0x1500 | (pair & 0xFF))
                                       : pair);
  sequencer.AddPairs(2, second);
  int number = 0;
  for (const auto& [text, service] : {std::pair{"ENGLISH TEXT", 1}, std::pair{"TEXTE", 2}}) {
    for (const auto& block : qlnmedia::captions::ShowText(text, service))
      sequencer.AddService(
          qlnmedia::captions::TripletsOf(qlnmedia::captions::MakeChannelPacket(number++, {block})));
  }
  qlnmedia::captions::MccTrackWriter writer(qlnmedia::captions::Rate::k29_97);
  std::string text = writer.Heading();
  for (int64_t i = 0; i < 45; ++i) text += writer.Lines(sequencer.NextPicture(), i);
  return Write("captions_services.mcc", text);
}

TEST(CaptionServices, AreListedAndReadAsTheyAreByOthers) {
  const std::string mcc = ServicesFile();
  for (const Kind& kind :
       {Kind{"services_avc", "h264", "30000/1001", "-c:v libx264 -threads 1 -pix_fmt yuv420p -bf 3 -g 12"},
        Kind{"services_mpeg2", "m2v", "30000/1001", "-c:v mpeg2video -bf 2 -g 9"}}) {
    SCOPED_TRACE(kind.name);
    const std::string out = PatchedName(kind, "ts");
    const CommandResult patched =
        Qlnmedia("patch '" + Source(kind, "ts") + "' '" + out + "' --captions '" + mcc + "'");
    ASSERT_EQ(patched.exitCode, 0) << patched.output;
    const std::string seen = Text("mediainfo '--Output=Text;%Format%/%ID%\\n' '" + out + "'");
    for (const char* service : {"EIA-608", "-CC1", "-CC3", "EIA-708", "-1", "-2"})
      EXPECT_THAT(seen, HasSubstr(service)) << seen;

    const CommandResult inspected = Qlnmedia("inspect --details '" + out + "'");
    EXPECT_THAT(inspected.output, HasSubstr("CC1, CC3, service 1, service 2"));
    EXPECT_THAT(inspected.output, ContainsRegex("caption, CC1: .*FIRST FIELD"));
    EXPECT_THAT(inspected.output, ContainsRegex("caption, CC3: .*SECOND FIELD"));
    EXPECT_THAT(inspected.output, ContainsRegex("caption, service 1: .*ENGLISH TEXT"));
    EXPECT_THAT(inspected.output, ContainsRegex("caption, service 2: .*TEXTE"));

    const std::string all = Qlnmedia("captions '" + out + "'").output;
    EXPECT_THAT(all, ContainsRegex("CC3:\n.*SECOND FIELD\nservice 1:\n.*ENGLISH TEXT"));
    EXPECT_THAT(Qlnmedia("captions '" + out + "' --service CC3").output,
                ContainsRegex("^00.*SECOND FIELD\n$"));
    ASSERT_EQ(Qlnmedia("captions '" + out + "' --service 2 -o '" + out + ".srt'").exitCode, 0);
    EXPECT_THAT(FileText(out + ".srt"), ContainsRegex("^1\n00:00:00,.* --> 00:00:01,[0-9]*\nTEXTE\n\n$"));
    const CommandResult none = Qlnmedia("captions '" + out + "' --service 9");
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_THAT(none.output, HasSubstr("has no captions of service \"9\""));
    EXPECT_THAT(none.output, HasSubstr("it has CC1, CC3, service 1, service 2"));
    EXPECT_THAT(Qlnmedia("captions '" + out + "' --service 1 -o x.mcc").output, HasSubstr("goes with text"));
  }
}

}  // namespace
}  // namespace qln::test
