// Opens sources of captions.

#include "container/caption_source.h"

#include <fmt/format.h>
#include <strings.h>

#include <utility>

#include "base/error.h"
#include "base/text_file.h"
#include "captions/decoder.h"
#include "captions/pop_on_schedule.h"
#include "container/file_captions.h"

namespace qlnmedia {

namespace {

double PerSecond(captions::Rate rate) {
  const captions::RateInfo& info = captions::InfoOf(rate);
  return static_cast<double>(info.numerator) / info.denominator;
}

Pace PaceOfRate(captions::Rate rate) {
  Pace pace;
  pace.rate = pace.nominal = rate;
  pace.picturesPerSecond = PerSecond(rate);
  return pace;
}

// The coded pictures of a stream.
class PictureSource final : public CaptionSource {
 public:
  PictureSource(const std::string& path, const CaptionTiming& timing, const ProgressCallback& progress)
      : survey_(SurveyCaptions(path, SIZE_MAX, progress)) {
    stream = survey_.stream;
    pictures = survey_.counts.size();
    captioned = survey_.captioned();
    if (captioned == 0) throw NotApplicable(path, fmt::format("stream {} has no captions", stream));
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

// A caption file as pictures of one rate, from the first to the last with captions.
class TrackSource final : public CaptionSource {
 public:
  TrackSource(captions::CaptionTrack track, captions::Rate rate) : track_(std::move(track)), rate_(rate) {
    pace = PaceOfRate(rate);
    dropFrame = track_.dropFrame;
    offset_ = track_.FirstHour();
    if (offset_ != 0)
      hour = captions::TimecodeOf(offset_ / track_.framesPerNumber, track_.nominal, track_.dropFrame).hours;
    captions::CaptionPictures all(track_, rate_, offset_);
    while (!all.over()) all.Next(static_cast<int64_t>(pictures++));
    captioned = pictures;
  }

  double Read(const std::function<void(const CaptionedPicture&)>& take,
              const ProgressCallback& progress) override {
    Progress meter(progress, "reading", static_cast<int64_t>(pictures));
    captions::CaptionPictures all(track_, rate_, offset_);
    for (int64_t number = 0; !all.over(); ++number) {
      meter.At(number);
      take({static_cast<double>(number) / pace.picturesPerSecond, number, all.Next(number)});
    }
    meter.Done();
    return static_cast<double>(pictures) / pace.picturesPerSecond;
  }

 private:
  captions::CaptionTrack track_;
  captions::Rate rate_;
  int64_t offset_ = 0;
};

CaptionDecoder Decoded(CaptionSource& source, const ProgressCallback& progress) {
  CaptionDecoder decoder;
  const double end = source.Read(
      [&](const CaptionedPicture& picture) { decoder.Add(picture.triplets, picture.seconds); }, progress);
  decoder.Finish(end);
  return decoder;
}

bool HasEnding(const std::string& path, const char* ending) {
  constexpr size_t kEnding = 4;
  return path.size() > kEnding && strcasecmp(path.c_str() + path.size() - kEnding, ending) == 0;
}

std::unique_ptr<CaptionSource> OpenFile(const std::string& path, const CaptionTiming& timing,
                                        const CaptionSourceOptions& options) {
  const std::string text = ReadTextFile(path);
  // No pictures contradict what is asked for.
  std::optional<captions::Rate> asked;
  if (!timing.rate.empty()) asked = AskedPace({}, {}, timing.rate).rate;
  if (IsCueFile(path)) {
    const captions::Rate rate = asked.value_or(captions::Rate::k29_97);
    return std::make_unique<TrackSource>(MakeTrackOfCues(path, text, rate, options), rate);
  }
  std::string reason;
  std::optional<captions::CaptionTrack> track = captions::ReadCaptionTrack(text, &reason);
  if (!track) throw Error(path, reason);
  const captions::Rate rate = asked.value_or(track->rate);
  return std::make_unique<TrackSource>(std::move(*track), rate);
}

}  // namespace

bool IsCueFile(const std::string& path) { return HasEnding(path, ".srt") || HasEnding(path, ".vtt"); }

bool IsCaptionFile(const std::string& path) {
  return IsCueFile(path) || HasEnding(path, ".scc") || HasEnding(path, ".mcc");
}

captions::CaptionTrack MakeTrackOfCues(const std::string& path, const std::string& text, captions::Rate rate,
                                       const CaptionSourceOptions& options, std::vector<std::string>* done) {
  std::string reason;
  std::vector<captions::CueProblem> problems;
  std::optional<captions::CaptionTrack> track =
      captions::MakeCaptionTrack(text, rate, {options.fit, options.transliterate}, &problems, &reason);
  if (!track) throw Error(path, reason);
  const std::vector<std::string> left = captions::LinesOf(problems, false);
  const std::vector<std::string> solved = captions::LinesOf(problems, true);
  const auto tell = [&](const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
      if (options.told) options.told(path + ": " + line);
    }
  };
  if (done != nullptr)
    *done = solved;
  else
    tell(solved);
  tell(left);
  if (!left.empty())
    throw Error(path, left.front() + (left.size() > 1 ? fmt::format(" (and {} more)", left.size() - 1) : ""),
                "--fit breaks lines and shifts captions, --transliterate replaces characters");
  return std::move(*track);
}

std::unique_ptr<CaptionSource> OpenCaptionSource(const std::string& path, const CaptionTiming& timing,
                                                 const CaptionSourceOptions& options,
                                                 const ProgressCallback& progress) {
  if (IsCaptionFile(path)) return OpenFile(path, timing, options);
  return std::make_unique<PictureSource>(path, timing, progress);
}

std::vector<StyledService> DecodeStyled(CaptionSource& source, const ProgressCallback& progress) {
  return Decoded(source, progress).styled();
}

std::vector<CaptionService> DecodeCaptions(CaptionSource& source, const ProgressCallback& progress) {
  return Decoded(source, progress).services();
}

}  // namespace qlnmedia
