// Reports caption services and their first lines.

#include "inspect/captions.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "container/file_captions.h"

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

// The survey of the heads of pictures, where they can be had without reading the pictures.
std::optional<CaptionSurvey> SurveyOfHeads(const MediaFile& file, const FirstPictures& first) {
  const std::vector<MediaStream>& streams = file.streams();
  const auto stream = std::find_if(streams.begin(), streams.end(), [](const MediaStream& described) {
    return MayHaveCaptions(described.coded.codec);
  });
  if (stream == streams.end()) return {};
  for (const CodedStream& coded : first.coded) {
    if (coded.index != stream->index || coded.joined) continue;
    std::vector<KnownPacket> known;
    for (const std::vector<CodedPacket>* packets : {&coded.packets, &coded.more}) {
      for (const CodedPacket& packet : *packets) known.push_back({packet.size, packet.pts, packet.dts});
    }
    return known.empty() ? std::nullopt : SurveyHeads(file, coded.index, kPacketsInReport, known);
  }
  return {};
}

}  // namespace

StreamCaptions ReadFirstCaptions(const MediaFile& file, const FirstPictures& first) {
  StreamCaptions captions;
  const MediaInput& input = file.input();
  if (input.isPipe()) input.tape().WaitUntil(std::chrono::steady_clock::now() + kWaitForPipe);
  std::optional<CaptionSurvey> heads = SurveyOfHeads(file, first);
  const CaptionSurvey survey = heads ? std::move(*heads) : SurveyCaptions(input, kPacketsInReport);
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
