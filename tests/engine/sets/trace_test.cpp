// Every element of parameter sets that encoders write, held against an independent reader: names with their
// indices, places and values, in both directions.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "described_set.h"
#include "sets/set_elements.h"
#include "support/media.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::MediaFile;
using qln::test::Random;
using qln::test::ReadFile;
using qln::test::TracedElement;
using qln::test::TracedUnit;
using qln::test::TraceHeaders;

// What the reader calls otherwise than the published tables do.
std::string PublishedName(const std::string& name) {
  static const std::map<std::string, std::string> kNames = {
      {"gaps_in_frame_num_allowed_flag", "gaps_in_frame_num_value_allowed_flag"},
      {"sps_palette_predictor_initializer_present_flag", "sps_palette_predictor_initializers_present_flag"},
      {"pps_palette_predictor_initializer_present_flag", "pps_palette_predictor_initializers_present_flag"},
  };
  const size_t bracket = name.find('[');
  const std::string plain = name.substr(0, bracket);
  const std::string indices = bracket == std::string::npos ? "" : name.substr(bracket);
  if (plain == "scaling_list_delta_coeff") return "scaling_list_delta_coef" + indices;
  const auto known = kNames.find(plain);
  return known == kNames.end() ? name : known->second + indices;
}

// The reader shows reserved bits of more than 32 in parts, without the indices that they have, and the matrix
// under one name for both codecs.
std::vector<ElementLine> Traced(Codec codec, const TracedUnit& unit) {
  std::vector<ElementLine> lines;
  for (const TracedElement& element : unit.elements) {
    if (element.name.starts_with("rbsp_")) continue;
    std::string name = PublishedName(element.name);
    if (codec == Codec::kHevc && name == "matrix_coefficients") name = "matrix_coeffs";
    if (!lines.empty() && lines.back().name == name &&
        name.find("layer_reserved_zero") == std::string::npos && name.starts_with("general_reserved_zero"))
      continue;
    lines.push_back({static_cast<uint32_t>(element.position), name, element.value});
  }
  return lines;
}

std::vector<ElementLine> Ours(const SetElements& set) {
  std::vector<ElementLine> lines;
  for (const SetElement& element : set.elements) {
    const bool bare = element.name == "reserved_zero_2bits" && element.indices == 1;
    lines.push_back(
        {element.position, bare ? std::string(element.name) : NameWithIndices(element), element.value});
  }
  return lines;
}

bool IsSetHeading(const std::string& heading) {
  return heading == "Sequence Parameter Set" || heading == "Picture Parameter Set" ||
         heading == "Video Parameter Set";
}

// Compares all sets of a stream; returns how many different ones there were.
size_t CompareAll(Codec codec, const std::string& file) {
  std::vector<SetElements> ours;
  std::set<Bytes> different;
  ChromaFormats formats;
  const Bytes stream = ReadFile(file);
  for (const Unit& unit : TakeApart(stream, Framing{}).units) {
    formats.Take(codec, unit.bytes);
    if (!HasSetSyntax(codec, UnitType(codec, unit.bytes))) continue;
    different.insert(unit.bytes);
    ours.push_back(ListSetElements(codec, unit.bytes, formats));
    EXPECT_TRUE(ours.back().whole()) << ours.back().endedAt;
  }
  // The first block shows what the demuxer put aside, which comes again in its place.
  std::vector<TracedUnit> traced;
  size_t aside = 0;
  bool inside = false;
  for (const TracedUnit& unit : TraceHeaders(file)) {
    if (unit.heading == "Extradata") inside = true;
    if (unit.heading.starts_with("Packet")) inside = false;
    if (!IsSetHeading(unit.heading)) continue;
    if (inside) {
      ++aside;
    } else {
      traced.push_back(unit);
    }
  }
  EXPECT_EQ(traced.size(), ours.size()) << aside << " put aside";
  for (size_t i = 0; i < std::min(traced.size(), ours.size()); ++i) {
    const std::vector<ElementLine> expected = Traced(codec, traced[i]);
    const std::vector<ElementLine> actual = Ours(ours[i]);
    EXPECT_EQ(actual, expected) << "set " << i << ", " << traced[i].heading;
    if (actual != expected) break;
  }
  return different.size();
}

// Draws settings; each is one word of a command line.
class Settings {
 public:
  explicit Settings(uint64_t seed) : random_(seed) {}
  std::string Of(std::initializer_list<const char*> choices) {
    return *(choices.begin() + random_.below(choices.size()));
  }
  std::string Number(uint64_t most) { return std::to_string(random_.below(most + 1)); }
  bool Maybe() { return random_.below(2) == 1; }

 private:
  Random random_;
};

constexpr int kEncodes = 110;
constexpr const char* kPrimaries[] = {"bt709", "bt470m", "bt470bg", "smpte170m", "film", "bt2020"};

std::string Signal(Settings& draw) {
  std::string words;
  if (draw.Maybe()) words += " --sar " + draw.Of({"1:1", "40:33", "4:3", "17:23", "1000:1001", "64:33"});
  if (draw.Maybe()) words += " --overscan " + draw.Of({"show", "crop"});
  if (draw.Maybe()) words += " --videoformat " + draw.Of({"component", "pal", "ntsc", "secam", "mac"});
  if (draw.Maybe()) words += " --colorprim " + std::string(kPrimaries[std::stoul(draw.Number(5))]);
  if (draw.Maybe())
    words += " --transfer " + draw.Of({"bt709", "smpte170m", "linear", "smpte2084", "arib-std-b67"});
  if (draw.Maybe())
    words += " --colormatrix " + draw.Of({"bt709", "fcc", "bt470bg", "smpte240m", "bt2020nc"});
  return words;
}

std::string X264(Settings& draw) {
  const std::string csp = draw.Of({"i420", "i420", "i420", "i422", "i444", "i400"});
  std::string words =
      "yes qlnmedia | head -c 60000 | timeout 20 x264 --quiet --demuxer raw --muxer raw --threads 1 "
      "--input-res " +
      draw.Of({"64x64", "80x48", "96x80", "66x70"}) + " --input-csp " + csp + " --output-csp " + csp +
      " --output-depth " + draw.Of({"8", "8", "10"}) + " --frames 2" + " --fps " +
      draw.Of({"25", "30000/1001", "24000/1001", "50", "7/3"}) + Signal(draw);
  if (csp == "i420") {
    const std::string profile =
        draw.Of({"", " --chromaloc 2", " --chromaloc 5", " --level 4.1", " --level 1b"});
    words += profile;
  }
  if (draw.Maybe()) words += " --range " + draw.Of({"tv", "pc"});
  if (draw.Maybe()) words += " --cqm " + draw.Of({"jvt", "flat"});
  if (draw.Maybe())
    words += " --cqm4 " + draw.Of({"16,17,18,19,20,21,22,23,24,25,26,27,28,29,30,31",
                                   "40,40,40,40,40,40,40,40,40,40,40,40,40,40,40,40"});
  if (draw.Maybe()) words += " --no-8x8dct";
  if (draw.Maybe()) words += " --no-cabac";
  const std::string hrd = draw.Of({"", "", "vbr", "cbr"});
  if (!hrd.empty())
    words += " --nal-hrd " + hrd + " --bitrate 800 --vbv-maxrate 800 --vbv-bufsize " +
             draw.Of({"800", "1234", "90"});
  const std::string scan = draw.Of({"", "", " --tff", " --bff", " --fake-interlaced"});
  words += scan;
  if (draw.Maybe()) words += " --pic-struct";
  if (draw.Maybe()) words += " --crop-rect " + draw.Of({"2,4,2,4", "4,8,0,4", "0,0,0,8"});
  if (draw.Maybe()) words += " --frame-packing " + draw.Number(5);
  if (draw.Maybe()) words += " --bframes " + draw.Number(3) + " --b-pyramid " + draw.Of({"none", "strict"});
  if (draw.Maybe()) words += " --ref " + draw.Of({"1", "2", "5"}) + " --weightp " + draw.Number(2);
  if (draw.Maybe()) words += " --chroma-qp-offset " + draw.Of({"-12", "-3", "5", "12"});
  if (draw.Maybe()) words += " --constrained-intra";
  if (draw.Maybe()) words += " --qp " + draw.Of({"10", "26", "40"});
  if (draw.Maybe()) words += " --stitchable --sps-id " + draw.Number(31);
  return words + " -o '{out}.one' - 2>/dev/null && cat '{out}.one';\n";
}

std::string X265(Settings& draw) {
  const std::string csp = draw.Of({"i420", "i420", "i422", "i444", "i400"});
  std::string words =
      "yes qlnmedia | head -c 60000 | timeout 10 x265 --log-level none --no-progress --pools none "
      "--frame-threads 1 --input - "
      "--frames 2 --input-res " +
      draw.Of({"64x64", "80x72", "96x80", "66x70"}) + " --input-csp " + csp + " --output-depth " +
      draw.Of({"8", "10", "12"}) + " --fps " + draw.Of({"25", "30000/1001", "24000/1001", "50"}) +
      Signal(draw);
  if (csp == "i420" && draw.Maybe()) words += " --chromaloc " + draw.Number(5);
  if (draw.Maybe()) words += " --range " + draw.Of({"limited", "full"});
  if (draw.Maybe()) words += " --display-window " + draw.Of({"2,2,2,2", "0,4,8,2"});
  if (draw.Maybe())
    words += " --hrd --bitrate 700 --vbv-maxrate 700 --vbv-bufsize " + draw.Of({"700", "1400", "333"});
  if (draw.Maybe()) words += " --scaling-list default";
  if (draw.Maybe()) words += " --temporal-layers --bframes 3";
  if (draw.Maybe()) words += " --interlace " + draw.Of({"tff", "bff"});
  if (draw.Maybe())
    words += " --level-idc " + draw.Of({"3.1", "4", "5.1", "6.2"}) + draw.Of({"", " --high-tier"});
  if (draw.Maybe()) words += " --keyint 1";
  // Lossless coding and several slices of pictures this small make this encoder stop for good or crash.
  if (draw.Maybe()) words += draw.Of({" --cu-lossless", " --tskip", " --no-signhide", " --weightb"});
  if (draw.Maybe())
    words += " --ctu " + draw.Of({"16", "32", "64"}) + " --min-cu-size " + draw.Of({"8", "16"});
  if (draw.Maybe()) words += " --rect --amp";
  if (draw.Maybe())
    words += draw.Of({" --no-sao", " --no-strong-intra-smoothing", " --no-temporal-mvp", " --no-wpp"});
  if (draw.Maybe()) words += " --deblock " + draw.Of({"-3:2", "6:-6", "0:0"});
  if (draw.Maybe()) words += " --cbqpoffs " + draw.Of({"-12", "3"}) + " --crqpoffs " + draw.Of({"-2", "12"});
  if (draw.Maybe()) words += " --log2-max-poc-lsb " + draw.Of({"4", "9", "16"});
  // Without timing information this encoder still writes vui_hrd_parameters_present_flag, which no reader of
  // the standard's syntax expects: --no-vui-timing-info is left out.
  if (draw.Maybe())
    words += draw.Of(
        {" --no-vui-hrd-info", " --opt-qp-pps", " --opt-ref-list-length-pps", " --constrained-intra"});
  if (draw.Maybe()) words += " --max-merge " + draw.Of({"1", "5"}) + " --max-tu-size " + draw.Of({"8", "32"});
  return words + " -o '{out}.one' 2>/dev/null && cat '{out}.one';\n";
}

// All encodes one behind the other in one file.
std::string Streams(const std::string& name, std::string (*setting)(Settings&)) {
  Settings draw(20);
  std::string commands = "{ true;\n";  // an encoder that refuses its setting adds nothing
  for (int i = 0; i < kEncodes; ++i) commands += setting(draw);
  return MediaFile(name, commands + "} > '{out}'; rm -f '{out}.one'", 300);
}

TEST(SetTrace, EveryElementOfX264IsWhatTheReaderSays) {
  EXPECT_GT(CompareAll(Codec::kH264, Streams("sets.264", X264)), 120u);
}

TEST(SetTrace, EveryElementOfX265IsWhatTheReaderSays) {
  EXPECT_GT(CompareAll(Codec::kHevc, Streams("sets.265", X265)), 120u);
}

}  // namespace
}  // namespace qlnmedia
