// Hands triplets to the services that they belong to.

#include "captions/decoder.h"

#include <fmt/format.h>

#include <set>
#include <utility>

namespace qlnmedia {

using qlnmedia::captions::CcType;
using qlnmedia::captions::Triplet;

void CaptionDecoder::Add(const Triplets& triplets, double seconds) {
  std::set<int> changed;
  const auto take = [&](int service, ByteSpan block) {
    digital_[service].screen.Add(block);
    changed.insert(service);
  };
  for (const Triplet& t : triplets) {
    const bool line21 = t.type == CcType::kField1 || t.type == CcType::kField2;
    if (line21 && t.valid) fields_[t.type == CcType::kField2 ? 1 : 0].Add(t.first, t.second, seconds);
    if (!line21) reader_.Add(t, take);
  }
  for (const int service : changed) {
    Digital& digital = digital_[service];
    digital.Show(digital.screen.Text(), seconds);
  }
}

void CaptionDecoder::Digital::Show(std::string text, double seconds) {
  if (text == shown) return;
  const bool goesOn = !shown.empty() && text.starts_with(shown);
  if (goesOn) {
    lines.back().text = text;
  } else {
    if (!shown.empty()) lines.back().end = seconds;
    if (!text.empty()) lines.push_back({seconds, seconds, text});
  }
  shown = std::move(text);
}

void CaptionDecoder::Finish(double seconds) {
  for (Line21Field& field : fields_) field.Finish(seconds);
  for (auto& [service, digital] : digital_) digital.Show({}, seconds);
}

std::vector<StyledService> CaptionDecoder::styled() const {
  std::vector<StyledService> services;
  for (const Line21Field& field : fields_) {
    for (StyledService& service : field.services()) services.push_back(std::move(service));
  }
  for (const auto& [number, digital] : digital_) {
    services.push_back({fmt::format("service {}", number), {}});
    for (const CaptionLine& line : digital.lines)
      services.back().captions.push_back(captions::PlainCaption(line.begin, line.end, line.text));
  }
  return services;
}

std::vector<CaptionService> CaptionDecoder::services() const {
  std::vector<CaptionService> services;
  for (const StyledService& service : styled()) {
    services.push_back({service.name, {}});
    for (const captions::StyledCaption& caption : service.captions)
      services.back().lines.push_back({caption.begin, caption.end, captions::TextOf(caption)});
  }
  return services;
}

}  // namespace qlnmedia
