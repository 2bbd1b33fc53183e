// The HEVC side of `qlnmedia inspect`, read with the library as a host reads it.

#include <fmt/format.h>

#include <map>
#include <memory>

#include "inspect/codec.h"
#include "inspect/dolby_vision.h"
#include "inspect/elements.h"
#include "inspect/timecode.h"
#include "qlnutil/hevc/record_fields.h"
#include "qlnutil/qlnhevc.h"
#include "sets/names.h"
#include "sets/sps_facts.h"

namespace qlnmedia {

namespace {

constexpr int kVps = 32;
constexpr int kSps = 33;
constexpr int kPps = 34;
constexpr size_t kUnitBufferSize = 1024;

QLNBitState StateOver(const Bytes& unit) {
  const auto size = static_cast<uint32_t>(unit.size());
  return {const_cast<uint8_t*>(unit.data()), static_cast<int32_t>(size), size * 8, 0};
}

// A result of a parameter set reader that stands for a parsed unit.
bool Parsed(uint64_t result) { return result != 0 && result != 0xFFFFFFFF; }

// Fields of a record with those of the blocks inside it, each under the block's name.
std::vector<Element> Elements(std::span<const qln::RecordField> fields, const void* zeroed,
                              const void* filled) {
  std::vector<Element> all;
  const auto at = [](const void* record, uint32_t word) {
    return static_cast<const uint8_t*>(record) + size_t{word} * 4;
  };
  const auto block = [&](std::span<const qln::RecordField> inner, uint32_t word, const std::string& prefix) {
    for (Element& element : PresentElements(inner, at(zeroed, word), at(filled, word))) {
      element.name = prefix + element.name;
      all.push_back(std::move(element));
    }
  };
  for (const qln::RecordField& field : fields) {
    const std::string_view name = field.name;
    if (name == "profile_tier_level") {
      block(qln::kHevcProfileTierLevelFields, field.word, "");
    } else if (name == "st_ref_pic_set" || name == "long_term_ref_pics") {
      const std::span<const qln::RecordField> inner =
          name == "st_ref_pic_set" ? std::span<const qln::RecordField>(qln::kHevcShortTermRpsFields)
                                   : std::span<const qln::RecordField>(qln::kHevcLongTermPictureFields);
      const uint32_t size = field.count / 64;
      for (uint32_t i = 0; i < 64; ++i) block(inner, field.word + i * size, fmt::format("{}[{}].", name, i));
    } else {
      const qln::RecordField one[] = {field};
      for (Element& element : PresentElements(one, zeroed, filled)) all.push_back(std::move(element));
    }
  }
  return all;
}

// The 48 constraint bits are one number; the record keeps it in two words.
void JoinConstraints(std::vector<Element>& elements, const HevcProfileTierLevel& block) {
  for (Element& element : elements) {
    if (element.name == "general_constraint_indicator_flags")
      element.value = block.general_constraint_indicator_flags;
  }
}

void AddProfile(Section& section, const HevcProfileTierLevel& block) {
  section.Add("profile", "Profile",
              HevcProfileName(block.general_profile_idc, block.general_profile_compatibility_flags,
                              block.general_constraint_indicator_flags));
  section.Add("tier", "Tier", HevcTierName(block.general_tier_flag));
  section.Add("level", "Level", HevcLevelName(block.general_level_idc));
}

PictureSize CroppedSize(const HevcSpsRecord& sps) {
  PictureSize size{sps.pic_width_in_luma_samples, sps.pic_height_in_luma_samples};
  if (sps.conformance_window_flag == 0) return size;
  const uint64_t unitX = sps.chroma_format_idc == 1 || sps.chroma_format_idc == 2 ? 2 : 1;
  const uint64_t unitY = sps.chroma_format_idc == 1 ? 2 : 1;
  const uint64_t cutX = unitX * (uint64_t{sps.conf_win_left_offset} + sps.conf_win_right_offset);
  const uint64_t cutY = unitY * (uint64_t{sps.conf_win_top_offset} + sps.conf_win_bottom_offset);
  return {cutX < size.width ? size.width - cutX : 0, cutY < size.height ? size.height - cutY : 0};
}

// Why the record of a set may depart from what the stream says; the library keeps to short forms on purpose.
std::string KnownDeparture(const HevcSpsRecord& sps) {
  if (sps.chroma_format_idc == 3) return "separate_colour_plane_flag is read as ue(v)";
  for (uint32_t i = 0; i < sps.num_short_term_ref_pic_sets && i < 64; ++i) {
    if (sps.st_ref_pic_set[i].inter_ref_pic_set_prediction_flag == 1)
      return "predicted reference picture sets";
  }
  if (sps.scaling_list_enabled_flag == 1) return "scaling list data";
  if (sps.vui_parameters_present_flag == 1 && sps.vui_hrd_parameters_present_flag == 1)
    return "HRD parameters of another form";
  return "";
}

// Whether the record agrees with a walk of the set by the published syntax.
bool InStep(const HevcSpsRecord& sps, const Bytes& unit) {
  const std::optional<SpsFacts> walk = ReadSpsFacts(Codec::kHevc, unit);
  if (!walk) return true;  // nothing to hold it against
  const PictureSize size = CroppedSize(sps);
  const bool vui = sps.vui_parameters_present_flag == 1;
  return size.width == walk->width && size.height == walk->height && vui == walk->vui &&
         (!vui || ((sps.video_signal_type_present_flag == 1) == walk->signalType &&
                   (sps.vui_timing_info_present_flag == 1) == (walk->timeScale != 0) &&
                   (walk->timeScale == 0 || sps.vui_time_scale == walk->timeScale)));
}

// The element behind which the library's reading has left the syntax of a set, or may have: its HRD
// parameters have a form of their own, which no walk is held against. Empty where it is in step.
std::string StepLostBehind(const HevcSpsRecord& sps, const Bytes& unit) {
  if (!InStep(sps, unit)) {
    if (sps.chroma_format_idc == 3) return "chroma_format_idc";
    if (sps.scaling_list_enabled_flag == 1) return "scaling_list_enabled_flag";
    for (uint32_t i = 0; i < sps.num_short_term_ref_pic_sets && i < 64; ++i) {
      if (sps.st_ref_pic_set[i].inter_ref_pic_set_prediction_flag == 1)
        return fmt::format("st_ref_pic_set[{}].inter_ref_pic_set_prediction_flag", i);
    }
  }
  if (sps.vui_parameters_present_flag == 1 && sps.vui_hrd_parameters_present_flag == 1)
    return "vui_hrd_parameters_present_flag";
  return "";
}

void AddSpsFacts(Section& section, const HevcSpsRecord& sps, const FoundSet& set, const CodedStream& stream) {
  AddProfile(section, sps.profile_tier_level);
  const bool inStep = InStep(sps, set.bytes);
  if (inStep) {
    AddPictureSize(section, "coded_size", "Coded size",
                   {sps.pic_width_in_luma_samples, sps.pic_height_in_luma_samples});
    AddPictureSize(section, "picture_size", "Picture size", CroppedSize(sps));
  } else {
    AddPictureSize(section, "picture_size", "Picture size", {stream.width, stream.height});
  }
  section.Add("chroma_format", "Chroma", ChromaFormatName(sps.chroma_format_idc));
  section.Add("in_step", "In step", inStep);
  if (!inStep) {
    const std::string why = KnownDeparture(sps);
    section.AddNote(
        fmt::format("the library's reading leaves the stream's syntax{}{}: elements behind that place are "
                    "not what the stream says, and the size is the container's",
                    why.empty() ? "" : " at ", why));
    return;
  }
  section.Add("bit_depth", "Bit depth",
              Json{{"luma", sps.bit_depth_luma_minus8 + 8}, {"chroma", sps.bit_depth_chroma_minus8 + 8}},
              sps.bit_depth_luma_minus8 == sps.bit_depth_chroma_minus8
                  ? fmt::format("{}", sps.bit_depth_luma_minus8 + 8)
                  : fmt::format("{} luma, {} chroma", sps.bit_depth_luma_minus8 + 8,
                                sps.bit_depth_chroma_minus8 + 8));
  const bool fields = sps.vui_parameters_present_flag == 1 && sps.field_seq_flag == 1;
  section.Add("scan", "Scan", fields ? "fields" : "frames");
  section.Add("source_scan", "Source",
              sps.profile_tier_level.general_interlaced_source_flag == 0
                  ? sps.profile_tier_level.general_progressive_source_flag == 0 ? "unknown" : "progressive"
              : sps.profile_tier_level.general_progressive_source_flag == 0 ? "interlaced"
                                                                            : "by picture");
  if (sps.vui_parameters_present_flag != 1) return;
  if (sps.aspect_ratio_info_present_flag == 1)
    AddSampleAspect(section, sps.aspect_ratio_idc, sps.sar_width, sps.sar_height);
  if (sps.vui_timing_info_present_flag == 1)
    AddFrameRate(section, sps.vui_time_scale, sps.vui_num_units_in_tick, fields ? "fields" : "");
  if (sps.video_signal_type_present_flag == 1) {
    AddRange(section, sps.video_full_range_flag == 1);
    if (sps.colour_description_present_flag == 1)
      AddColour(section, sps.colour_primaries, sps.transfer_characteristics, sps.matrix_coeffs);
  }
}

void AddSetHead(Section& section, const FoundSet& set) {
  section.Add("found_in", "Found in", set.places, set.Places());
  section.Add("size", "Size", set.bytes.size(), fmt::format("{} bytes", set.bytes.size()));
}

// Reads a set into a zeroed and a filled record.
template <class Record, class Reader>
uint64_t ReadTwice(const Bytes& unit, Reader reader, Record& zeroed, Record& filled, MessageSink& messages,
                   std::vector<LibraryMessage>& said) {
  std::memset(&zeroed, 0, sizeof zeroed);
  std::memset(&filled, kUnreadWord & 0xFF, sizeof filled);
  messages.Take();
  QLNBitState state = StateOver(unit);
  const uint64_t result = reader(&state, &zeroed, nullptr, 0);
  said = messages.Take();
  state = StateOver(unit);
  reader(&state, &filled, nullptr, 0);
  messages.Take();
  return result;
}

void AddSaid(Section& section, const std::vector<LibraryMessage>& said) {
  for (const LibraryMessage& message : said) section.AddNote("the library says: " + message.text);
}

// A lister of the elements that a reader finds in one set.
template <class Record, class Reader>
ElementLister ElementsOf(Reader reader, std::span<const qln::RecordField> fields, MessageSink& messages) {
  return [reader, fields, &messages](const Bytes& unit) {
    const auto zeroed = std::make_unique<Record>();
    const auto filled = std::make_unique<Record>();
    std::vector<LibraryMessage> said;
    ReadTwice(unit, reader, *zeroed, *filled, messages, said);
    return Elements(fields, zeroed.get(), filled.get());
  };
}

void ReportVps(Section& sets, const FoundSet& set, MessageSink& messages) {
  HevcVpsRecord vps;
  HevcVpsRecord filled;
  std::vector<LibraryMessage> said;
  const uint64_t result = ReadTwice(set.bytes, qlnutilRead_HEVC_VPS, vps, filled, messages, said);
  Section& section = sets.AddToList("vps", fmt::format("VPS {}", vps.vps_video_parameter_set_id));
  AddSetHead(section, set);
  if (Parsed(result)) {
    AddProfile(section, vps.profile_tier_level);
    HevcVpsRecord copy = vps;
    Bytes written(2 * kUnitBufferSize);
    written.resize(qlnutilWrite_HEVC_VPS(&copy, written.data()));
    AddComparison(section, Codec::kHevc, set.bytes, written,
                  ElementsOf<HevcVpsRecord>(qlnutilRead_HEVC_VPS, qln::kHevcVpsFields, messages),
                  "what stands behind the first HRD, layer sets or extension data");
    std::vector<Element> elements = Elements(qln::kHevcVpsFields, &vps, &filled);
    JoinConstraints(elements, vps.profile_tier_level);
    section.AddElements("elements", "Elements", std::move(elements));
  }
  AddSaid(section, said);
}

void ReportSps(Section& sets, const FoundSet& set, const CodedStream& stream, MessageSink& messages) {
  const auto sps = std::make_unique<HevcSpsRecord>();
  const auto filled = std::make_unique<HevcSpsRecord>();
  std::vector<LibraryMessage> said;
  const uint64_t result = ReadTwice(set.bytes, qlnutilRead_HEVC_SPS, *sps, *filled, messages, said);
  Section& section = sets.AddToList("sps", fmt::format("SPS {}", sps->sps_seq_parameter_set_id));
  AddSetHead(section, set);
  if (Parsed(result)) {
    AddSpsFacts(section, *sps, set, stream);
    HevcSpsRecord copy = *sps;
    Bytes written(8 * kUnitBufferSize);
    written.resize(qlnutilWrite_HEVC_SPS(&copy, written.data(), static_cast<uint32_t>(written.size())));
    AddComparison(section, Codec::kHevc, set.bytes, written,
                  ElementsOf<HevcSpsRecord>(qlnutilRead_HEVC_SPS, qln::kHevcSpsFields, messages),
                  sps->sps_max_sub_layers_minus1 != 0         ? "sub-layer values, of which one is kept"
                  : sps->vui_hrd_parameters_present_flag == 1 ? "HRD parameters, of which one set is kept"
                  : !KnownDeparture(*sps).empty()             ? KnownDeparture(*sps)
                                                              : "escapes near the end, or extension data",
                  StepLostBehind(*sps, set.bytes));
    std::vector<Element> elements = Elements(qln::kHevcSpsFields, sps.get(), filled.get());
    JoinConstraints(elements, sps->profile_tier_level);
    section.AddElements("elements", "Elements", std::move(elements));
  }
  AddSaid(section, said);
}

void ReportPps(Section& sets, const FoundSet& set, MessageSink& messages) {
  HevcPpsRecord pps;
  HevcPpsRecord filled;
  std::vector<LibraryMessage> said;
  const uint64_t result = ReadTwice(set.bytes, qlnutilRead_HEVC_PPS, pps, filled, messages, said);
  Section& section = sets.AddToList("pps", fmt::format("PPS {}", pps.pps_pic_parameter_set_id));
  AddSetHead(section, set);
  if (Parsed(result)) {
    Bytes written(2 * kUnitBufferSize);
    written.resize(qlnutilWrite_HEVC_PPS(&pps, written.data()));
    AddComparison(section, Codec::kHevc, set.bytes, written,
                  ElementsOf<HevcPpsRecord>(qlnutilRead_HEVC_PPS, qln::kHevcPpsFields, messages),
                  "positive signed values, tile sizes, scaling lists or extension data");
    section.AddElements("elements", "Elements", Elements(qln::kHevcPpsFields, &pps, &filled));
    if (pps.pps_scaling_list_data_present_flag == 1)
      section.AddNote(
          "scaling lists are not read: what stands behind pps_scaling_list_data_present_flag is out of step");
  }
  AddSaid(section, said);
}

void ReportConfiguration(Section& section, const CodedStream& stream, MessageSink& messages) {
  const ConfigRecord& config = stream.config;
  Section& record = section.AddSection("configuration", "Configuration record");
  record.Add("form", "Form", config.box ? "hvcC" : config.empty() ? "none" : "start codes");
  if (!config.box) return;
  record.Add("length_bytes", "Length fields", config.framing.lengthBytes,
             fmt::format("{} bytes", config.framing.lengthBytes));
  const Bytes box = WithBoxHeader(stream.privateData, "hvcC");
  QLNBitState state = StateOver(box);
  HevcConfigRecord head{};
  HevcVpsRecord vps{};
  const auto sps = std::make_unique<HevcSpsRecord>();
  HevcPpsRecord pps{};
  messages.Take();
  const uint32_t result = qlnutilRead_HEVC_CR(&state, &head, &vps, sps.get(), &pps);
  record.Add("read_by_library", "Read by the library", result != 0xFFFFFFFF && result != 0);
  record.Add("configurationVersion", "Version", head.configurationVersion);
  record.Add("profile", "Profile",
             HevcProfileName(head.general_profile_idc,
                             static_cast<uint32_t>(head.general_profile_compatibility_flags),
                             head.general_constraint_indicator_flags));
  record.Add("tier", "Tier", HevcTierName(head.general_tier_flag));
  record.Add("level", "Level", HevcLevelName(head.general_level_idc));
  record.Add("chroma_format", "Chroma", ChromaFormatName(head.chromaFormat));
  record.Add("bit_depth", "Bit depth",
             Json{{"luma", head.bitDepthLumaMinus8 + 8}, {"chroma", head.bitDepthChromaMinus8 + 8}},
             fmt::format("{}", head.bitDepthLumaMinus8 + 8));
  record.Add("avgFrameRate", "Average rate", head.avgFrameRate,
             fmt::format("{:.5g}", head.avgFrameRate / 256.0));
  record.Add("numTemporalLayers", "Temporal layers", head.numTemporalLayers);
  std::vector<std::vector<Cell>> rows;
  for (const ConfigRecord::List& list : config.lists) {
    const int type = list.head & 63;
    rows.push_back({Cell(type), Cell(UnitTypeName(Codec::kHevc, type)), Cell((list.head & 0x80) != 0),
                    Cell(list.units.size())});
  }
  record.AddTable(
      "arrays", "Arrays",
      {{"nal_unit_type", "Type", true}, {"name", "Name"}, {"complete", "Complete"}, {"units", "Units", true}},
      std::move(rows));
  if (!config.problem.empty()) record.AddNote(config.problem);
  const bool otherUnits = !config.lists.empty() && (config.lists.back().head & 63) > kPps;
  for (const LibraryMessage& message : messages.Take()) {
    // The library's walk ends at the first unit behind the parameter sets: expected, and said in words.
    if (otherUnits && message.text.rfind("Hevc read is not the same length", 0) == 0) {
      record.AddNote("units behind the parameter sets (SEI) are passed over by the library");
    } else {
      record.AddNote("the library says: " + message.text);
    }
  }
}

// slice_type of a picture's first slice segment (ITU-T H.265 clause 7.3.6.1), or an empty text.
std::string SliceType(const Bytes& unit, const std::map<uint32_t, HevcPpsRecord>& pictureSets) {
  const Bytes head = Unescape(ByteSpan(unit).first(std::min<size_t>(unit.size(), 64)));
  if (head.size() < 4) return {};
  QLNBitState state{const_cast<uint8_t*>(head.data()), static_cast<int32_t>(head.size()),
                    static_cast<uint32_t>(head.size() - 1) * 8, 16};
  const int type = UnitType(Codec::kHevc, unit);
  if (ReadBit(&state) != 1) return {};  // the address of a later segment needs the SPS
  if (type >= 16 && type <= 23) ReadBit(&state);
  const auto pps = pictureSets.find(ReadExponentialGolombCode(&state));
  if (pps == pictureSets.end()) return {};
  ReadBits(&state, static_cast<int32_t>(pps->second.num_extra_slice_header_bits & 7));
  const uint32_t code = ReadExponentialGolombCode(&state);
  return code == 0 ? "B" : code == 1 ? "P" : code == 2 ? "I" : "";
}

// One frame through the library's frame scan, which knows start codes of four bytes.
uint32_t ScanFrame(const UnitRun& run, MessageSink& messages) {
  Bytes data = ToMarkerForm(run.units);
  DFrame frame{};
  frame.frameData = data.data();
  frame.frameSize = frame.frameCapacity = static_cast<uint32_t>(data.size());
  HevcVpsRecord vps{};
  const auto sps = std::make_unique<HevcSpsRecord>();
  HevcPpsRecord pps{};
  Bytes vpsSps(kUnitBufferSize);
  Bytes ppsBytes(kUnitBufferSize);
  uint32_t vpsSpsSize = 0;
  uint32_t ppsSize = 0;
  const uint32_t count = qlnutilFindNalUnitsHevc(&frame, &vps, sps.get(), &pps, 0, 0, vpsSps.data(),
                                                 ppsBytes.data(), 0, &vpsSpsSize, &ppsSize);
  messages.Take();
  return count;
}

void ReportFrame(Section& section, const CodedStream& stream, size_t number, const InspectOptions& options,
                 std::map<uint32_t, HevcPpsRecord>& pictureSets, MessageSink& messages,
                 const StreamTimecodes& timecodes) {
  const CodedPacket& packet = stream.packets[number];
  const UnitRun run = TakeApart(packet.data, stream.config.framing);
  Section& frame = section.AddToList("frames", fmt::format("Frame {}", number));
  frame.Add("pts", "Time", TimeJson(packet.pts, stream.timeBase), TimeText(packet.pts, stream.timeBase));
  frame.Add("key", "Key frame", packet.key);
  frame.Add("size", "Size", packet.data.size(), fmt::format("{} bytes", packet.data.size()));
  frame.Add("unit_count", "Units", run.units.size(), UnitSummary(Codec::kHevc, run.units));
  const uint32_t visited = ScanFrame(run, messages);
  frame.Add("scan_count", "Scan", visited,
            fmt::format("the library's scan visits {} of {}", visited, run.units.size()));
  std::vector<std::vector<Cell>> rows;
  size_t offset = run.lead.size();
  std::string sliceType;
  for (const Unit& unit : run.units) {
    const int type = UnitType(Codec::kHevc, unit.bytes);
    if (type == kPps) {
      HevcPpsRecord pps{};
      QLNBitState state = StateOver(unit.bytes);
      if (Parsed(qlnutilRead_HEVC_PPS(&state, &pps, nullptr, 0)))
        pictureSets[pps.pps_pic_parameter_set_id] = pps;
    }
    std::string detail;
    if (IsSlice(Codec::kHevc, type)) {
      detail = SliceType(unit.bytes, pictureSets);
      if (sliceType.empty()) sliceType = detail;
    } else if (type == 39 || type == 40) {
      detail = SeiSummary(Codec::kHevc, unit.bytes);
    }
    const bool header = unit.bytes.size() >= 2;
    rows.push_back({Cell(offset), Cell(type), Cell(UnitTypeName(Codec::kHevc, type)),
                    Cell(header ? (unit.bytes[0] & 1) << 5 | unit.bytes[1] >> 3 : 0),
                    Cell(header ? (unit.bytes[1] & 7) - 1 : 0), Cell(unit.bytes.size()),
                    Cell(detail.empty() ? Json(nullptr) : Json(detail), detail.empty() ? " " : detail)});
    const int prefix =
        stream.config.framing.startCodes() ? unit.startCodeBytes : stream.config.framing.lengthBytes;
    offset += static_cast<size_t>(prefix) + unit.bytes.size() + static_cast<size_t>(unit.trailingZeros);
  }
  messages.Take();
  if (!sliceType.empty()) frame.Add("slice_types", "Slice type", sliceType);
  AddDolbyVisionMetadata(frame, run);
  AddColourMessages(frame, Codec::kHevc, run);
  timecodes.AddToFrame(frame, number);
  AddCaptionMessages(frame, Codec::kHevc, run);
  if (run.damaged()) frame.AddNote(fmt::format("{} bytes at the end are cut off", run.rest.size()));
  if (!options.units) return;
  frame.AddTable("units", "",
                 {{"offset", "Offset", true},
                  {"nal_unit_type", "Type", true},
                  {"name", "Name"},
                  {"nuh_layer_id", "Layer", true},
                  {"temporal_id", "Tid", true},
                  {"size", "Bytes", true},
                  {"detail", "What"}},
                 std::move(rows));
}

}  // namespace

void ReportHevc(Section& section, const CodedStream& stream, const InspectOptions& options,
                MessageSink& messages) {
  const StreamTimecodes timecodes(stream);
  timecodes.AddToStream(section);
  ReportConfiguration(section, stream, messages);
  Section& sets = section.AddSection("parameter_sets", "Parameter sets");
  const SetCollector collector(stream);
  for (const FoundSet& set : collector.sets()) {
    if (set.type == kVps) ReportVps(sets, set, messages);
    if (set.type == kSps) ReportSps(sets, set, stream, messages);
    if (set.type == kPps) ReportPps(sets, set, messages);
  }
  if (collector.sets().empty()) sets.AddNote("none found");
  std::map<uint32_t, HevcPpsRecord> pictureSets;
  for (const Bytes& unit : stream.config.units()) {
    HevcPpsRecord pps{};
    QLNBitState state = StateOver(unit);
    if (UnitType(Codec::kHevc, unit) == kPps && Parsed(qlnutilRead_HEVC_PPS(&state, &pps, nullptr, 0)))
      pictureSets[pps.pps_pic_parameter_set_id] = pps;
  }
  for (size_t n = 0; n < stream.packets.size(); ++n)
    ReportFrame(section, stream, n, options, pictureSets, messages, timecodes);
  messages.Take();
}

}  // namespace qlnmedia
