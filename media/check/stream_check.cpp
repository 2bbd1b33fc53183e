// The checker of one stream for those who have no file.

#include "qlnmedia/stream_check.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "check/finding_list.h"
#include "check/stream_checker.h"
#include "container/media_stream.h"

namespace qlnmedia {

namespace {

// As many as are kept to know that they were told.
constexpr size_t kMostTold = 1000;

MediaStream StreamOf(const StreamDescription& description, const SaidOfPictures& said) {
  if (!UnitCodecOf(description.codec)) throw Error("", "is no H.264 or HEVC stream");
  MediaStream stream;
  stream.kind = StreamKind::kVideo;
  stream.movingPictures = true;
  stream.coded = description;
  stream.hasColourDescription = true;
  if (said.colour) {
    stream.container.primaries = said.colour->primaries;
    stream.container.transfer = said.colour->transfer;
    stream.container.matrix = said.colour->matrix;
  }
  if (said.fullRange) stream.container.range = *said.fullRange ? kFullRange : kLimitedRange;
  stream.container.width = static_cast<int>(said.width);
  stream.container.height = static_cast<int>(said.height);
  stream.container.sampleAspect = {static_cast<int32_t>(said.sampleAspect.width),
                                   static_cast<int32_t>(std::max(1u, said.sampleAspect.height))};
  stream.mastering = said.mastering;
  stream.lightLevel = said.lightLevel;
  return stream;
}

}  // namespace

struct StreamCheck::Impl {
  Impl(const StreamDescription& description, const SaidOfPictures& said)
      : stream(StreamOf(description, said)), checker(stream, findings) {}

  MediaStream stream;
  FindingList findings;
  StreamChecker checker;
  size_t told = 0;
};

StreamCheck::StreamCheck(const StreamDescription& stream, const SaidOfPictures& said)
    : impl_(std::make_unique<Impl>(stream, said)) {}

StreamCheck::~StreamCheck() = default;

void StreamCheck::Take(const PacketView& packet) { impl_->checker.Take(packet); }

void StreamCheck::Finish() { impl_->checker.Finish(); }

std::vector<Finding> StreamCheck::NewFindings() {
  const std::vector<Finding>& all = impl_->findings.findings();
  std::vector<Finding> fresh(all.begin() + static_cast<std::ptrdiff_t>(impl_->told), all.end());
  impl_->told = all.size();
  if (impl_->told >= kMostTold) {
    impl_->findings = FindingList();
    impl_->told = 0;
  }
  return fresh;
}

int64_t StreamCheck::pictures() const { return impl_->checker.frames(); }

}  // namespace qlnmedia
