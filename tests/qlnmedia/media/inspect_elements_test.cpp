// Every element that an independent reader finds in the parameter sets of real streams, against the report,
// by name and value, and the other way round.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

#include "qlnmedia/program.h"

namespace qln::test {
namespace {

using Json = nlohmann::ordered_json;
// Values by name with indices, in the order in which they come.
using Values = std::map<std::string, std::vector<int64_t>>;

// Words that the report adds to the elements that they follow from.
bool FollowsFromOthers(const std::string& name) {
  return name.ends_with("profile_compatibility_flags") || name == "general_constraint_indicator_flags" ||
         name == "more_rbsp_data_present" || name.starts_with("ScalingList");
}

// What the independent reader calls otherwise than the published tables do, or shows in parts.
std::string PublishedName(std::string name) {
  const auto replace = [&name](const std::string& from, const std::string& to) {
    const size_t at = name.find(from);
    if (at != std::string::npos) name.replace(at, from.size(), to);
  };
  replace("gaps_in_frame_num_allowed_flag", "gaps_in_frame_num_value_allowed_flag");
  replace("scaling_list_delta_coeff", "scaling_list_delta_coef");
  return name;
}

Values TracedValues(const TracedUnit& unit) {
  Values values;
  std::string last;
  for (const TracedElement& element : unit.elements) {
    std::string name = PublishedName(element.name);
    if (name == "matrix_coefficients" && unit.has("nuh_layer_id")) name = "matrix_coeffs";
    // Reserved bits of more than 32 come in two parts, alignment bits one by one.
    const bool part =
        name == last && (name.starts_with("general_reserved_zero") || name == "rbsp_alignment_zero_bit");
    if (!part) values[name].push_back(element.value);
    last = name;
  }
  return values;
}

void Flatten(const std::string& name, const Json& value, Values& values) {
  if (value.is_null()) return;
  if (!value.is_array()) {
    values[name].push_back(value.get<int64_t>());
    return;
  }
  for (size_t i = 0; i < value.size(); ++i) Flatten(name + "[" + std::to_string(i) + "]", value[i], values);
}

// The report's elements without the names of the structures that they stand in; entries of a list get its
// index.
Values ReportedValues(const Json& elements) {
  Values values;
  for (const auto& [key, value] : elements.items()) {
    if (FollowsFromOthers(key)) continue;
    const size_t dot = key.rfind('.');
    std::string name = dot == std::string::npos ? key : key.substr(dot + 1);
    if (name == "reserved_zero_2bits" && value.is_array()) {  // told without its index
      for (const Json& pair : value) Flatten(name, pair, values);
      continue;
    }
    const std::string structure = dot == std::string::npos ? "" : key.substr(0, dot);
    const size_t entry =
        std::max(structure.rfind("schedule[") + 1, structure.rfind("long_term_ref_pics[") + 1);
    if (entry > 0) name += structure.substr(structure.rfind('['));
    Flatten(name, value, values);
  }
  return values;
}

// Compares the sets of one kind; returns how many elements there were.
size_t Compare(const std::string& file, const Json& sets, const std::string& kind,
               const std::string& heading) {
  if (!sets.contains(kind)) return 0;
  std::vector<Values> traced;
  for (const TracedUnit& unit : TraceHeaders(file)) {
    const Values values = unit.heading == heading ? TracedValues(unit) : Values();
    if (!values.empty() && std::find(traced.begin(), traced.end(), values) == traced.end())
      traced.push_back(values);
  }
  EXPECT_EQ(traced.size(), sets[kind].size()) << heading;
  size_t count = 0;
  for (size_t i = 0; i < std::min(traced.size(), sets[kind].size()); ++i) {
    const Values reported = ReportedValues(sets[kind][i]["elements"]);
    EXPECT_EQ(reported, traced[i]) << heading << " " << i;
    count += reported.size();
  }
  return count;
}

void ExpectElements(const std::string& file, size_t least) {
  SCOPED_TRACE(file);
  const CommandResult result = Qlnmedia("inspect --json --frames 8 '" + file + "'");
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const Json report = Json::parse(result.output, nullptr, false);
  const Json& sets = report["streams"][0]["parameter_sets"];
  EXPECT_GT(Compare(file, sets, "vps", "Video Parameter Set") +
                Compare(file, sets, "sps", "Sequence Parameter Set") +
                Compare(file, sets, "pps", "Picture Parameter Set"),
            least);
}

std::string Clip(const std::string& name, const std::string& encoder) {
  return MediaFile(
      name, "ffmpeg -v error -y -f lavfi -i testsrc2=s=190x110:r=25:d=0.2 -threads 1 " + encoder + " {out}");
}

TEST(InspectElements, OfX264) {
  ExpectElements(Clip("all1.h264", "-c:v libx264 -pix_fmt yuv420p"), 60);
  ExpectElements(Clip("all2.mp4",
                      "-c:v libx264 -pix_fmt yuv420p -x264-params "
                      "nal-hrd=vbr:pic-struct=1:cqm=jvt:overscan=show:videoformat=pal:chromaloc=2 -b:v 200k "
                      "-maxrate 200k -bufsize 300k -color_primaries 9 -color_trc 16 -colorspace 9"),
                 80);
  ExpectElements(Clip("all3.mkv",
                      "-c:v libx264 -pix_fmt yuv444p10le -x264-params "
                      "cqm4=6,13,20,28,13,20,28,32,20,28,32,37,28,32,37,41"),
                 60);
  ExpectElements(Clip("all4.ts", "-c:v libx264 -pix_fmt yuv422p -flags +ildct+ilme -x264opts tff=1"), 60);
}

TEST(InspectElements, OfX265) {
  const std::string common = ":keyint=5:repeat-headers=1:pools=1:frame-threads=1:log-level=none";
  ExpectElements(Clip("all5.hevc", "-c:v libx265 -pix_fmt yuv420p -x265-params aud=1" + common), 120);
  ExpectElements(
      Clip("all6.hevc",
           "-c:v libx265 -pix_fmt yuv420p10le -x265-params "
           "hrd=1:vbv-maxrate=500:vbv-bufsize=500:bitrate=400:temporal-layers=1:bframes=3:b-adapt=0" +
               common),
      130);
  ExpectElements(Clip("all7.mp4",
                      "-c:v libx265 -pix_fmt yuv444p12le -tag:v hvc1 -x265-params "
                      "scaling-list=default:cbqpoffs=3:deblock=2,-2" +
                          common),
                 120);
  ExpectElements(Clip("all8.mkv",
                      "-c:v libx265 -pix_fmt yuv422p10le -x265-params "
                      "interlace=tff:log2-max-poc-lsb=8:high-tier=1:level-idc=5.1" +
                          common),
                 120);
}

}  // namespace
}  // namespace qln::test
