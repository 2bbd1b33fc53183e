// Reports caption services and their first lines.

#include "inspect/captions.h"

#include <fmt/format.h>

#include <algorithm>

#include "container/file_captions.h"

namespace qlnmedia {

namespace {

constexpr size_t kPacketsInReport = 1800;
constexpr size_t kLinesInReport = 5;

}  // namespace

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

void AddCaptions(Section& section, const std::string& path, unsigned index) {
  const CaptionSurvey survey = SurveyCaptions(path, kPacketsInReport);
  if (survey.stream == index && survey.captioned() != 0) AddCaptionServices(section, DecodeCaptions(survey));
}

}  // namespace qlnmedia
