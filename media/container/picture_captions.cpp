// Reads surveyed pictures once more.

#include "container/picture_captions.h"

#include <fmt/format.h>

#include <utility>

#include "base/error.h"
#include "container/file_captions.h"

namespace qlnmedia {

namespace {

double PerSecond(captions::Rate rate) {
  const captions::RateInfo& info = captions::InfoOf(rate);
  return static_cast<double>(info.numerator) / info.denominator;
}

// The coded pictures of a stream.
class PictureSource final : public CaptionSource {
 public:
  PictureSource(CaptionSurvey survey, const CaptionTiming& timing) : survey_(std::move(survey)) {
    stream = survey_.stream;
    pictures = survey_.counts.size();
    captioned = survey_.captioned();
    if (captioned == 0)
      throw NotApplicable(survey_.path, fmt::format("stream {} has no captions", stream), survey_.elsewhere);
    pace = survey_.pace = AskedPace(survey_.pace, survey_.order, timing.rate);
    dropFrame = survey_.dropFrame;
  }

  double Read(const std::function<void(const CaptionedPicture&)>& take,
              const ProgressCallback& progress) override {
    PictureClock clock(survey_.order, survey_.pace);
    const auto count = [&](const CaptionedPicture& picture) {
      take(picture);
      clock.Next();
    };
    ReadCaptions(survey_, count, progress);
    return clock.seconds();
  }

 private:
  CaptionSurvey survey_;
};

// Coded pictures with pulldown, as the frames of two fields that are shown.
class PulldownSource final : public CaptionSource {
 public:
  PulldownSource(const CaptionSurvey& survey, const ProgressCallback& progress)
      : rate_(*survey.fieldRate == captions::Rate::k60 ? captions::Rate::k30 : captions::Rate::k29_97) {
    stream = survey.stream;
    dropFrame = survey.dropFrame;
    pace = PaceOfRate(rate_);
    captioned = survey.captioned();
    pictures = survey.counts.size();
    track_.rate = *survey.fieldRate;
    track_.nominal = captions::InfoOf(track_.rate).nominal;
    track_.fromZero = true;
    size_t picture = 0;
    const auto take = [&](const CaptionedPicture& one) {
      if (!one.triplets.empty()) track_.events.push_back({fields_, one.triplets});
      fields_ += survey.fields.at(picture++);
    };
    ReadCaptions(survey, take, progress);
  }

  double Read(const std::function<void(const CaptionedPicture&)>& take,
              const ProgressCallback& progress) override {
    const int64_t frames = (fields_ + 1) / 2;
    Progress meter(progress, "reading", frames);
    captions::CaptionPictures all(track_, rate_, 0);
    for (int64_t number = 0; number < frames || !all.over(); ++number) {
      meter.At(number);
      take({static_cast<double>(number) / pace.picturesPerSecond, number, all.Next(number)});
    }
    meter.Done();
    return static_cast<double>(frames) / pace.picturesPerSecond;
  }

 private:
  captions::CaptionTrack track_;
  captions::Rate rate_;
  int64_t fields_ = 0;
};

}  // namespace

Pace PaceOfRate(captions::Rate rate) {
  Pace pace;
  pace.rate = pace.nominal = rate;
  pace.picturesPerSecond = PerSecond(rate);
  return pace;
}

std::unique_ptr<CaptionSource> OpenPictureCaptions(CaptionSurvey survey, const CaptionTiming& timing,
                                                   const ProgressCallback& progress) {
  if (survey.fieldRate && survey.captioned() != 0 && timing.rate.empty())
    return std::make_unique<PulldownSource>(survey, progress);
  return std::make_unique<PictureSource>(std::move(survey), timing);
}

}  // namespace qlnmedia
