// Captions out of files: surveyed, decoded, written as caption files.

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "base/error.h"
#include "base/numbers.h"
#include "base/text_file.h"
#include "captions/anc_element.h"
#include "captions/caption_track.h"
#include "captions/text.h"
#include "captions/timed_text.h"
#include "container/caption_source.h"
#include "qlnmedia/captions.h"

namespace qlnmedia {

namespace {

// Whether labels leave numbers out: as asked, or as the stream's timecode does where the file's kind can.
bool DropsLabels(const CaptionSource& source, CaptionFileKind kind, const std::string& typeName) {
  const captions::RateInfo& rate = captions::InfoOf(*source.pace.rate);
  const bool scc = kind == CaptionFileKind::kScc;
  const bool can = scc || rate.dropFrameAllowed;
  if (typeName.empty()) return can && source.dropFrame.value_or(false);
  const TimecodeCounting counting = CountingNamed(typeName);
  const uint32_t numbers = scc ? 30 : static_cast<uint32_t>(rate.nominal);
  // Labels of 60 are asked for by the names of 30 as well.
  if (counting.numbers != numbers && !(counting.numbers == 30 && numbers == 60))
    throw Error("--timecode-type " + typeName,
                fmt::format("the file's labels count {} numbers a second", numbers),
                can ? "say drop-frame or non-drop-frame" : "leave it out");
  if (counting.drop && !can)
    throw Error("--timecode-type " + typeName,
                fmt::format("there are no drop-frame labels at {} pictures a second", rate.name),
                "write a .scc file, whose labels go by time");
  return counting.drop;
}

// Letters of either case are the same.
bool SameWord(const std::string& a, const std::string& b) { return strcasecmp(a.c_str(), b.c_str()) == 0; }

bool IsEmpty(const CaptionService& service) { return service.lines.empty(); }
bool IsEmpty(const StyledService& service) { return service.captions.empty(); }

// The service that is asked for, or the first that shows text; an empty one where none does.
template <class Service>
Service ServiceOf(const std::vector<Service>& services, const std::string& path, const std::string& name) {
  std::string names;
  for (const Service& known : services) {
    const bool asked = SameWord(known.name, name) || SameWord(known.name, "service " + name);
    if (asked || (name.empty() && !IsEmpty(known))) return known;
    names += (names.empty() ? "" : ", ") + known.name;
  }
  if (name.empty()) return {};
  throw Error(path, fmt::format("has no captions of service \"{}\"", name),
              names.empty() ? names : "it has " + names);
}

FileCaptions Decode(CaptionSource& source, const ProgressCallback& progress) {
  return {source.stream, source.pictures, source.captioned, DecodeCaptions(source, progress)};
}

// How the labels of a file count, and from where.
struct Labels {
  bool dropFrame = false;
  int64_t first = 0;  // of the first picture
};

Labels LabelsOf(const CaptionSource& source, CaptionFileKind kind, const CaptionTiming& timing) {
  Labels labels{DropsLabels(source, kind, timing.timecodeType), 0};
  const int nominal = kind == CaptionFileKind::kScc ? 30 : captions::InfoOf(*source.pace.rate).nominal;
  if (timing.start.empty()) {
    // Labels go on from those of a caption file.
    labels.first = captions::PictureOf({source.hour, 0, 0, 0}, nominal, labels.dropFrame).value_or(0);
    return labels;
  }
  const std::string where = "--start " + timing.start;
  bool drop = false;
  const std::optional<captions::Timecode> start = captions::ParseTimecode(timing.start, &drop);
  if (!start) throw Error(where, "is no timecode", "write HH:MM:SS:FF, or HH:MM:SS;FF for drop-frame labels");
  if (drop && timing.timecodeType.empty()) labels.dropFrame = DropsLabels(source, kind, "drop-frame");
  if (drop != labels.dropFrame && (drop || !timing.timecodeType.empty()))
    throw Error(
        where,
        drop ? "is a drop-frame label, and the others are not" : "is no drop-frame label, and the others are",
        "leave --timecode-type out");
  labels.dropFrame = drop;
  const std::optional<int64_t> first = captions::PictureOf(*start, nominal, drop);
  if (!first) throw Error(where, fmt::format("does not exist among labels of {} numbers a second", nominal));
  labels.first = *first;
  return labels;
}

using TakeText = std::function<void(std::string_view)>;

void WriteMcc(CaptionSource& source, const Labels& labels, const TakeText& take,
              const ProgressCallback& progress) {
  captions::MccTrackWriter writer(*source.pace.rate, labels.dropFrame, labels.first);
  take(writer.Heading());
  source.Read([&](const CaptionedPicture& picture) { take(writer.Lines(picture.triplets, picture.number)); },
              progress);
}

void WriteScc(CaptionSource& source, const Labels& labels, const TakeText& take,
              const ProgressCallback& progress) {
  captions::SccTrackWriter writer(*source.pace.rate, labels.dropFrame, labels.first);
  source.Read([&](const CaptionedPicture& picture) { writer.Add(picture.triplets, picture.number); },
              progress);
  take(writer.Text());
}

void WriteAnc(CaptionSource& source, const TakeText& take, const ProgressCallback& progress) {
  captions::AncTrackWriter writer(*source.pace.rate);
  int64_t next = 0;
  const auto element = [&](const Triplets& triplets) {
    const captions::Bytes bytes = writer.Element(triplets);
    take({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    ++next;
  };
  source.Read(
      [&](const CaptionedPicture& picture) {
        // Elements count frames, so that one that is missing has an empty one.
        while (next < picture.number) element({});
        element(picture.triplets);
      },
      progress);
}

// Hands a caption file's text over, piece by piece; nothing before all that can be refused is known.
void MakeCaptionFile(const std::string& in, CaptionFileKind kind, const std::string& service,
                     const CaptionTiming& timing, const CaptionSourceOptions& from, const TakeText& take,
                     const ProgressCallback& progress) {
  const bool labelled = kind == CaptionFileKind::kMcc || kind == CaptionFileKind::kScc;
  const bool packets = labelled || kind == CaptionFileKind::kAnc;
  if (packets && !service.empty())
    throw Error("--service", "goes with text, not with .mcc, .scc and .anc files",
                ".mcc and .anc files hold all services, a .scc file line 21 field 1");
  for (const auto& [option, text] :
       {std::pair("--timecode-type", &timing.timecodeType), std::pair("--start", &timing.start)}) {
    if (!labelled && !text->empty())
      throw Error(option, "goes with .mcc and .scc files, whose times are labels");
  }
  const std::unique_ptr<CaptionSource> opened = OpenCaptionSource(in, timing, from, progress);
  CaptionSource& source = *opened;
  if (packets && !source.pace.rate)
    throw Error(in,
                fmt::format("has {} pictures a second, for which caption files have no rate",
                            PlainNumber(source.pace.picturesPerSecond)),
                AdviceForPace(source.pace));
  if (kind == CaptionFileKind::kAnc) return WriteAnc(source, take, progress);
  if (packets) {
    const Labels labels = LabelsOf(source, kind, timing);
    const auto write = kind == CaptionFileKind::kMcc ? WriteMcc : WriteScc;
    return write(source, labels, take, progress);
  }
  if (kind == CaptionFileKind::kVtt || kind == CaptionFileKind::kTtml) {
    const std::vector<captions::StyledCaption> styled =
        ServiceOf(DecodeStyled(source, progress), in, service).captions;
    return take(kind == CaptionFileKind::kVtt ? captions::WriteVtt(styled) : captions::WriteTtml(styled));
  }
  const std::vector<CaptionLine> lines = LinesOfService(Decode(source, progress), in, service);
  take(kind == CaptionFileKind::kSrt ? WriteSrt(lines) : WriteCaptionText(lines));
}

}  // namespace

FileCaptions ReadFileCaptions(const std::string& path, const ProgressCallback& progress,
                              const CaptionTiming& timing, const CaptionSourceOptions& source) {
  return Decode(*OpenCaptionSource(path, timing, source, progress), progress);
}

std::vector<CaptionLine> LinesOfService(const FileCaptions& captions, const std::string& path,
                                        const std::string& service) {
  return ServiceOf(captions.services, path, service).lines;
}

std::optional<CaptionFileKind> CaptionFileKindOf(const std::string& path) {
  const size_t dot = path.rfind('.');
  if (dot == std::string::npos || dot == 0) return {};
  const std::string ending = path.substr(dot);
  if (ending == ".mcc") return CaptionFileKind::kMcc;
  if (ending == ".scc") return CaptionFileKind::kScc;
  if (ending == ".srt") return CaptionFileKind::kSrt;
  if (ending == ".txt") return CaptionFileKind::kText;
  if (ending == ".vtt") return CaptionFileKind::kVtt;
  if (ending == ".ttml") return CaptionFileKind::kTtml;
  if (ending == ".anc") return CaptionFileKind::kAnc;
  return {};
}

std::string CaptionFileText(const std::string& in, CaptionFileKind kind, const std::string& service,
                            const ProgressCallback& progress, const CaptionTiming& timing,
                            const CaptionSourceOptions& source) {
  std::string text;
  MakeCaptionFile(
      in, kind, service, timing, source, [&text](std::string_view piece) { text += piece; }, progress);
  return text;
}

void WriteCaptionFile(const std::string& in, const std::string& out, const std::string& service,
                      const ProgressCallback& progress, const CaptionTiming& timing,
                      const CaptionSourceOptions& source, const UnfinishedCallback& unfinished) {
  const std::optional<CaptionFileKind> kind = CaptionFileKindOf(out);
  if (!kind)
    throw Error(out, "is no kind of caption file that is known",
                "end it in .mcc, .scc, .anc, .srt, .vtt, .ttml or .txt");
  std::optional<TextFileWriter> file;
  const auto take = [&](std::string_view piece) {
    if (!file) file.emplace(out, unfinished);
    file->Write(piece);
  };
  MakeCaptionFile(in, *kind, service, timing, source, take, progress);
  if (!file) file.emplace(out, unfinished);
  file->Finish();
}

std::string SrtText(const std::vector<CaptionLine>& lines) { return WriteSrt(lines); }

std::string CaptionText(const std::vector<CaptionLine>& lines) { return WriteCaptionText(lines); }

}  // namespace qlnmedia
