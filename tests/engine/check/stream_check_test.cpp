// The checker of streams without a file: what is told, when, and how much is kept.

#include "qlnmedia/stream_check.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "engine/edit/stream_builder.h"

namespace qlnmedia {
namespace {
using test::CodedFrame;
using test::Stream;

Stream Pictures(int lengthBytes) {
  std::vector<CodedFrame> frames;
  for (int place = 0; place < 4; ++place)
    frames.push_back({.place = place, .idr = place == 0, .fields = false});
  return test::MakeStream(frames, lengthBytes);
}

std::vector<FindingKind> KindsOf(const std::vector<Finding>& findings) {
  std::vector<FindingKind> kinds;
  for (const Finding& finding : findings) kinds.push_back(finding.kind);
  return kinds;
}

TEST(StreamCheck, TellsAFindingWithThePictureThatShowsItFirst) {
  const Stream stream = Pictures(4);
  StreamCheck check(stream.description);
  check.NewFindings();
  for (size_t i = 0; i < stream.packets.size(); ++i) {
    Bytes data = stream.packets[i].data;
    if (i >= 2) data.resize(data.size() - 3);
    check.Take({data, stream.packets[i].pts, stream.packets[i].dts, i == 0, -1});
    const std::vector<Finding> found = check.NewFindings();
    const auto damage = std::count_if(found.begin(), found.end(), [](const Finding& finding) {
      return finding.kind == FindingKind::kDamage && finding.frame == 2;
    });
    EXPECT_EQ(damage, i == 2 ? 1 : 0) << i;
  }
  check.Finish();
  EXPECT_EQ(check.pictures(), 4);
}

TEST(StreamCheck, HoldsWhatIsSaidAgainstTheStream) {
  const Stream stream = Pictures(0);
  for (const bool right : {true, false}) {
    SaidOfPictures said;
    said.width = right ? 64 : 128;
    said.height = 64;
    StreamCheck check(stream.description, said);
    check.Take({stream.packets[0].data, 0, 0, true, -1});
    const std::vector<FindingKind> kinds = KindsOf(check.NewFindings());
    EXPECT_EQ(std::count(kinds.begin(), kinds.end(), FindingKind::kSize), right ? 0 : 1);
  }
}

TEST(StreamCheck, TellsTheSameOnce) {
  StreamCheck check(Pictures(0).description);
  const Bytes none = {1, 2, 3};
  size_t told = 0;
  for (int i = 0; i < 3000; ++i) {
    check.Take({none, i, i, false, -1});
    told += check.NewFindings().size();
  }
  EXPECT_EQ(told, 1u);
  EXPECT_EQ(check.pictures(), 3000);
}

TEST(StreamCheck, KnowsTwoCodecs) {
  StreamDescription other;
  other.codec = VideoCodec::kMpeg2;
  EXPECT_THROW(StreamCheck{other}, Error);
}

}  // namespace
}  // namespace qlnmedia
