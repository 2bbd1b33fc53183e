// Facts that both codecs report alike.

#include "inspect/codec.h"

#include <fmt/format.h>

#include <algorithm>

#include "hdr/stream_hdr.h"
#include "sets/names.h"

namespace qlnmedia {

void AddPictureSize(Section& section, const char* key, const char* label, PictureSize size) {
  section.Add(key, label, Json{{"width", size.width}, {"height", size.height}},
              fmt::format("{} x {}", size.width, size.height));
}

void AddSampleAspect(Section& section, uint32_t aspect_ratio_idc, uint32_t sar_width, uint32_t sar_height) {
  const SampleAspect aspect = SampleAspectRatio(aspect_ratio_idc, sar_width, sar_height);
  if (aspect.width == 0 || aspect.height == 0) {
    section.Add("sample_aspect_ratio", "Sample aspect", nullptr, "unspecified");
    return;
  }
  section.Add("sample_aspect_ratio", "Sample aspect",
              Json{{"width", aspect.width}, {"height", aspect.height}},
              fmt::format("{}:{}", aspect.width, aspect.height));
}

void AddFrameRate(Section& section, uint64_t numerator, uint64_t denominator, const char* note) {
  if (numerator == 0 || denominator == 0) return;
  section.Add("frame_rate", "Frame rate", Json{{"numerator", numerator}, {"denominator", denominator}},
              RateText(numerator, denominator), note);
}

void AddColour(Section& section, uint32_t primaries, uint32_t transfer, uint32_t matrix) {
  section.Add("colour_primaries_name", "Primaries", ColourPrimariesName(primaries));
  section.Add("transfer_characteristics_name", "Transfer", TransferName(transfer));
  section.Add("matrix_coefficients_name", "Matrix", MatrixName(matrix));
}

void AddRange(Section& section, bool full) { section.Add("range", "Range", full ? "full" : "limited"); }

namespace {

// Why the library changes an element, by its name; empty where the name does not tell.
std::string ReasonOf(Codec codec, const std::string& name) {
  const auto has = [&](std::string_view part) { return name.find(part) != std::string::npos; };
  if (codec == Codec::kH264) {
    if (has("ScalingList") || has("scaling_list") || has("UseDefaultScalingMatrix"))
      return "scaling lists are written as values, not as differences";
    if (has("offset_for_")) return "picture order offsets are kept as code numbers";
    if (has("hrd.cpb_cnt_minus1")) return "at most 8 HRD schedules are kept";
    if (has("slice_group_id") || has("pic_size_in_map_units_minus1"))
      return "slice group ids are not written";
    return "";
  }
  if (name == "init_qp_minus26" || name == "pps_cb_qp_offset" || name == "pps_cr_qp_offset" ||
      name == "pps_beta_offset_div2" || name == "pps_tc_offset_div2")
    return "positive signed values are written with the library's own mapping";
  if (has("scaling_list")) return "scaling list data is not written";
  if (has("max_dec_pic_buffering_minus1") || has("max_num_reorder_pics") || has("max_latency_increase_plus1"))
    return "sub-layer values, of which one is kept";
  return "";
}

// Whether the first byte in which two units differ is an emulation prevention byte that the second lacks.
bool LacksEscape(const Bytes& source, const Bytes& written) {
  const auto [at, other] = std::mismatch(source.begin(), source.end(), written.begin(), written.end());
  return at - source.begin() >= 2 && at != source.end() && *at == 3 && at[-1] == 0 && at[-2] == 0;
}

// Whether the element of that name, which may carry an index of its own, stands behind the first one whose
// name begins with `start`.
bool StandsBehind(const std::vector<Element>& elements, const std::string& name, const std::string& start) {
  bool behind = false;
  for (const Element& element : elements) {
    if (name == element.name || name.rfind(element.name + "[", 0) == 0) return behind;
    behind = behind || element.name.rfind(start, 0) == 0;
  }
  return false;
}

}  // namespace

void AddComparison(Section& section, Codec codec, const Bytes& source, const Bytes& written,
                   const ElementLister& list, const std::string& cause, const std::string& lostBehind) {
  const bool same = source == written;
  section.Add("read_write_same", "Written back", same, same ? "the same bytes" : "other bytes");
  if (same) return;
  if (written.empty()) {
    section.Add("first_change", "First change", nullptr, "the library does not write it");
    return;
  }
  std::optional<ElementChange> change = FirstChange(codec, source, written, list);
  if (!change) {
    section.Add("first_change", "First change", Json{{"element", nullptr}, {"why", "emulation prevention"}},
                "none in an element: the escapes differ", "emulation prevention");
    return;
  }
  std::string why = LacksEscape(source, written) ? "an emulation prevention byte near the end is not written"
                                                 : ReasonOf(codec, change->name);
  if (why.empty()) why = cause;
  if (!lostBehind.empty() && StandsBehind(list(source), change->name, lostBehind)) {
    section.AddNote(
        fmt::format("which element changes first is not told: it stands behind {}, where the library's "
                    "reading may leave the stream's syntax",
                    lostBehind));
    change->name.clear();
    why = cause;
  }
  if (change->name.empty()) {
    section.Add("first_change", "First change", Json{{"element", nullptr}, {"why", why}},
                "in no element that is kept", why);
    return;
  }
  section.Add(
      "first_change", "First change",
      Json{{"element", change->name}, {"was", change->was}, {"comes_back", change->comesBack}, {"why", why}},
      fmt::format("{} {}, comes back as {}", change->name, PlainText(change->was),
                  PlainText(change->comesBack)),
      why);
}

void AddHdr(Section& section, const StreamHdr& hdr) {
  if (hdr.mastering)
    section.Add("mastering_display", "Mastering display", MasteringDisplayText(*hdr.mastering));
  if (hdr.lightLevel)
    section.Add(
        "content_light_level", "Light level",
        Json{{"max", hdr.lightLevel->maxContent}, {"average", hdr.lightLevel->maxAverage}},
        fmt::format("{} cd/m2, average {} cd/m2", hdr.lightLevel->maxContent, hdr.lightLevel->maxAverage));
}

void AddColourMessages(Section& frame, Codec codec, const UnitRun& run) {
  AddHdr(frame, HdrOf(codec, run.units));
}

void AddCaptionMessages(Section& frame, Codec codec, const UnitRun& run) {
  // itu_t_t35_country_code, the provider, "GA94" and the type code of cc_data (ATSC A/53 part 4
  // clause 6.2.3).
  constexpr uint8_t kHead[] = {0xB5, 0x00, 0x31, 'G', 'A', '9', '4', 0x03};
  constexpr int kRegisteredUserData = 4;
  constexpr uint8_t kProcessData = 0x40;
  for (const Unit& unit : run.units) {
    const int type = UnitType(codec, unit.bytes);
    if (codec == Codec::kH264 ? type != 6 : type != 39 && type != 40) continue;
    for (const SeiMessage& message : ReadSeiMessages(codec, unit.bytes)) {
      const Bytes& payload = message.payload;
      if (message.type != kRegisteredUserData || payload.size() <= sizeof kHead ||
          !std::equal(std::begin(kHead), std::end(kHead), payload.begin()))
        continue;
      const int count = payload[sizeof kHead] & 31;
      const bool marked = (payload[sizeof kHead] & kProcessData) != 0;
      frame.Add("captions", "Captions", Json{{"form", "GA94"}, {"cc_count", count}},
                fmt::format("GA94, {} triplets", count), marked ? "" : "not marked for readers");
      return;
    }
  }
}

std::string SeiSummary(Codec codec, const Bytes& unit) {
  bool whole = false;
  std::string text;
  for (const SeiMessage& message : ReadSeiMessages(codec, unit, &whole))
    text += (text.empty() ? "" : ", ") +
            fmt::format("{} ({} bytes)", SeiTypeName(message.type), message.payload.size());
  if (!whole) text += text.empty() ? "breaks off" : ", then breaks off";
  return text;
}

std::string UnitSummary(Codec codec, const std::vector<Unit>& units) {
  std::string text;
  for (size_t i = 0; i < units.size();) {
    const int type = UnitType(codec, units[i].bytes);
    size_t count = 1;
    while (i + count < units.size() && UnitType(codec, units[i + count].bytes) == type) ++count;
    if (!text.empty()) text += ", ";
    text += UnitTypeName(codec, type);
    if (count > 1) text += fmt::format(" x {}", count);
    i += count;
  }
  return text;
}

}  // namespace qlnmedia
