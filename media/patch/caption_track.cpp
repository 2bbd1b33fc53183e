// Spreads captions over the pictures of a track by the times of its samples.

#include "patch/caption_track.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "base/error.h"
#include "captions/caption_sample.h"
#include "container/mp4/caption_track.h"
#include "container/mp4/sample_table.h"
#include "patch/caption_file.h"
#include "patch/picture_times.h"

namespace qlnmedia {

namespace {

// When pictures are shown, in order, and when the last one ends; in units of their track.
struct PictureTimes {
  std::vector<int64_t> times;
  int64_t end = 0;
};

PictureTimes ReadTimes(const mp4::Source& file, const mp4::Layout& layout, uint32_t track) {
  PictureTimes found;
  mp4::TrackSamples samples(file, layout, track);
  for (mp4::Sample sample; samples.Next(sample);) {
    found.times.push_back(sample.compositionTime);
    found.end = std::max(found.end, sample.compositionTime + int64_t{sample.duration});
  }
  std::sort(found.times.begin(), found.times.end());
  return found;
}

// The samples of a track, as they come.
class SampleMaker {
 public:
  // Captions of pictures that share a sample.
  void Add(const Triplets& triplets, uint32_t duration) {
    for (const captions::Triplet& triplet : triplets) Count(triplet);
    const Bytes sample = captions::WriteCaptionSample(triplets);
    samples_.push_back(sample);
    durations_.push_back(duration);
  }
  uint64_t services() const { return services_; }
  bool second() const { return second_; }
  bool empty() const { return !first_ && !second_; }

  mp4::CaptionSamples Result() {
    mp4::CaptionSamples result;
    for (const Bytes& sample : samples_) {
      const size_t size = second_ ? sample.size() : captions::FirstFieldBytes(sample);
      result.bytes.insert(result.bytes.end(), sample.begin(),
                          sample.begin() + static_cast<std::ptrdiff_t>(size));
      result.sizes.push_back(static_cast<uint32_t>(size));
    }
    result.durations = std::move(durations_);
    return result;
  }

 private:
  void Count(const captions::Triplet& triplet) {
    if (!triplet.valid) return;
    if (triplet.type != captions::CcType::kField1 && triplet.type != captions::CcType::kField2) {
      ++services_;
      return;
    }
    const bool padding = ((triplet.first | triplet.second) & 0x7F) == 0;
    if (!padding) (triplet.type == captions::CcType::kField1 ? first_ : second_) = true;
  }

  std::vector<Bytes> samples_;
  std::vector<uint32_t> durations_;
  bool first_ = false, second_ = false;  // whether the fields say anything
  uint64_t services_ = 0;                // triplets that line 21 cannot hold
};

void FillSamples(const PictureTimes& pictures, CaptionFile& captions, SampleMaker& maker) {
  constexpr int kLine21Frames = 30;  // a second
  const size_t together = captions::InfoOf(captions.rate()).nominal > kLine21Frames ? 2 : 1;
  const CaptionProvider provider = captions.provider();
  const size_t count = pictures.times.size();
  for (size_t i = 0; i < count; i += together) {
    const size_t next = std::min(i + together, count);
    Triplets triplets;
    for (size_t picture = i; picture < next; ++picture) {
      const Triplets more = provider(static_cast<uint32_t>(picture));
      triplets.insert(triplets.end(), more.begin(), more.end());
    }
    const int64_t end = next < count ? pictures.times[next] : pictures.end;
    maker.Add(triplets, static_cast<uint32_t>(std::clamp<int64_t>(end - pictures.times[i], 0, UINT32_MAX)));
  }
}

uint16_t LanguageOf(const CaptionOptions& options) {
  const std::string language = options.language.empty() ? "und" : options.language;
  const std::optional<uint16_t> code = mp4::LanguageCode(language);
  if (!code)
    throw Error("--caption-language", fmt::format("\"{}\" is no language", language),
                "write three small letters of ISO 639-2: eng, fra, deu");
  return *code;
}

}  // namespace

CaptionedInput PutCaptionTrack(const mp4::Source& file, const MediaFile& in, const PatchOptions& options) {
  const uint16_t language = LanguageOf(*options.captions);
  const MediaStream& stream = FirstPictures(in, options.in);
  const mp4::Layout layout = mp4::ReadLayout(file);
  const auto id = static_cast<uint32_t>(stream.id);
  const mp4::Track* const track = layout.movies.empty() ? nullptr : layout.movies.front().Find(id);
  if (track == nullptr)
    throw Error(options.in, fmt::format("stream {}: there is no track {}", stream.index, id));
  track->Require();
  const PictureTimes pictures = ReadTimes(file, layout, id);
  if (pictures.times.empty() || track->timescale == 0 || track->timescale > INT32_MAX)
    throw Error(options.in, fmt::format("stream {} has no pictures with times", stream.index));
  StreamDescription described = stream.coded;
  described.timeBase = {1, static_cast<int32_t>(track->timescale)};
  const CaptionSurvey survey = SurveyOfTimes(described, pictures.times);
  CaptionFile captions(*options.captions);
  captions.SpreadOver(survey, options.in, stream.index, options.rate);
  SampleMaker maker;
  FillSamples(pictures, captions, maker);
  if (maker.empty())
    throw Error(options.captions->file, "has no captions of line 21, which a c608 track is made of");
  mp4::CaptionSamples samples = maker.Result();
  samples.first = pictures.times.front();
  samples.perChunk = static_cast<uint32_t>(captions::InfoOf(captions.rate()).nominal);
  samples.language = language;
  mp4::FileWithCaptions made = mp4::PutCaptionTrack(file, id, samples, options.captions->replace);
  CaptionedInput result;
  result.source = std::move(made.source);
  result.lines = {fmt::format("stream {}: caption track {}: {} samples of line 21, {}", stream.index,
                              made.replaced ? "replaced" : "put in", samples.sizes.size(),
                              maker.second() ? "both fields" : "field 1")};
  for (std::string& line : captions.Warnings()) result.lines.push_back(std::move(line));
  if (maker.services() != 0)
    result.lines.push_back(
        fmt::format("warning: {} triplets of digital captions are left out: a c608 track holds line 21",
                    maker.services()));
  return result;
}

}  // namespace qlnmedia
