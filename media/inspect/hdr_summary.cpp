// Names the kind of high dynamic range, and words mastering displays.

#include "inspect/hdr_summary.h"

#include <fmt/format.h>

#include "hdr/values.h"
#include "inspect/user_data.h"

namespace qlnmedia {

namespace {

// The gamut of a mastering display, where it is one that has a name.
std::string GamutName(const MasteringDisplay& display) {
  for (const auto& [text, name] : {std::pair{"p3", "Display P3"}, std::pair{"bt2020", "BT.2020"}}) {
    const MasteringDisplay known = ParseMasteringDisplay(text);
    if (known.red == display.red && known.green == display.green && known.blue == display.blue) return name;
  }
  return {};
}

double Luminance(uint32_t value) { return value / 10000.0; }

std::string MasteringText(const MasteringDisplay& display) {
  const std::string gamut = GamutName(display);
  return fmt::format("mastered on {}{:g} to {:g} cd/m2", gamut.empty() ? "" : gamut + ", ",
                     Luminance(display.minLuminance), Luminance(display.maxLuminance));
}

Json PointJson(const MasteringDisplay::Point& point) {
  return Json{{"x", point.x / 50000.0}, {"y", point.y / 50000.0}};
}

Json MasteringJson(const MasteringDisplay& display) {
  return Json{{"gamut", GamutName(display).empty() ? Json(nullptr) : Json(GamutName(display))},
              {"red", PointJson(display.red)},
              {"green", PointJson(display.green)},
              {"blue", PointJson(display.blue)},
              {"white", PointJson(display.white)},
              {"min_luminance", Luminance(display.minLuminance)},
              {"max_luminance", Luminance(display.maxLuminance)}};
}

// "8.1": profile 8 is told apart by what its base layer is compatible with; the others are not.
std::string DolbyVisionProfile(const DolbyVisionConfiguration& record) {
  if (record.dv_profile != 8) return fmt::format("{}", record.dv_profile);
  return fmt::format("8.{}", record.dv_bl_signal_compatibility_id);
}

std::string KindOf(const StreamHdr& values, uint32_t primaries, uint32_t transfer) {
  constexpr uint32_t kBt2020 = 9;
  constexpr uint32_t kPq = 16;
  constexpr uint32_t kHlg = 18;
  if (transfer == kHlg) return "HLG";
  if (transfer != kPq) return {};
  return primaries == kBt2020 && values.mastering ? "HDR10" : "PQ";
}

}  // namespace

void HdrSeen::Take(Codec codec, const std::vector<Unit>& units) {
  constexpr int kDolbyVisionUnit = 62;
  const StreamHdr found = HdrOf(codec, units);
  if (!values.mastering) values.mastering = found.mastering;
  if (!values.lightLevel) values.lightLevel = found.lightLevel;
  for (const Unit& unit : units) {
    const int type = UnitType(codec, unit.bytes);
    if (codec == Codec::kHevc && type == kDolbyVisionUnit) dolbyVision = true;
    if (!IsSei(codec, type)) continue;
    for (const SeiMessage& message : ReadSeiMessages(codec, unit.bytes)) {
      if (message.type != sei::kRegisteredUserData) continue;
      const std::string name = T35Name(message.payload);
      dynamic = dynamic || name.starts_with("HDR10+");
      dolbyVision = dolbyVision || name.starts_with("Dolby Vision");
    }
  }
}

void AddHdrSummary(Section& section, const MediaStream& stream, const HdrSeen& seen, uint32_t primaries,
                   uint32_t transfer) {
  StreamHdr values = seen.values;
  if (!values.mastering) values.mastering = stream.mastering;
  if (!values.lightLevel) values.lightLevel = stream.lightLevel;
  const std::string kind = KindOf(values, primaries, transfer);
  const bool vision = stream.dolbyVision.has_value() || seen.dolbyVision;
  if (kind.empty() && !values.mastering && !values.lightLevel && !vision && !seen.dynamic)
    return section.AddValue("hdr", nullptr);
  Json json{{"kind", kind.empty() ? Json(nullptr) : Json(kind)}};
  std::string text = kind;
  const auto add = [&text](const std::string& piece) { text += (text.empty() ? "" : ", ") + piece; };
  json["hdr10_plus"] = seen.dynamic;
  if (seen.dynamic) add("HDR10+");
  if (stream.dolbyVision) {
    const std::string profile = DolbyVisionProfile(*stream.dolbyVision);
    json["dolby_vision"] = Json{{"profile", profile}, {"level", stream.dolbyVision->dv_level}};
    add(fmt::format("Dolby Vision profile {} level {}", profile, stream.dolbyVision->dv_level));
  } else {
    json["dolby_vision"] = vision ? Json{{"profile", nullptr}, {"level", nullptr}} : Json(nullptr);
    if (vision) add("Dolby Vision metadata");
  }
  json["mastering_display"] = values.mastering ? MasteringJson(*values.mastering) : Json(nullptr);
  if (values.mastering) add(MasteringText(*values.mastering));
  json["max_content_light_level"] = values.lightLevel ? Json(values.lightLevel->maxContent) : Json(nullptr);
  json["max_average_light_level"] = values.lightLevel ? Json(values.lightLevel->maxAverage) : Json(nullptr);
  if (values.lightLevel)
    add(fmt::format("light level {} cd/m2, average {}", values.lightLevel->maxContent,
                    values.lightLevel->maxAverage));
  section.AddValue("hdr", json);
  section.AddLine("HDR", text);
}

}  // namespace qlnmedia
