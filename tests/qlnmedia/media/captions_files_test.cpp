// Caption files as users have them, and those that are none.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "captions/caption_track.h"
#include "qlnmedia/media/caption_media.h"

namespace qln::test {
namespace {

using testing::HasSubstr;

const Kind kSource = {"avc_b", "h264", "30000/1001", "-c:v libx264 -threads 1 -pix_fmt yuv420p -bf 3 -g 12"};

// What a player gets of a stream with the captions of `text`.
Bytes Patched(const std::string& text, const std::string& options = "") {
  const std::string file = Write("captions_form", text);
  const std::string out = MediaPath("captions_form.mp4");
  const CommandResult patched =
      Qlnmedia("patch '" + Source(kSource, "mp4") + "' '" + out + "' --captions '" + file + "' " + options);
  EXPECT_EQ(patched.exitCode, 0) << patched.output << text;
  return TripletBytes(out);
}

std::string WithLineEnds(const std::string& text, const std::string& end) {
  std::string result;
  for (const char c : text) result += c == '\n' ? end : std::string(1, c);
  return result;
}

// Breaks each line of data after every `width` characters.
std::string Broken(const std::string& text, size_t width) {
  std::string result;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    std::string line = text.substr(at, end - at);
    const bool data = line.find('\t') != std::string::npos;
    for (size_t i = line.find('\t') + 1 + width; data && i < line.size(); i += width + 1)
      line.insert(i, "\n");
    result += line + "\n";
    at = end + 1;
  }
  return result;
}

TEST(CaptionFileForms, ScenaristFilesAreReadAlike) {
  const Bytes expected = Patched(kScc);
  ASSERT_FALSE(expected.empty());
  const std::string text = kScc;
  const std::string mark = "\xEF\xBB\xBF";
  EXPECT_EQ(Patched(mark + WithLineEnds(text, "\r\n")), expected);
  EXPECT_EQ(Patched(WithLineEnds(text, "\r")), expected);
  EXPECT_EQ(Patched(Broken(text, 15)), expected);  // three groups and the blanks between them
  std::string commented = text;
  commented.insert(commented.find("01:00:01:00"), "// the end of it\n");
  EXPECT_EQ(Patched("// made by hand\n" + commented), expected);
  // Without a line end at the end, and in capital letters.
  std::string other = text.substr(0, text.size() - 1);
  std::transform(other.begin() + 18, other.end(), other.begin() + 18, ::toupper);
  EXPECT_EQ(Patched(other), expected);
}

TEST(CaptionFileForms, MacCaptionFilesAreReadAlike) {
  const std::string out = MediaPath("captions_form_mcc.mp4");
  const std::string scc = Write("captions_form.scc", kScc);
  ASSERT_EQ(
      Qlnmedia("patch '" + Source(kSource, "mp4") + "' '" + out + "' --captions '" + scc + "'").exitCode, 0);
  const std::string mcc = MediaPath("captions_form.mcc");
  ASSERT_EQ(Qlnmedia("captions '" + out + "' -o '" + mcc + "'").exitCode, 0);
  const std::string text = FileText(mcc);
  const Bytes expected = TripletBytes(out);
  EXPECT_EQ(Patched(text), expected);
  EXPECT_EQ(Patched("\xEF\xBB\xBF" + WithLineEnds(text, "\r\n")), expected);
  EXPECT_EQ(Patched(Broken(text, 7)), expected);
  EXPECT_EQ(Patched("// in front\n" + text + "// behind\n"), expected);
}

TEST(CaptionFileForms, DropFrameCountsTheNumbersThatAreThere) {
  const Bytes expected = Patched(kScc);
  std::string pairs = kScc;
  pairs = pairs.substr(pairs.find('\t'), pairs.find("\n\n01:00:01:00") - pairs.find('\t'));
  const std::string heading = "Scenarist_SCC V1.0\n\n";
  // A minute begins two numbers late in drop-frame; 27 frames lie between the two lines.
  EXPECT_EQ(Patched(heading + "00:00:59;29" + pairs + "\n\n00:01:00;28\t942c 942c\n",
                    "--captions-offset '00:00:59;26'"),
            expected);
  EXPECT_EQ(Patched(heading + "00:00:59:29" + pairs + "\n\n00:01:00:26\t942c 942c\n",
                    "--captions-offset 00:00:59:26"),
            expected);
  // Each tenth minute drops none.
  EXPECT_EQ(Patched(heading + "00:09:59;29" + pairs + "\n\n00:10:00;26\t942c 942c\n",
                    "--captions-offset '00:09:59;26'"),
            expected);
}

TEST(CaptionFileForms, TheFirstWholeHourIsTheFirstPicture) {
  const Bytes expected = Patched(kScc);
  std::string text = kScc;
  for (size_t at = 0; (at = text.find("01:00:", at)) != std::string::npos; ++at) text.replace(at, 2, "10");
  EXPECT_EQ(Patched(text), expected);
  EXPECT_EQ(Patched(text, "--captions-offset 10:00:00:00"), expected);
  EXPECT_NE(Patched(text, "--captions-offset 10:00:00:01"), expected);
}

TEST(CaptionFileForms, CaptionsOutsideTheStreamAreTold) {
  const std::string in = Source(kSource, "mp4");
  const std::string out = MediaPath("captions_outside.mp4");
  const std::string scc = Write("captions_outside.scc", kScc);
  const std::string command = "patch '" + in + "' '" + out + "' --captions '" + scc + "' ";
  EXPECT_THAT(Qlnmedia(command + "--captions-offset 01:00:00:05").output,
              HasSubstr("warning: 2 frames of captions stand in front of the first picture and are lost"));
  EXPECT_THAT(Qlnmedia(command + "--captions-offset 00:59:59:15").output,
              HasSubstr("warning: 2 frames of captions stand behind the last picture and are lost"));
}

// The .scc file that comes out, read by another program.
TEST(CaptionFileForms, ScenaristFilesThatComeOutAreReadByOthers) {
  const std::string out = MediaPath("captions_scc_out.mp4");
  const std::string scc = Write("captions_scc_in.scc", kScc);
  ASSERT_EQ(
      Qlnmedia("patch '" + Source(kSource, "mp4") + "' '" + out + "' --captions '" + scc + "'").exitCode, 0);
  ASSERT_EQ(Qlnmedia("captions '" + out + "' -o '" + out + ".scc'").exitCode, 0);
  const std::string srt = Text("ffmpeg -v error -f scc -i '" + out + ".scc' -f srt -");
  EXPECT_THAT(srt, HasSubstr("GOOD MORNING"));
  EXPECT_THAT(srt, HasSubstr("00:00:00,"));
}

TEST(CaptionPatch, BadFilesAreOneLineAndNoOutput) {
  const std::string in = Source(kSource, "mp4");
  const std::string out = MediaPath("captions_never.mp4");
  std::filesystem::remove(out);
  const std::pair<const char*, const char*> files[] = {
      {"hello\n", "line 1: neither a Scenarist file"},
      {"Scenarist_SCC V1.0\n\n00:00:02:00\t9420\n\n00:00:01:00\t9420\n", "line 5: the time goes back"},
      {"Scenarist_SCC V1.0\r\n\r\n00:00:02:00\t9420 94", "line 3: not groups of four"},
      {"Scenarist_SCC V1.0\n\n00:00:02:31\t9420\n", "line 3: a timecode that does not exist"},
  };
  for (const auto& [text, reason] : files) {
    const std::string file = Write("captions_bad.scc", text);
    const CommandResult result = Qlnmedia("patch '" + in + "' '" + out + "' --captions '" + file + "'");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.output, HasSubstr(reason));
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
    EXPECT_FALSE(std::filesystem::exists(out));
  }
  const std::string good = Write("captions_good.scc", kScc);
  EXPECT_THAT(Qlnmedia("patch '" + in + "' '" + out + "' --captions /no/such.scc").output,
              HasSubstr("No such file"));
  EXPECT_THAT(
      Qlnmedia("patch '" + in + "' '" + out + "' --captions '" + good + "' --captions-offset 25:00:00:00")
          .output,
      HasSubstr("is no timecode"));
  EXPECT_THAT(Qlnmedia("captions '" + in + "'").output, HasSubstr("has no captions"));
  EXPECT_THAT(Qlnmedia("captions '" + in + "' -o x.doc").output, HasSubstr("is no kind of caption file"));
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST(CaptionPatch, BadMacCaptionFilesAreOneLineAndNoOutput) {
  const std::string in = Source(kSource, "mp4");
  const std::string out = MediaPath("captions_never_mcc.mp4");
  std::filesystem::remove(out);
  qlnmedia::captions::MccTrackWriter writer(qlnmedia::captions::Rate::k29_97);
  const std::string heading = "File Format=MacCaption_MCC V1.0\nTime Code Rate=30\n";
  const std::vector<qlnmedia::captions::Triplet> triplets(
      20, qlnmedia::captions::Triplet{true, qlnmedia::captions::CcType::kField1, 0x94, 0x20});
  const std::string first = writer.Lines(triplets, 10);
  const std::string second = writer.Lines(triplets, 9);
  std::string wrongSum = first;
  wrongSum.replace(wrongSum.size() - 3, 2, wrongSum.substr(wrongSum.size() - 3, 2) == "AA" ? "BB" : "AA");
  const std::pair<std::string, const char*> files[] = {
      {heading + first + second, "line 4: the time goes back"},
      {heading + first + first.substr(0, first.size() - 20), "line 4: "},
      {heading + first.substr(0, first.size() - 2), "line 3: not hexadecimal digits and shorthand"},
      {heading + wrongSum, "line 3: the ANC checksum is wrong"},
      {heading + "00:00:00:00\t???\n", "line 3: not hexadecimal digits and shorthand"},
      {heading, "holds no captions"},
      {"File Format=MacCaption_MCC V9.0\n", "line 1: a format that is not known"},
  };
  for (const auto& [text, reason] : files) {
    const std::string file = Write("captions_bad.mcc", text);
    const CommandResult result = Qlnmedia("patch '" + in + "' '" + out + "' --captions '" + file + "'");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.output, HasSubstr(reason));
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
    EXPECT_FALSE(std::filesystem::exists(out));
  }
}

}  // namespace
}  // namespace qln::test
