// Holds the captions of a stream against what its rate asks for, and says what they are.

#include "qlnmedia/caption_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "qlnmedia/caption_text.h"

namespace qlnmedia {

namespace {

constexpr size_t kPacketsInReport = 1800;
constexpr size_t kLinesInReport = 5;

}  // namespace

void CheckCaptions(const std::string& path, std::vector<Finding>& findings) {
  const StreamCaptions captions = ReadStreamCaptions(path);
  if (captions.captioned() == 0) return;
  const size_t wanted =
      captions.rate ? static_cast<size_t>(qln::captions::InfoOf(*captions.rate).triplets) : 0;
  std::map<std::string, Finding> found;  // by their texts
  const auto add = [&](const std::string& text, size_t picture) {
    const auto [place, isNew] =
        found.try_emplace(text, Finding{captions.stream, "captions", text, static_cast<int64_t>(picture), 1});
    if (!isNew) ++place->second.count;
  };
  for (size_t i = 0; i < captions.pictures.size(); ++i) {
    if (!captions.pictures[i]) {
      add("a picture without captions in a stream that has some", i);
      continue;
    }
    const size_t count = captions.pictures[i]->size();
    if (wanted == 0 || count == wanted) continue;
    add(fmt::format("a picture with {} caption triplets, {} than the {} of its rate", count,
                    count > wanted ? "more" : "less", wanted),
        i);
  }
  for (auto& [text, finding] : found) findings.push_back(std::move(finding));
}

void ReportCaptions(Section& section, const std::string& path, unsigned index) {
  const StreamCaptions captions = ReadStreamCaptions(path, kPacketsInReport);
  if (captions.stream != index || captions.captioned() == 0) return;
  const std::vector<Triplets> pictures = captions.triplets();
  const std::vector<std::string> services = CaptionServices(pictures);
  section.Add("captions", "Captions", services,
              services.empty() ? "nothing but padding" : fmt::format("{}", fmt::join(services, ", ")));
  const std::vector<CaptionLine> lines = DecodeLine21(pictures, captions.picturesPerSecond);
  for (size_t i = 0; i < std::min(lines.size(), kLinesInReport); ++i) {
    std::string text = WriteCaptionText({lines[i]});
    text.pop_back();
    section.AddNote("caption " + text);
  }
}

}  // namespace qlnmedia
