// Reports configuration records.

#include "inspect/configuration.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include "inspect/library_record.h"
#include "inspect/sps_section.h"
#include "qlnutil/qlnh264.h"
#include "qlnutil/qlnhevc.h"
#include "sets/config_head.h"
#include "sets/names.h"

namespace qlnmedia {

namespace {

void AddAvccHead(Section& record, const AvccHead& head) {
  record.Add(
      "AVCProfileIndication", "Profile", head.AVCProfileIndication,
      fmt::format("{} ({})", H264ProfileName(head.AVCProfileIndication, 0), head.AVCProfileIndication));
  record.Add("profile_compatibility", "Compatibility", head.profile_compatibility,
             fmt::format("0x{:02X}", head.profile_compatibility));
  record.Add("AVCLevelIndication", "Level", head.AVCLevelIndication,
             H264LevelName(head.AVCLevelIndication, head.AVCProfileIndication,
                           (head.profile_compatibility & 0x10) != 0));
}

void AddHvccHead(Section& record, const HvccHead& head) {
  record.Add("configurationVersion", "Version", head.configurationVersion);
  record.Add("profile", "Profile",
             HevcProfileName(head.general_profile_idc, head.general_profile_compatibility_flags,
                             head.general_constraint_indicator_flags));
  record.Add("tier", "Tier", HevcTierName(head.general_tier_flag));
  record.Add("level", "Level", HevcLevelName(head.general_level_idc));
  record.Add("chroma_format", "Chroma", ChromaFormatName(head.chromaFormat));
  record.Add("bit_depth", "Bit depth",
             Json{{"luma", head.bitDepthLumaMinus8 + 8}, {"chroma", head.bitDepthChromaMinus8 + 8}},
             BitDepthText(head.bitDepthLumaMinus8 + 8u, head.bitDepthChromaMinus8 + 8u));
  record.Add("avgFrameRate", "Average rate", head.avgFrameRate,
             head.avgFrameRate == 0 ? "not told" : fmt::format("{:.5g}", head.avgFrameRate / 256.0));
  record.Add("numTemporalLayers", "Temporal layers", head.numTemporalLayers,
             head.numTemporalLayers == 0 ? "not told" : "");
}

std::string FieldText(const ConfigHeadField& field, uint64_t value) {
  if (field.hexDigits == 0) return fmt::format("{}", value);
  return fmt::format("0x{:0{}X}", value, field.hexDigits);
}

// The head field by field, as it stands in the box and as the sets of the stream have it.
void AddHeadTable(Section& record, const CodedStream& stream) {
  const SetCollector collector(stream);
  std::vector<Bytes> units;
  for (const FoundSet& set : collector.sets()) units.push_back(set.bytes);
  std::vector<std::vector<Cell>> rows;
  std::string differing;
  for (const ConfigHeadField& field : ReadConfigHead(stream.config, units)) {
    rows.push_back({Cell(field.name), Cell(field.box, FieldText(field, field.box)),
                    field.sets ? Cell(*field.sets, FieldText(field, *field.sets)) : Cell(nullptr, "-")});
    if (!field.agrees) differing += (differing.empty() ? "" : ", ") + std::string(field.name);
  }
  if (rows.empty()) return;
  record.AddTable("head", "Head",
                  {{"field", "Field"}, {"box", "In the box", true}, {"sets", "In the sets", true}},
                  std::move(rows));
  if (!differing.empty()) record.AddNote(fmt::format("the head says otherwise than the sets: {}", differing));
}

void AddAvcc(Section& record, const CodedStream& stream, MessageSink& messages) {
  const ConfigRecord& config = stream.config;
  if (const std::optional<AvccHead> head = config.avccHead()) AddAvccHead(record, *head);
  if (!config.lists.empty()) record.Add("sps_count", "SPS", config.lists[0].units.size());
  if (config.lists.size() > 1) record.Add("pps_count", "PPS", config.lists[1].units.size());
  AddHeadTable(record, stream);
  if (!config.problem.empty()) record.AddNote(config.problem);
  const Bytes box = WithBoxHeader(stream.privateData, "avcC");
  QLNBitState state = StateOver(box);
  H264SpsRecord sps{};
  H264PpsRecord pps{};
  messages.Take();
  record.Add("read_by_library", "Read by the library", qlnutilReadAvcc(&state, &sps, &pps) == 0);
  record.MarkLast(ReportPart::kLibrary);
  AddMessages(record, messages);
}

// Whether the arrays of a sound hvcC hold more than parameter sets.
bool HasOtherUnits(const ConfigRecord& config) {
  return std::any_of(config.lists.begin(), config.lists.end(), [](const ConfigRecord::List& list) {
    return (list.head & 63) > hevc::kPps && !list.units.empty();
  });
}

void AddHvccReading(Section& record, const CodedStream& stream, MessageSink& messages) {
  const ConfigRecord& config = stream.config;
  const Bytes box = WithBoxHeader(stream.privateData, "hvcC");
  QLNBitState state = StateOver(box);
  HevcConfigRecord head{};
  HevcVpsRecord vps{};
  const auto sps = std::make_unique<HevcSpsRecord>();
  HevcPpsRecord pps{};
  messages.Take();
  const uint32_t result = qlnutilRead_HEVC_CR(&state, &head, &vps, sps.get(), &pps);
  // Behind the three kinds of sets the library's walk does not pass other units: it takes their bytes for
  // arrays, and says so or gives up. The records are filled by then.
  const bool passesOthers =
      config.problem.empty() && HasOtherUnits(config) && sps->profile_tier_level.general_level_idc != 0;
  const bool read = (result != QLN_HEVC_REFUSED && result != 0) || passesOthers;
  record.Add("read_by_library", "Read by the library", read);
  record.MarkLast(ReportPart::kLibrary);
  if (!passesOthers) return AddMessages(record, messages);
  messages.Take();
  record.AddNote("units behind the parameter sets (SEI) are passed over by the library");
  record.MarkLast(ReportPart::kLibrary);
}

void AddHvcc(Section& record, const CodedStream& stream, MessageSink& messages) {
  const ConfigRecord& config = stream.config;
  AddHvccReading(record, stream, messages);
  if (const std::optional<HvccHead> head = config.hvccHead()) AddHvccHead(record, *head);
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
  AddHeadTable(record, stream);
  if (!config.problem.empty()) record.AddNote(config.problem);
}

}  // namespace

void AddConfiguration(Section& section, const CodedStream& stream, MessageSink& messages) {
  const ConfigRecord& config = stream.config;
  Section& record = section.AddSection("configuration", "Configuration record");
  const bool avcc = stream.codec == Codec::kH264;
  record.Add("form", "Form", config.box ? avcc ? "avcC" : "hvcC" : config.empty() ? "none" : "start codes");
  if (!config.box) return;
  record.Add("length_bytes", "Length fields", config.framing.lengthBytes,
             fmt::format("{} bytes", config.framing.lengthBytes));
  if (avcc) {
    AddAvcc(record, stream, messages);
  } else {
    AddHvcc(record, stream, messages);
  }
}

}  // namespace qlnmedia
