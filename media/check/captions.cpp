// Holds the captions of a stream against what its rate asks for, and says what they are.

#include "check/captions.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace qlnmedia {

namespace {

constexpr uint8_t kNone = CaptionSurvey::kNone;

size_t TripletsOf(std::optional<captions::Rate> rate) {
  return rate ? static_cast<size_t>(captions::InfoOf(*rate).triplets) : 0;
}

}  // namespace

CaptionRun::CaptionRun(const CaptionPace& pace, FindingList& findings)
    : pace_(pace), findings_(findings), wanted_(TripletsOf(pace.fieldRate ? pace.fieldRate : pace.rate)) {}

void CaptionRun::Take(const Picture& picture) {
  if (last_) Judge(&picture);
  last_ = picture;
  ++index_;
}

void CaptionRun::Finish() {
  if (!last_) return;
  Judge(nullptr);
  ++index_;
  if (gap_ && any_) CheckGap(1);
}

// With pulldown those of each field that the picture is shown for.
size_t CaptionRun::Wanted(const Picture& picture) const {
  return pace_.fieldRate ? wanted_ * picture.fields : wanted_;
}

// Pictures whose triplets stand on the picture, itself included.
size_t CaptionRun::Served(const Picture& picture) const {
  const size_t wanted = Wanted(picture);
  return wanted == 0 || picture.count == kNone ? 1 : (picture.count + wanted - 1) / wanted;
}

void CaptionRun::Judge(const Picture* behind) {
  if (last_->count == kNone) {
    if (!gap_) {
      gap_ = index_;
      gapSeconds_ = last_->seconds;
    }
    return;
  }
  any_ = true;
  const bool bare = gap_.has_value();
  if (bare) CheckGap(Served(*last_));
  // More than its own, and pictures without any in front of it or behind it.
  const bool burst = Served(*last_) >= 2 && (bare || (behind != nullptr && behind->count == kNone));
  CheckCount(burst);
  gap_.reset();
  servedInFront_ = Served(*last_);
}

void CaptionRun::CheckCount(bool burst) {
  const size_t count = last_->count;
  const size_t wanted = Wanted(*last_);
  if (wanted == 0 || count == wanted) return;
  if (burst)
    return Add(fmt::format("a burst of {} caption triplets on one picture between pictures without any; its "
                           "rate asks for {} on each",
                           count, wanted),
               index_, last_->seconds);
  Add(fmt::format("a picture with {} caption triplets, {} than the {} of its rate", count,
                  count > wanted ? "more" : "fewer", wanted),
      index_, last_->seconds);
}

// Pictures from `gap_` to before `index_` have no captions. Those whose triplets stand in a burst beside them
// are told with it.
void CaptionRun::CheckGap(size_t servedBehind) {
  const auto pictures = static_cast<size_t>(index_ - *gap_);
  if (pictures < std::max(servedInFront_, servedBehind)) return;
  const double seconds =
      pace_.picturesPerSecond > 0 ? static_cast<double>(pictures) / pace_.picturesPerSecond : 0;
  Add(pictures == 1
          ? std::string("a picture without captions in a stream that has some")
          : fmt::format("a gap of {} pictures ({:.2f} s) without captions in a stream that has some",
                        pictures, seconds),
      *gap_, gapSeconds_);
}

void CaptionRun::Add(std::string text, int64_t picture, std::optional<double> seconds) {
  findings_.At(seconds);
  findings_.Add(pace_.stream, FindingKind::kCaptions, std::move(text), picture);
}

void CheckCaptions(const CaptionSurvey& survey, FindingList& findings) {
  CaptionRun run({survey.stream, survey.pace.picturesPerSecond, survey.pace.rate, survey.fieldRate},
                 findings);
  for (size_t i = 0; i < survey.counts.size(); ++i)
    run.Take({survey.counts[i], survey.fieldRate ? survey.fields[i] : uint8_t{0}, {}});
  run.Finish();
}

}  // namespace qlnmedia
