// The summary of real files, held to what an independent reader says of each.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>

#include "qlnmedia/inspect.h"
#include "qlnmedia/program.h"
#include "support/field_stream.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using Json = nlohmann::ordered_json;

constexpr char kSources[] =
    "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x112:r=25:d=0.8 -f lavfi -i sine=r=48000:d=0.8 ";

Json SummaryOf(const std::string& file) {
  qlnmedia::InspectOptions options;
  options.details = false;
  return Json::parse(qlnmedia::InspectFile(file, options).ToJson())["summary"];
}

Json Probed(const std::string& file) {
  return Json::parse(
      test::Run("ffprobe -v error -show_streams -show_programs -show_format -of json '" + file + "'").output);
}

std::string Word(const Json& value, const char* key) {
  return value.contains(key) ? value[key].get<std::string>() : std::string();
}

std::string Ratio(const Json& value, const char* between, const char* first, const char* second) {
  return value.is_null() ? "" : value[first].dump() + between + value[second].dump();
}

// What ffprobe's words are here.
std::string Mapped(const std::map<std::string, std::string>& words, const std::string& word) {
  const auto found = words.find(word);
  return found == words.end() ? "" : found->second;
}

void ExpectPictures(const Json& stream, const Json& probed) {
  EXPECT_EQ(stream["width"], probed["width"]);
  EXPECT_EQ(stream["height"], probed["height"]);
  EXPECT_EQ(stream["profile"], Word(probed, "profile"));
  const int level = probed["level"].get<int>();
  if (probed["codec_name"] == "h264") {
    EXPECT_EQ(std::stod(stream["level"].get<std::string>()), level / 10.0);
  }
  if (probed["codec_name"] == "hevc") {
    EXPECT_EQ(std::stod(stream["level"].get<std::string>()), level / 30.0);
  }
  if (probed.contains("sample_aspect_ratio")) {
    EXPECT_EQ(Ratio(stream["sample_aspect_ratio"], ":", "width", "height"),
              Word(probed, "sample_aspect_ratio"));
    EXPECT_EQ(Ratio(stream["display_aspect_ratio"], ":", "width", "height"),
              Word(probed, "display_aspect_ratio"));
  }
  const std::string order = Word(probed, "field_order");
  EXPECT_EQ(stream["scan"], order == "progressive" ? "progressive" : "interlaced") << order;
  if (order != "progressive") {
    EXPECT_EQ(stream["field_order"],
              Mapped({{"tt", "top field first"}, {"bb", "bottom field first"}}, order));
  }
  EXPECT_EQ(stream["chroma_format"],
            Word(probed, "pix_fmt").find("422") != std::string::npos ? "4:2:2" : "4:2:0");
  EXPECT_EQ(stream["bit_depth"], Word(probed, "pix_fmt").find("10le") != std::string::npos ? 10 : 8);
  EXPECT_EQ(Ratio(stream["frame_rate"], "/", "numerator", "denominator"), Word(probed, "avg_frame_rate"));
  EXPECT_EQ(stream["range"].is_null() ? "" : stream["range"],
            Mapped({{"tv", "limited"}, {"pc", "full"}}, Word(probed, "color_range")));
  EXPECT_EQ(stream["transfer_characteristics"].is_null() ? "" : stream["transfer_characteristics"],
            Mapped({{"bt709", "BT.709"},
                    {"smpte2084", "PQ (SMPTE ST 2084)"},
                    {"arib-std-b67", "HLG (ARIB STD-B67)"},
                    {"smpte170m", "BT.601"}},
                   Word(probed, "color_transfer")));
}

void ExpectSound(const Json& stream, const Json& probed) {
  EXPECT_EQ(stream["sample_rate"].dump(), Word(probed, "sample_rate"));
  EXPECT_EQ(stream["channels"], probed["channels"]);
  EXPECT_EQ(stream["channel_layout"].is_null() ? "" : stream["channel_layout"],
            Word(probed, "channel_layout"));
  EXPECT_EQ(stream["profile"].is_null() ? "" : stream["profile"], Word(probed, "profile"));
  if (probed.contains("bit_rate")) {
    EXPECT_EQ(stream["bit_rate"].dump(), Word(probed, "bit_rate"));
  }
}

void ExpectAsProbed(const std::string& file) {
  SCOPED_TRACE(file);
  const Json summary = SummaryOf(file);
  const Json probed = Probed(file);
  ASSERT_EQ(summary["streams"].size(), probed["streams"].size());
  EXPECT_EQ(summary["format"], probed["format"]["format_name"]);
  for (size_t i = 0; i < summary["streams"].size(); ++i) {
    const Json& stream = summary["streams"][i];
    const Json& other = probed["streams"][i];
    EXPECT_EQ(stream["type"], other["codec_type"]);
    if (other.contains("codec_name")) {
      EXPECT_EQ(stream["codec"], other["codec_name"]);
    }
    EXPECT_EQ(stream["language"].is_null() ? "" : stream["language"],
              other.contains("tags") ? Word(other["tags"], "language") : "");
    if (other.contains("id")) {
      EXPECT_EQ(stream["id"].get<int>(), std::stoi(Word(other, "id"), nullptr, 16));
    }
    if (other["codec_type"] == "video") ExpectPictures(stream, other);
    if (other["codec_type"] == "audio") ExpectSound(stream, other);
    for (const Json& program : probed["programs"])
      EXPECT_EQ(stream["programs"], Json::array({program["program_num"]}));
  }
}

std::string Clip(const std::string& name, const std::string& options) {
  return MediaFile(name, kSources + options + " -threads 1 {out}");
}

constexpr char kH264[] = "-c:v libx264 -preset ultrafast ";

// The clips of these tests by their names.
std::string Known(const std::string& name) {
  static const std::map<std::string, std::string> kOptions = {
      {"summary.mp4", std::string(kH264) + "-pix_fmt yuv420p -color_primaries 1 -color_trc 1 -colorspace 1 "
                                           "-color_range tv -c:a aac -ac 6 -metadata:s:a:0 language=deu"},
      {"summary-anamorphic.mov",
       std::string(kH264) + "-pix_fmt yuv422p10le -vf setsar=16/11 -c:a pcm_s24le -timecode 10:00:00:00"},
      {"summary-tff.ts", std::string(kH264) + "-pix_fmt yuv420p -flags +ildct+ilme -x264opts tff=1 -c:a mp2 "
                                              "-metadata service_name=News -metadata:s:a:0 language=fra"},
      {"summary-bff.ts", std::string(kH264) + "-pix_fmt yuv420p -flags +ildct+ilme -x264opts bff=1 -c:a ac3"},
      {"summary-mpeg2.ts", "-c:v mpeg2video -flags +ildct+ilme -top 1 -aspect 16:9 -c:a ac3"},
      {"summary-hdr.mp4",
       "-c:v libx265 -preset ultrafast -pix_fmt yuv420p10le -tag:v hvc1 -an -x265-params "
       "log-level=0:pools=1:frame-threads=1:colorprim=9:transfer=16:colormatrix=9:range=limited:"
       "master-display='G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,50)':"
       "max-cll='1000,400'"},
  };
  return Clip(name, kOptions.at(name));
}

TEST(Summary, IsThatOfAnotherReader) {
  for (const char* name : {"summary.mp4", "summary-anamorphic.mov", "summary-tff.ts", "summary-bff.ts",
                           "summary-mpeg2.ts", "summary-hdr.mp4"}) {
    SCOPED_TRACE(name);
    ExpectAsProbed(Known(name));
  }
}

TEST(Summary, NamesHighDynamicRange) {
  const Json hdr = SummaryOf(Known("summary-hdr.mp4"))["streams"][0]["hdr"];
  EXPECT_EQ(hdr["kind"], "HDR10");
  EXPECT_EQ(hdr["mastering_display"]["gamut"], "Display P3");
  EXPECT_EQ(hdr["mastering_display"]["min_luminance"], 0.005);
  EXPECT_EQ(hdr["mastering_display"]["max_luminance"], 1000.0);
  EXPECT_EQ(hdr["max_content_light_level"], 1000);
  EXPECT_EQ(hdr["max_average_light_level"], 400);
  EXPECT_EQ(SummaryOf(Known("summary.mp4"))["streams"][0]["hdr"], nullptr);
}

TEST(Summary, TellsTimecodesByTheirSource) {
  const Json track = SummaryOf(Known("summary-anamorphic.mov"))["streams"][0]["timecode"];
  EXPECT_EQ(track, Json::parse(R"([{"source": "track", "value": "10:00:00:00"}])"));
  const Json group = SummaryOf(Known("summary-mpeg2.ts"))["streams"][0]["timecode"];
  EXPECT_EQ(group[0]["source"], "group_of_pictures");
  EXPECT_EQ(SummaryOf(Known("summary.mp4"))["streams"][0]["timecode"], Json::array());
}

// Uneven pictures: every third one stands twice as long.
TEST(Summary, TellsConstantFromVariableRates) {
  for (const char* name : {"summary.mp4", "summary-bff.ts", "summary-tff.ts"})
    EXPECT_EQ(SummaryOf(Known(name))["streams"][0]["frame_rate_mode"], "constant") << name;
  for (const char* name : {"uneven.mp4", "uneven.mkv", "uneven.ts"}) {
    const std::string file = MediaFile(
        name,
        "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x112:r=25:d=1.2 -vf \"select='not(eq(mod(n,3),1))'\" "
        "-fps_mode vfr -c:v libx264 -preset ultrafast -threads 1 {out}");
    EXPECT_EQ(SummaryOf(file)["streams"][0]["frame_rate_mode"], "variable") << name;
  }
}

// No encoder at hand codes fields, and x264 marks progressive frames as such where it may code fields.
TEST(Summary, TellsCodedFieldsAndProgressiveFramesInInterlacedStreams) {
  const auto of = [](const std::string& name, const std::vector<CodedFrame>& frames) {
    WriteFile(MediaPath(name), MakeFieldStream(frames));
    return SummaryOf(MediaPath(name))["streams"][0];
  };
  const Json fields = of("summary-fields.h264", {{.place = 0, .idr = true}, {.place = 1}, {.place = 2}});
  EXPECT_EQ(fields["scan"], "interlaced");
  EXPECT_EQ(fields["scan_coding"], "fields");
  EXPECT_EQ(fields["field_order"], "top field first");
  EXPECT_EQ(fields["frame_rate"], Json::parse(R"({"numerator": 25, "denominator": 1})"));
  const Json mixed = of("summary-mixed.h264", {{.place = 0, .idr = true, .bottomFirst = true},
                                               {.place = 1, .fields = false},
                                               {.place = 2, .bottomFirst = true}});
  EXPECT_EQ(mixed["scan_coding"], "fields and frames");
  EXPECT_EQ(mixed["field_order"], "bottom field first");
  const Json fake =
      SummaryOf(Clip("summary-fake.ts", std::string(kH264) + "-pix_fmt yuv420p -an -x264-params "
                                                             "fake-interlaced=1:pic-struct=1"))["streams"][0];
  EXPECT_EQ(fake["scan"], "progressive");
}

// Whose container says another colour.
std::string Wrong() {
  return MediaFile("summary-wrong.mp4", "ffmpeg -v error -y -i '" + Known("summary.mp4") +
                                            "' -c copy -color_primaries 9 -color_trc 16 "
                                            "-colorspace 9 -movflags +write_colr {out}");
}

TEST(Summary, EndsWithWhatTheChecksSay) {
  const Json check = SummaryOf(Known("summary.mp4"))["check"];
  EXPECT_EQ(check["findings"], Json::array());
  EXPECT_EQ(check["pictures"], 20);
  const std::string wrong = Wrong();
  const Json findings = SummaryOf(wrong)["check"]["findings"];
  const Json whole = Json::parse(Qlnmedia("check --json '" + wrong + "'").output)["findings"];
  EXPECT_FALSE(findings.empty());
  EXPECT_EQ(findings, whole);
}

TEST(Summary, FitsEightyColumnsAndLeavesTheRestToFlags) {
  const std::string file = Known("summary-hdr.mp4");
  const std::string text = Qlnmedia("inspect '" + file + "'").output;
  std::istringstream lines(text);
  size_t count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    if (line != file) {
      EXPECT_LE(line.size(), 80u) << line;
    }
  }
  EXPECT_LE(count, 20u) << text;
  for (const char* piece :
       {"Main 10 profile", "HDR10", "1000 cd/m2", "progressive", "25 frames a second, constant",
        "limited range", "1 found in the 20 pictures that were read"})
    EXPECT_THAT(text, HasSubstr(piece));
  struct {
    const char* flag;
    const char* shows;
  } const flags[] = {{"--details", "Parameter sets"},
                     {"--elements", "general_profile_idc"},
                     {"--units", "nal_unit_type\": "},
                     {"--library", "Written back"}};
  for (const auto& [flag, shows] : flags) EXPECT_THAT(text, testing::Not(HasSubstr(shows))) << flag;
  EXPECT_THAT(Qlnmedia("inspect --details '" + file + "'").output, HasSubstr("Parameter sets"));
  const std::string elements = Qlnmedia("inspect --elements '" + file + "'").output;
  EXPECT_THAT(elements, HasSubstr("general_profile_idc"));
  EXPECT_THAT(elements, testing::Not(HasSubstr("Written back")));
  EXPECT_THAT(Qlnmedia("inspect --units '" + file + "'").output, HasSubstr("Offset  Type  Name"));
  EXPECT_THAT(Qlnmedia("inspect --library '" + file + "'").output, HasSubstr("Written back"));
}

// The schema knows every key, and no report holds another one.
TEST(Summary, ReportsKeepToTheirSchema) {
  const std::string folder = MediaPath("schema");
  std::string command = "mkdir -p '" + folder + "' && cd '" + folder + "' && rm -f *.json";
  int number = 0;
  const std::string fields = MediaPath("summary-schema.h264");
  WriteFile(fields, MakeFieldStream({{.place = 0, .idr = true}, {.place = 1, .fields = false}}));
  for (const std::string& file :
       {Known("summary.mp4"), Known("summary-anamorphic.mov"), Known("summary-tff.ts"),
        Known("summary-bff.ts"), Known("summary-mpeg2.ts"), Known("summary-hdr.mp4"), fields, Wrong()})
    command += std::string(" && '") + QLNMEDIA_PROGRAM + "' inspect --json --units '" + file + "' > " +
               std::to_string(number++) + ".json";
  ASSERT_EQ(test::Run(command).exitCode, 0);
  const CommandResult judged = test::Run("cd '" + folder + R"(' && /usr/bin/python3 - <<'END'
import glob, json, jsonschema
schema = json.load(open(')" QLN_TEST_DATA R"(/../../docs/inspect.schema.json'))
jsonschema.Draft202012Validator.check_schema(schema)
validator = jsonschema.Draft202012Validator(schema["$defs"]["report"] | {"$defs": schema["$defs"]})
for name in sorted(glob.glob('*.json')):
    report = json.load(open(name))
    for error in validator.iter_errors(report):
        print(name, list(error.absolute_path), error.message[:300])
    report['summary']['streams'][0]['unheard'] = 1
    assert not validator.is_valid(report)
print('judged')
END)");
  EXPECT_EQ(judged.output, "judged\n");
}

}  // namespace
}  // namespace qln::test
