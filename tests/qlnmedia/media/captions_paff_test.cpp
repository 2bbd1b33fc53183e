// Captions in H.264 frames of two coded fields, both in one packet or each in its own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "qlnmedia/media/caption_media.h"
#include "qlnmedia/media/field_mux.h"

namespace qln::test {
namespace {

using testing::HasSubstr;
using testing::Not;

// What a player gets of the frames of a stream, whether or not it shows them as two fields.
void ExpectCaptions(const std::string& in, const std::string& out, size_t frames) {
  const std::string scc = Write("captions_paff.scc", kScc);
  const CommandResult patched =
      Qlnmedia("patch '" + in + "' '" + out + "' --verify --captions '" + scc + "'");
  ASSERT_EQ(patched.exitCode, 0) << patched.output;
  EXPECT_THAT(patched.output,
              HasSubstr("captions put into " + std::to_string(frames) + " pictures, 24 triplets each"));
  EXPECT_EQ(Decoded(out), Decoded(in));
  const CommandResult read = Qlnmedia("captions '" + out + "'");
  EXPECT_THAT(read.output,
              HasSubstr("captions on " + std::to_string(frames) + " of " + std::to_string(frames)));
  // Frames 15 and 30 of 29.97 are nearest to pictures 13 and 25 of 25; one later where a field must wait.
  EXPECT_THAT(read.output, testing::ContainsRegex("00:00:00\\.5[26]0 - 00:00:01\\.0[04]0  GOOD MORNING"));
  EXPECT_THAT(Qlnmedia("check '" + out + "'").output, Not(HasSubstr("captions:")));
}

TEST(CaptionFields, BelongToBothFieldsOfAnH264Frame) {
  const std::vector<CodedFrame> frames = FieldGroups(4);
  for (const std::string extension : {"mp4", "mkv", "ts"}) {
    for (const bool bothInOnePacket : {true, false}) {
      SCOPED_TRACE(extension + (bothInOnePacket ? ", one packet" : ", two packets"));
      const std::string in = MediaPath("captions_paff." + extension);
      const std::string out = MediaPath("captions_paff_out." + extension);
      MuxFields(in, frames, bothInOnePacket);
      ExpectCaptions(in, out, frames.size());
      if (bothInOnePacket || extension == "ts") {
        EXPECT_THAT(Shown(out), HasSubstr("GOOD MORNING"));
      }
    }
  }
}

TEST(CaptionFields, BelongToBothFieldsOfARawH264Frame) {
  const std::vector<CodedFrame> frames = FieldGroups(4, true);
  const std::string in = MediaPath("captions_paff.h264");
  WriteFile(in, MakeFieldStream(frames));
  ExpectCaptions(in, MediaPath("captions_paff_out.h264"), frames.size());
}

}  // namespace
}  // namespace qln::test
