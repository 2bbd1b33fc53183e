// Reads caption tracks and ancillary data and reports on them.

#include "inspect/caption_streams.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <utility>

#include "base/error.h"
#include "captions/anc_names.h"
#include "captions/decoder.h"
#include "container/caption_tracks.h"
#include "inspect/captions.h"

namespace qlnmedia {

namespace {

constexpr size_t kLinesOfStream = 8;

std::vector<CaptionService> Decoded(const captions::CaptionTrack& track) {
  const captions::RateInfo& info = captions::InfoOf(track.rate);
  const double frame = static_cast<double>(info.denominator) / info.numerator;
  CaptionDecoder decoder;
  captions::CaptionPictures pictures(track, track.rate, 0);
  int64_t number = 0;
  for (; !pictures.over(); ++number) decoder.Add(pictures.Next(number), static_cast<double>(number) * frame);
  decoder.Finish(static_cast<double>(number) * frame);
  return decoder.services();
}

CaptionStreamFacts OfAncillary(const MediaFile& file, unsigned stream) {
  CaptionStreamFacts facts;
  facts.form = file.isMxf() ? "ST 436" : "ST 2038";
  AncContents contents = ReadAncContents(file.input(), stream, {}, kPacketsInReport);
  facts.packets = contents.packets;
  facts.announced = std::move(contents.services);
  facts.kinds = std::move(contents.kinds);
  facts.notes = std::move(contents.damage);
  facts.found = !contents.captions.empty();
  if (facts.found)
    facts.services = Decoded(TrackOfTimes(std::move(contents.captions),
                                          contents.rate.value_or(captions::Rate::k29_97), file.path()));
  return facts;
}

std::string Hexadecimal(uint8_t byte) { return fmt::format("{:02X}h", byte); }

// "line 9", "lines 9, 571", with dots behind the first ones.
std::string LinesText(const std::set<int>& lines) {
  std::vector<std::string> first;
  for (const int line : lines) {
    if (first.size() == kLinesOfStream) {
      first.emplace_back("...");
      break;
    }
    first.push_back(std::to_string(line));
  }
  return fmt::format("{} {}", lines.size() == 1 ? "line" : "lines", fmt::join(first, ", "));
}

void AddKind(Section& section, const AncKindName& name, const AncKind& kind) {
  const std::string known = captions::AncPacketName(name.did, name.sdid);
  Section& one =
      section.AddToList("ancillary", fmt::format("Ancillary data {} {}{}", Hexadecimal(name.did),
                                                 Hexadecimal(name.sdid), known.empty() ? "" : ", " + known));
  one.Add("did", "DID", name.did, Hexadecimal(name.did));
  one.Add("sdid", name.did >= 0x80 ? "Block number" : "SDID", name.sdid, Hexadecimal(name.sdid));
  one.Add("name", "Name", known.empty() ? Json(nullptr) : Json(known), known.empty() ? "not known" : known);
  one.Add("samples", "Samples", name.chroma ? "colour difference" : "luma");
  one.Add("packets", "Packets", kind.count);
  one.Add("lines", "Lines", std::vector<int>(kind.lines.begin(), kind.lines.end()), LinesText(kind.lines));
  if (!kind.fields.empty())
    one.Add("fields", "Fields", std::vector<int>(kind.fields.begin(), kind.fields.end()),
            fmt::format("{}", fmt::join(kind.fields, ", ")));
}

}  // namespace

std::map<unsigned, CaptionStreamFacts> ReadCaptionStreams(const MediaFile& file) {
  std::map<unsigned, CaptionStreamFacts> found;
  for (const unsigned stream : FindAncStreams(file)) found[stream] = OfAncillary(file, stream);
  if (!file.isIso() || file.isPipe()) return found;
  const mp4::FileSource source(file.path());
  for (const CaptionTrackPlace& place : FindCaptionTracks(source)) {
    CaptionStreamFacts& facts = found[place.stream];
    facts.form = place.format;
    try {
      facts.services = Decoded(ReadCaptionTrackOf(source, place, {}, &facts.notes));
      facts.found = true;
    } catch (const NotApplicable&) {  // a track without captions
    } catch (const Error& error) {
      facts.notes.emplace_back(error.what());
    }
  }
  return found;
}

void AddCaptionStreamSummary(Section& section, const CaptionStreamFacts& facts) {
  const bool track = facts.kinds.empty() && facts.packets == 0;
  section.AddLine("Codec", facts.form + (track ? " caption track" : " ancillary data"));
  Json names = Json::array();
  for (const CaptionService& service : facts.services) names.push_back(service.name);
  section.AddValue("captions", facts.found ? names : Json());
  section.AddLine("Captions", !facts.found    ? "none"
                              : names.empty() ? "nothing but padding"
                                              : NamesOf(facts.services));
}

void AddCaptionStream(Section& section, const CaptionStreamFacts& facts) {
  section.Add("caption_form", "Captions in the form of", facts.form);
  if (facts.found) AddCaptionServices(section, facts.services);
  AddAnnouncedServices(section, facts.announced);
  for (const auto& [name, kind] : facts.kinds) AddKind(section, name, kind);
  for (const std::string& note : facts.notes) section.AddNote(note);
}

}  // namespace qlnmedia
