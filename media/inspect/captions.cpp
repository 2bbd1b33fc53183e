// Reports caption services and their first lines.

#include "inspect/captions.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "container/coded_stream.h"

namespace qlnmedia {

namespace {

constexpr size_t kLinesInReport = 5;
constexpr std::chrono::seconds kWaitForPipe{3};

// How many steps are those of pictures that were all read: where reading stopped in the middle of a stream,
// pictures that come late in coding order are missing at the end.
size_t WholeSteps(const CaptionSurvey& survey, bool whole) {
  constexpr size_t kLate = 32;
  const size_t count = survey.order.steps.size();
  return whole ? count : count - std::min(count, kLate);
}

Rational AverageRate(const CaptionSurvey& survey, bool whole) {
  const size_t count = WholeSteps(survey, whole);
  uint64_t ticks = 0;
  for (size_t i = 0; i < count; ++i) ticks += survey.order.steps[i];
  const Rational unit = survey.order.timeBase;
  if (ticks == 0 || unit.numerator <= 0 || unit.denominator <= 0) return {};
  return Reduced(count * static_cast<uint64_t>(unit.denominator),
                 ticks * static_cast<uint64_t>(unit.numerator));
}

// Whether pictures stand equally long but for the rounding of their times.
std::optional<bool> IsPaceSteady(const CaptionSurvey& survey, bool whole) {
  const std::vector<uint32_t>& steps = survey.order.steps;
  const size_t count = WholeSteps(survey, whole);
  if (count < 3) return {};
  const auto [shortest, longest] =
      std::minmax_element(steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(count));
  return *longest - *shortest <= 2;
}

// The first stream that may have captions.
std::optional<unsigned> CaptionedStream(const MediaFile& file) {
  for (const MediaStream& described : file.streams()) {
    if (MayHaveCaptions(described.coded.codec)) return described.index;
  }
  return {};
}

// The survey of the heads of pictures, where they can be had without reading the pictures.
std::optional<CaptionSurvey> SurveyOfHeads(const MediaFile& file, const FirstPictures& first) {
  const std::optional<unsigned> stream = CaptionedStream(file);
  for (const CodedStream& coded : first.coded) {
    if (stream != coded.index || coded.joined) continue;
    std::vector<KnownPacket> known;
    for (const std::vector<CodedPacket>* packets : {&coded.packets, &coded.more}) {
      for (const CodedPacket& packet : *packets) known.push_back({packet.size, packet.pts, packet.dts});
    }
    return known.empty() ? std::nullopt : SurveyHeads(file, coded.index, kPacketsInReport, known);
  }
  return {};
}

}  // namespace

SurveyAlong::SurveyAlong(MediaFile& file) : file_(file) {
  const std::optional<unsigned> stream = CaptionedStream(file);
  if (!stream || file.isPipe() || !(file.isRawStream() || file.isMxf() || file.isTransportStream())) return;
  stream_ = *stream;
  counter_.emplace(DescribeStream(file, stream_), SIZE_MAX);
  order_ = OwnOrder(file, DescribeStream(file, stream_));
}

void SurveyAlong::Take(const MediaPacket& packet) {
  if (!counter_ || packet.stream != stream_ || counter_->packets() == kPacketsInReport) return;
  counter_->Add(packet.view);
  order_.Add(packet.view);
}

std::optional<CaptionSurvey> SurveyAlong::Finish() {
  if (!counter_) return {};
  for (MediaPacket packet; counter_->packets() < kPacketsInReport && file_.Next(packet);) Take(packet);
  CaptionSurvey survey = counter_->Finish();
  order_.Apply(survey);
  survey.elsewhere = LineOfRaster(file_);
  survey.path = file_.path();
  survey.stream = stream_;
  counter_.reset();
  return survey;
}

StreamCaptions ReadFirstCaptions(const MediaFile& file, const FirstPictures& first,
                                 std::optional<CaptionSurvey> along) {
  StreamCaptions captions;
  const MediaInput& input = file.input();
  if (input.isPipe()) input.tape().WaitUntil(std::chrono::steady_clock::now() + kWaitForPipe);
  if (!along) along = SurveyOfHeads(file, first);
  const CaptionSurvey survey = along ? std::move(*along) : SurveyCaptions(input, kPacketsInReport);
  captions.stream = survey.stream;
  captions.pictures = survey.counts.size();
  const bool whole = survey.order.places.size() < kPacketsInReport;
  captions.averageRate = AverageRate(survey, whole);
  captions.steadyPace = IsPaceSteady(survey, whole);
  captions.found = survey.captioned() != 0;
  if (captions.found) captions.services = DecodeCaptions(survey);
  return captions;
}

void AddCaptionServices(Section& section, const std::vector<CaptionService>& services) {
  Json names = Json::array();
  for (const CaptionService& service : services) names.push_back(service.name);
  section.Add("captions", "Captions", names, services.empty() ? "nothing but padding" : NamesOf(services));
  for (const CaptionService& service : services) {
    for (size_t i = 0; i < std::min(service.lines.size(), kLinesInReport); ++i) {
      std::string text = WriteCaptionText({service.lines[i]});
      text.pop_back();
      section.AddNote(fmt::format("caption, {}: {}", service.name, text));
    }
  }
}

void AddAnnouncedServices(Section& section, const std::vector<AnnouncedService>& services) {
  for (const AnnouncedService& service : services) {
    Section& one = section.AddToList("caption_services", "Caption service, by the container");
    one.Add("name", "Name", service.name);
    one.Add("language", "Language", service.language);
    one.Add("easy_reader", "Easy reader", service.easyReader, service.easyReader ? "yes" : "no");
    one.Add("wide_aspect_ratio", "Wide aspect ratio", service.wideAspectRatio,
            service.wideAspectRatio ? "yes" : "no");
  }
}

}  // namespace qlnmedia
