// Captions out of files: surveyed, decoded, written as caption files.

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>

#include "base/error.h"
#include "base/numbers.h"
#include "base/text_file.h"
#include "captions/caption_track.h"
#include "captions/text.h"
#include "container/file_captions.h"
#include "qlnmedia/captions.h"

namespace qlnmedia {

namespace {

CaptionSurvey SurveyFile(const std::string& path, const CaptionTiming& timing,
                         const ProgressCallback& progress) {
  CaptionSurvey survey = SurveyCaptions(path, SIZE_MAX, progress);
  if (survey.captioned() == 0)
    throw NotApplicable(path, fmt::format("stream {} has no captions", survey.stream));
  survey.pace = AskedPace(survey.pace, survey.order, timing.rate);
  return survey;
}

// Whether labels leave numbers out: as asked, or as the stream's timecode does where the file's kind can.
bool DropsLabels(const CaptionSurvey& survey, CaptionFileKind kind, const std::string& typeName) {
  const captions::RateInfo& rate = captions::InfoOf(*survey.pace.rate);
  const bool scc = kind == CaptionFileKind::kScc;
  const bool can = scc || rate.dropFrameAllowed;
  if (typeName.empty()) return can && survey.dropFrame.value_or(false);
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

FileCaptions Decode(const CaptionSurvey& survey, const ProgressCallback& progress) {
  return {survey.stream, survey.counts.size(), survey.captioned(), DecodeCaptions(survey, progress)};
}

// How the labels of a file count, and from where.
struct Labels {
  bool dropFrame = false;
  int64_t first = 0;  // of the first picture
};

Labels LabelsOf(const CaptionSurvey& survey, CaptionFileKind kind, const CaptionTiming& timing) {
  Labels labels{DropsLabels(survey, kind, timing.timecodeType), 0};
  if (timing.start.empty()) return labels;
  const std::string where = "--start " + timing.start;
  bool drop = false;
  const std::optional<captions::Timecode> start = captions::ParseTimecode(timing.start, &drop);
  if (!start) throw Error(where, "is no timecode", "write HH:MM:SS:FF, or HH:MM:SS;FF for drop-frame labels");
  if (drop && timing.timecodeType.empty()) labels.dropFrame = DropsLabels(survey, kind, "drop-frame");
  if (drop != labels.dropFrame && (drop || !timing.timecodeType.empty()))
    throw Error(
        where,
        drop ? "is a drop-frame label, and the others are not" : "is no drop-frame label, and the others are",
        "leave --timecode-type out");
  labels.dropFrame = drop;
  const int nominal = kind == CaptionFileKind::kScc ? 30 : captions::InfoOf(*survey.pace.rate).nominal;
  const std::optional<int64_t> first = captions::PictureOf(*start, nominal, drop);
  if (!first) throw Error(where, fmt::format("does not exist among labels of {} numbers a second", nominal));
  labels.first = *first;
  return labels;
}

using TakeText = std::function<void(std::string_view)>;

void WriteMcc(const CaptionSurvey& survey, const Labels& labels, const TakeText& take,
              const ProgressCallback& progress) {
  captions::MccTrackWriter writer(*survey.pace.rate, labels.dropFrame, labels.first);
  take(writer.Heading());
  ReadCaptions(
      survey, [&](const CaptionedPicture& picture) { take(writer.Lines(picture.triplets, picture.number)); },
      progress);
}

void WriteScc(const CaptionSurvey& survey, const Labels& labels, const TakeText& take,
              const ProgressCallback& progress) {
  captions::SccTrackWriter writer(*survey.pace.rate, labels.dropFrame, labels.first);
  ReadCaptions(
      survey, [&](const CaptionedPicture& picture) { writer.Add(picture.triplets, picture.number); },
      progress);
  take(writer.Text());
}

// Hands a caption file's text over, piece by piece; nothing before all that can be refused is known.
void MakeCaptionFile(const std::string& in, CaptionFileKind kind, const std::string& service,
                     const CaptionTiming& timing, const TakeText& take, const ProgressCallback& progress) {
  const bool packets = kind == CaptionFileKind::kMcc || kind == CaptionFileKind::kScc;
  if (packets && !service.empty())
    throw Error("--service", "goes with text, not with .mcc and .scc files",
                "a .mcc file holds all services, a .scc file line 21 field 1");
  for (const auto& [option, text] :
       {std::pair("--timecode-type", &timing.timecodeType), std::pair("--start", &timing.start)}) {
    if (!packets && !text->empty())
      throw Error(option, "goes with .mcc and .scc files, whose times are labels");
  }
  const CaptionSurvey survey = SurveyFile(in, timing, progress);
  if (packets && !survey.pace.rate)
    throw Error(in,
                fmt::format("has {} pictures a second, for which caption files have no rate",
                            PlainNumber(survey.pace.picturesPerSecond)),
                AdviceForPace(survey.pace));
  if (packets) {
    const Labels labels = LabelsOf(survey, kind, timing);
    const auto write = kind == CaptionFileKind::kMcc ? WriteMcc : WriteScc;
    return write(survey, labels, take, progress);
  }
  const std::vector<CaptionLine> lines = LinesOfService(Decode(survey, progress), in, service);
  take(kind == CaptionFileKind::kSrt ? WriteSrt(lines) : WriteCaptionText(lines));
}

}  // namespace

FileCaptions ReadFileCaptions(const std::string& path, const ProgressCallback& progress,
                              const CaptionTiming& timing) {
  return Decode(SurveyFile(path, timing, progress), progress);
}

std::vector<CaptionLine> LinesOfService(const FileCaptions& captions, const std::string& path,
                                        const std::string& service) {
  for (const CaptionService& known : captions.services) {
    const bool asked = SameWord(known.name, service) || SameWord(known.name, "service " + service);
    if (asked || (service.empty() && !known.lines.empty())) return known.lines;
  }
  if (service.empty()) return {};
  throw Error(path, fmt::format("has no captions of service \"{}\"", service),
              captions.services.empty() ? "" : fmt::format("it has {}", NamesOf(captions.services)));
}

std::optional<CaptionFileKind> CaptionFileKindOf(const std::string& path) {
  constexpr size_t kEnding = 4;
  if (path.size() <= kEnding) return {};
  const std::string ending = path.substr(path.size() - kEnding);
  if (ending == ".mcc") return CaptionFileKind::kMcc;
  if (ending == ".scc") return CaptionFileKind::kScc;
  if (ending == ".srt") return CaptionFileKind::kSrt;
  if (ending == ".txt") return CaptionFileKind::kText;
  return {};
}

std::string CaptionFileText(const std::string& in, CaptionFileKind kind, const std::string& service,
                            const ProgressCallback& progress, const CaptionTiming& timing) {
  std::string text;
  MakeCaptionFile(
      in, kind, service, timing, [&text](std::string_view piece) { text += piece; }, progress);
  return text;
}

void WriteCaptionFile(const std::string& in, const std::string& out, const std::string& service,
                      const ProgressCallback& progress, const CaptionTiming& timing) {
  const std::optional<CaptionFileKind> kind = CaptionFileKindOf(out);
  if (!kind)
    throw Error(out, "is no kind of caption file that is known", "end it in .mcc, .scc, .srt or .txt");
  std::optional<TextFileWriter> file;
  const auto take = [&](std::string_view piece) {
    if (!file) file.emplace(out);
    file->Write(piece);
  };
  MakeCaptionFile(in, *kind, service, timing, take, progress);
  if (!file) file.emplace(out);
  file->Finish();
}

std::string SrtText(const std::vector<CaptionLine>& lines) { return WriteSrt(lines); }

std::string CaptionText(const std::vector<CaptionLine>& lines) { return WriteCaptionText(lines); }

}  // namespace qlnmedia
