// Captions out of files: surveyed, decoded, written as caption files.

#include <fmt/format.h>

#include <algorithm>

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
  if (survey.captioned() == 0) throw Error(path, fmt::format("stream {} has no captions", survey.stream));
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

FileCaptions Decode(const CaptionSurvey& survey, const ProgressCallback& progress) {
  return {survey.stream, survey.counts.size(), survey.captioned(), DecodeCaptions(survey, progress)};
}

void WriteMcc(const CaptionSurvey& survey, const std::string& out, bool dropFrame,
              const ProgressCallback& progress) {
  captions::MccTrackWriter writer(*survey.pace.rate, dropFrame);
  TextFileWriter file(out);
  file.Write(writer.Heading());
  ReadCaptions(
      survey,
      [&](const CaptionedPicture& picture) { file.Write(writer.Lines(picture.triplets, picture.number)); },
      progress);
  file.Finish();
}

void WriteScc(const CaptionSurvey& survey, const std::string& out, bool dropFrame,
              const ProgressCallback& progress) {
  captions::SccTrackWriter writer(*survey.pace.rate, dropFrame);
  ReadCaptions(
      survey, [&](const CaptionedPicture& picture) { writer.Add(picture.triplets, picture.number); },
      progress);
  WriteTextFile(out, writer.Text());
}

}  // namespace

FileCaptions ReadFileCaptions(const std::string& path, const ProgressCallback& progress,
                              const CaptionTiming& timing) {
  return Decode(SurveyFile(path, timing, progress), progress);
}

std::vector<CaptionLine> LinesOfService(const FileCaptions& captions, const std::string& path,
                                        const std::string& service) {
  for (const CaptionService& known : captions.services) {
    const bool asked = known.name == service || known.name == "service " + service;
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

void WriteCaptionFile(const std::string& in, const std::string& out, const std::string& service,
                      const ProgressCallback& progress, const CaptionTiming& timing) {
  const std::optional<CaptionFileKind> kind = CaptionFileKindOf(out);
  if (!kind)
    throw Error(out, "is no kind of caption file that is known", "end it in .mcc, .scc, .srt or .txt");
  const bool packets = kind == CaptionFileKind::kMcc || kind == CaptionFileKind::kScc;
  if (packets && !service.empty())
    throw Error("--service", "goes with text, not with .mcc and .scc files",
                "a .mcc file holds all services, a .scc file line 21 field 1");
  if (!packets && !timing.timecodeType.empty())
    throw Error("--timecode-type", "goes with .mcc and .scc files, whose times are labels");
  const CaptionSurvey survey = SurveyFile(in, timing, progress);
  if (packets && !survey.pace.rate)
    throw Error(in,
                fmt::format("has {} pictures a second, for which caption files have no rate",
                            PlainNumber(survey.pace.picturesPerSecond)),
                AdviceForPace(survey.pace));
  if (packets) {
    const bool dropFrame = DropsLabels(survey, *kind, timing.timecodeType);
    const auto write = kind == CaptionFileKind::kMcc ? WriteMcc : WriteScc;
    return write(survey, out, dropFrame, progress);
  }
  const std::vector<CaptionLine> lines = LinesOfService(Decode(survey, progress), in, service);
  WriteTextFile(out, kind == CaptionFileKind::kSrt ? WriteSrt(lines) : WriteCaptionText(lines));
}

std::string SrtText(const std::vector<CaptionLine>& lines) { return WriteSrt(lines); }

std::string CaptionText(const std::vector<CaptionLine>& lines) { return WriteCaptionText(lines); }

}  // namespace qlnmedia
