// Reports parameter sets, of both codecs alike: elements and facts come from the published syntax.

#include "inspect/parameter_sets.h"

#include <fmt/format.h>

#include <algorithm>

#include "inspect/departures.h"
#include "inspect/library_record.h"
#include "inspect/sps_section.h"

namespace qlnmedia {

namespace {

// What sets of a type go by: the key of their list, their title, and the element that numbers them.
struct SetKind {
  const char* key;
  const char* title;
  const char* id;
};

SetKind KindOf(Codec codec, int type) {
  if (codec == Codec::kH264) {
    if (type == h264::kPps) return {"pps", "PPS", "pic_parameter_set_id"};
    if (type == h264::kSpsExtension) return {"sps_extension", "SPS extension", "seq_parameter_set_id"};
    if (type == h264::kSubsetSps) return {"subset_sps", "Subset SPS", "seq_parameter_set_id"};
    return {"sps", "SPS", "seq_parameter_set_id"};
  }
  if (type == hevc::kVps) return {"vps", "VPS", "vps_video_parameter_set_id"};
  if (type == hevc::kSps) return {"sps", "SPS", "sps_seq_parameter_set_id"};
  return {"pps", "PPS", "pps_pic_parameter_set_id"};
}

std::string TitleOf(const SetKind& kind, const SetElements& set) {
  const SetElement* const id = set.Find(kind.id);
  std::string title = id == nullptr ? kind.title : fmt::format("{} {}", kind.title, id->value);
  const SetElement* const layer = set.Find("nuh_layer_id");
  if (layer != nullptr && layer->value != 0) title += fmt::format(", layer {}", layer->value);
  return title;
}

void AddFirstChange(Section& section, const PublishedSet& published, const LibraryRecord& record,
                    const std::vector<Departure>& departures, const ChromaFormats& formats) {
  const bool same = published.unit == record.written;
  section.Add("read_write_same", "Written back", same, same ? "the same bytes" : "other bytes");
  section.MarkLast(ReportPart::kLibrary);
  if (same) return;
  const std::optional<FirstChange> change = FirstChangeOf(published, record, departures, formats);
  if (!change) {
    section.Add("first_change", "First change", nullptr, "the library does not write it");
    return;
  }
  if (change->element.empty()) {
    section.Add("first_change", "First change", Json{{"element", nullptr}, {"why", change->why}},
                change->escapes ? "none in an element: the escapes differ" : "in no element that is kept",
                change->why);
    return;
  }
  section.Add("first_change", "First change",
              Json{{"element", change->element},
                   {"was", change->was},
                   {"comes_back", change->comesBack},
                   {"why", change->why}},
              fmt::format("{} {}, comes back as {}", change->element, PlainText(change->was),
                          PlainText(change->comesBack)),
              change->why);
}

void AddChange(Section& section, const PublishedSet& published, const LibraryRecord& record,
               const std::vector<Departure>& departures, const ChromaFormats& formats) {
  AddFirstChange(section, published, record, departures, formats);
  section.MarkLast(ReportPart::kLibrary);
}

void AddDepartures(Section& section, const std::vector<Departure>& departures) {
  if (departures.empty()) return;
  std::vector<std::vector<Cell>> rows;
  for (const Departure& departure : departures)
    rows.push_back({Cell(departure.element), Cell(departure.as, PlainText(departure.as)),
                    Cell(departure.stream, PlainText(departure.stream))});
  section.AddTable("library_reads", "The library reads",
                   {{"element", "Element"}, {"as", "As"}, {"stream", "In the stream"}}, std::move(rows));
  section.MarkLast(ReportPart::kLibrary);
}

void AddEnd(Section& section, const SetElements& set) {
  if (set.stop == 0) {
    section.AddNote("the set has no stop bit");
  } else if (set.end == WalkEnd::kCutOff) {
    section.AddNote(fmt::format("the set is cut off: {} leads past its end", set.endedAt));
  } else if (set.end != WalkEnd::kWhole) {
    section.AddNote(fmt::format("{} is above what the standard allows: what stands from there on is not read",
                                set.endedAt));
  } else if (set.endPosition < set.stop) {
    section.AddNote(
        fmt::format("{} bits behind the last element have no known meaning", set.stop - set.endPosition));
  }
}

// The first element that the library reads as another: from there on its reading need not follow the stream.
const Departure* StepLostAt(const std::vector<Departure>& departures) {
  const auto found = std::find_if(departures.begin(), departures.end(), [](const Departure& departure) {
    return !departure.oneOfSeveral && !departure.as.is_null();
  });
  return found == departures.end() ? nullptr : &*found;
}

void AddLibraryNote(Section& section, std::string text) {
  section.AddNote(std::move(text));
  section.MarkLast(ReportPart::kLibrary);
}

void AddSet(Section& sets, const CodedStream& stream, const FoundSet& found, const ChromaFormats& formats,
            MessageSink& messages) {
  const PublishedSet published(stream.codec, found.bytes, formats);
  const LibraryRecord record = ReadWithLibrary(stream.codec, found.bytes, messages);
  const std::vector<Departure> departures = DeparturesOf(published, record);
  const SetKind kind = KindOf(stream.codec, found.type);
  Section& section = sets.AddToList(kind.key, TitleOf(kind, published.set));
  section.Add("found_in", "Found in", found.places, found.Places());
  section.Add("size", "Size", found.bytes.size(), fmt::format("{} bytes", found.bytes.size()));
  const bool hevcSps = stream.codec == Codec::kHevc && found.type == hevc::kSps;
  const Departure* const lost = hevcSps ? StepLostAt(departures) : nullptr;
  AddSetFacts(section, published, lost != nullptr || (hevcSps && !record.read));
  const SetElement* const entropy = published.set.Find("entropy_coding_mode_flag");
  if (entropy != nullptr)
    section.Add("entropy_coding", "Entropy coding", entropy->value != 0 ? "CABAC" : "CAVLC");
  if (record.read) AddChange(section, published, record, departures, formats);
  AddDepartures(section, departures);
  section.AddElements("elements", "Elements", published.elements);
  section.MarkLast(ReportPart::kElements);
  if (lost != nullptr)
    AddLibraryNote(section,
                   fmt::format("the library's reading leaves the stream's syntax at {}: its record says "
                               "behind that place what the stream does not",
                               lost->element));
  AddEnd(section, published.set);
  if (record.known && !record.read) AddLibraryNote(section, "the library cannot read it");
  for (const LibraryMessage& message : record.said)
    AddLibraryNote(section, "the library says: " + message.text);
}

}  // namespace

void AddParameterSets(Section& section, const CodedStream& stream, MessageSink& messages) {
  Section& sets = section.AddSection("parameter_sets", "Parameter sets");
  const SetCollector collector(stream);
  ChromaFormats formats;
  for (const FoundSet& set : collector.sets()) {
    formats.Take(stream.codec, set.bytes);
    AddSet(sets, stream, set, formats, messages);
  }
  if (collector.sets().empty()) sets.AddNote("none found");
}

}  // namespace qlnmedia
