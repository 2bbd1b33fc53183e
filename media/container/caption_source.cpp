// Opens sources of captions.

#include "container/caption_source.h"

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "base/error.h"
#include "base/numbers.h"
#include "base/read_error.h"
#include "base/text_file.h"
#include "captions/decoder.h"
#include "captions/pop_on_schedule.h"
#include "container/anc_captions.h"
#include "container/anc_file.h"
#include "container/caption_tracks.h"
#include "container/file_captions.h"
#include "container/media_file.h"
#include "container/media_input.h"
#include "container/mxf/klv.h"

namespace qlnmedia {

namespace {

double PerSecond(captions::Rate rate) {
  const captions::RateInfo& info = captions::InfoOf(rate);
  return static_cast<double>(info.numerator) / info.denominator;
}

Pace PaceOfRate(captions::Rate rate) {
  Pace pace;
  pace.rate = pace.nominal = rate;
  pace.picturesPerSecond = PerSecond(rate);
  return pace;
}

// The coded pictures of a stream.
class PictureSource final : public CaptionSource {
 public:
  PictureSource(const MediaInput& input, const CaptionTiming& timing, const ProgressCallback& progress)
      : survey_(SurveyCaptions(input, SIZE_MAX, progress)) {
    stream = survey_.stream;
    pictures = survey_.counts.size();
    captioned = survey_.captioned();
    if (captioned == 0) throw NotApplicable(input.path(), fmt::format("stream {} has no captions", stream));
    pace = survey_.pace = AskedPace(survey_.pace, survey_.order, timing.rate);
    dropFrame = survey_.dropFrame;
  }

  double Read(const std::function<void(const CaptionedPicture&)>& take,
              const ProgressCallback& progress) override {
    PictureClock clock(survey_.order, survey_.pace);
    const auto count = [&](const CaptionedPicture& picture) {
      take(picture);
      clock.Next();
    };
    ReadCaptions(survey_, count, progress);
    return clock.seconds();
  }

 private:
  CaptionSurvey survey_;
};

// A caption file as pictures of one rate, from the first to the last with captions.
class TrackSource final : public CaptionSource {
 public:
  TrackSource(captions::CaptionTrack track, captions::Rate rate) : track_(std::move(track)), rate_(rate) {
    pace = PaceOfRate(rate);
    dropFrame = track_.dropFrame;
    offset_ = track_.FirstHour();
    if (offset_ != 0)
      hour = captions::TimecodeOf(offset_ / track_.framesPerNumber, track_.nominal, track_.dropFrame).hours;
    captions::CaptionPictures all(track_, rate_, offset_);
    while (!all.over()) all.Next(static_cast<int64_t>(pictures++));
    captioned = pictures;
  }

  double Read(const std::function<void(const CaptionedPicture&)>& take,
              const ProgressCallback& progress) override {
    Progress meter(progress, "reading", static_cast<int64_t>(pictures));
    captions::CaptionPictures all(track_, rate_, offset_);
    for (int64_t number = 0; !all.over(); ++number) {
      meter.At(number);
      take({static_cast<double>(number) / pace.picturesPerSecond, number, all.Next(number)});
    }
    meter.Done();
    return static_cast<double>(pictures) / pace.picturesPerSecond;
  }

 private:
  captions::CaptionTrack track_;
  captions::Rate rate_;
  int64_t offset_ = 0;
};

CaptionDecoder Decoded(CaptionSource& source, const ProgressCallback& progress) {
  CaptionDecoder decoder;
  const double end = source.Read(
      [&](const CaptionedPicture& picture) { decoder.Add(picture.triplets, picture.seconds); }, progress);
  decoder.Finish(end);
  return decoder;
}

bool HasEnding(const std::string& path, const char* ending) {
  constexpr size_t kEnding = 4;
  return path.size() > kEnding && strcasecmp(path.c_str() + path.size() - kEnding, ending) == 0;
}

std::unique_ptr<CaptionSource> OpenFile(const std::string& path, const CaptionTiming& timing,
                                        const CaptionSourceOptions& options) {
  const std::string text = ReadTextFile(path);
  // No pictures contradict what is asked for.
  std::optional<captions::Rate> asked;
  if (!timing.rate.empty()) asked = AskedPace({}, {}, timing.rate).rate;
  if (IsAncFile(path)) {
    std::vector<std::string> damage;
    captions::CaptionTrack track = ReadAncFile(text, path, asked, &damage);
    for (const std::string& line : damage) {
      if (options.told) options.told(path + ": " + line);
    }
    const captions::Rate rate = asked.value_or(track.rate);
    return std::make_unique<TrackSource>(std::move(track), rate);
  }
  if (IsCueFile(path)) {
    const captions::Rate rate = asked.value_or(captions::Rate::k29_97);
    return std::make_unique<TrackSource>(MakeTrackOfCues(path, text, rate, options), rate);
  }
  std::string reason;
  std::optional<captions::CaptionTrack> track = captions::ReadCaptionTrack(text, &reason);
  if (!track) throw Error(path, reason);
  const captions::Rate rate = asked.value_or(track->rate);
  return std::make_unique<TrackSource>(std::move(*track), rate);
}

// A stream of captions beside the pictures.
struct CaptionStream {
  unsigned index = 0;
  std::string kind;
  std::function<captions::CaptionTrack(std::optional<captions::Rate> asked, std::vector<std::string>* damage)>
      read;
};

// Those of an MP4 or MOV.
std::vector<CaptionStream> TracksOf(const std::string& path) {
  std::vector<CaptionStream> streams;
  for (const CaptionTrackPlace& place : FindCaptionTracks(mp4::FileSource(path)))
    streams.push_back({place.stream, place.format + " track", [path, place](auto asked, auto* damage) {
                         return ReadCaptionTrackOf(mp4::FileSource(path), place, asked, damage);
                       }});
  return streams;
}

// Those of a transport stream or MXF.
std::vector<CaptionStream> AncStreamsOf(const std::string& path, const ProgressCallback& progress) {
  std::vector<CaptionStream> streams;
  for (const unsigned index : FindAncStreams(MediaFile(path)))
    streams.push_back({index, "ancillary data", [path, index, progress](auto asked, auto* damage) {
                         return ReadAncStream(path, index, asked, damage, progress);
                       }});
  return streams;
}

// By what a file begins with; none of files that have no such streams.
std::vector<CaptionStream> CaptionStreamsOf(const std::string& path, const ProgressCallback& progress) {
  constexpr uint8_t kSync = 0x47;  // of a transport packet, behind its time in M2TS
  try {
    const mp4::FileSource source(path);
    if (source.size() < 8) return {};
    mp4::Reader reader(source);
    const uint32_t type = reader.U32(4);
    for (const uint32_t known : {mp4::FourCc("ftyp"), mp4::FourCc("moov"), mp4::FourCc("mdat"),
                                 mp4::FourCc("wide"), mp4::FourCc("free"), mp4::FourCc("skip")}) {
      if (type == known) return TracksOf(path);
    }
    if (reader.U8(0) == kSync || reader.U8(4) == kSync || mxf::FindHeaderPartition(source))
      return AncStreamsOf(path, progress);
  } catch (const ReadError&) {
    throw;
  } catch (const Error&) {  // whoever opens it as media says what is wrong
  }
  return {};
}

// A stream that has captions, as it was read.
struct OpenedStream {
  const CaptionStream* stream;
  captions::CaptionTrack track;
  std::vector<std::string> damage;
};

std::unique_ptr<CaptionSource> SourceOf(const std::string& path, OpenedStream opened,
                                        const CaptionSourceOptions& options) {
  for (const std::string& line : opened.damage) {
    if (options.told) options.told(path + ": " + line);
  }
  const captions::Rate rate = opened.track.rate;
  auto source = std::make_unique<TrackSource>(std::move(opened.track), rate);
  source->stream = opened.stream->index;
  source->dropFrame.reset();
  return source;
}

// One of several streams with captions: the one that is named, else the only one.
std::unique_ptr<CaptionSource> OpenStream(const MediaInput& input, const std::vector<CaptionStream>& others,
                                          const CaptionTiming& timing, const CaptionSourceOptions& options,
                                          const ProgressCallback& progress) {
  const std::string& path = input.path();
  std::optional<captions::Rate> asked;
  if (!timing.rate.empty() && !others.empty()) asked = AskedPace({}, {}, timing.rate).rate;
  // Ancillary data may be something else, in part or all.
  std::vector<OpenedStream> opened;
  for (const CaptionStream& other : others) {
    if (!options.stream.empty() && options.stream != std::to_string(other.index)) continue;
    OpenedStream one{&other, {}, {}};
    try {
      one.track = other.read(asked, &one.damage);
    } catch (const NotApplicable&) {
      continue;
    }
    opened.push_back(std::move(one));
  }
  if (!options.stream.empty() && !opened.empty()) return SourceOf(path, std::move(opened.front()), options);
  std::unique_ptr<CaptionSource> pictures;
  try {
    pictures = std::make_unique<PictureSource>(input, timing, progress);
  } catch (const NotApplicable&) {  // no pictures, or none with captions
    if (opened.empty() && (options.stream.empty() || others.empty())) throw;
  }
  const bool named = pictures != nullptr && options.stream == std::to_string(pictures->stream);
  if (pictures != nullptr && (named || (opened.empty() && options.stream.empty()))) return pictures;
  if (pictures == nullptr && opened.size() == 1) return SourceOf(path, std::move(opened.front()), options);
  std::string list;
  if (pictures != nullptr) list = fmt::format("{} (pictures)", pictures->stream);
  for (const CaptionStream& other : others) {
    const bool has =
        options.stream.empty()
            ? std::any_of(opened.begin(), opened.end(), [&](const auto& one) { return one.stream == &other; })
            : options.stream != std::to_string(other.index);
    if (has) list += fmt::format("{}{} ({})", list.empty() ? "" : ", ", other.index, other.kind);
  }
  if (!options.stream.empty())
    throw Error(path, "has no captions in stream " + options.stream, "there are some in " + list);
  throw Error(path, "has captions in several streams: " + list, "--captions-from says which");
}

}  // namespace

bool IsCueFile(const std::string& path) { return HasEnding(path, ".srt") || HasEnding(path, ".vtt"); }

bool IsCaptionFile(const std::string& path) {
  return IsCueFile(path) || HasEnding(path, ".scc") || HasEnding(path, ".mcc");
}

captions::CaptionTrack MakeTrackOfCues(const std::string& path, const std::string& text, captions::Rate rate,
                                       const CaptionSourceOptions& options, std::vector<std::string>* done) {
  std::string reason;
  std::vector<captions::CueProblem> problems;
  std::optional<captions::CaptionTrack> track =
      captions::MakeCaptionTrack(text, rate, {options.fit, options.transliterate}, &problems, &reason);
  if (!track) throw Error(path, reason);
  const std::vector<std::string> left = captions::LinesOf(problems, false);
  const std::vector<std::string> solved = captions::LinesOf(problems, true);
  const auto tell = [&](const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
      if (options.told) options.told(path + ": " + line);
    }
  };
  if (done != nullptr)
    *done = solved;
  else
    tell(solved);
  tell(left);
  if (!left.empty())
    throw Error(path, left.front() + (left.size() > 1 ? fmt::format(" (and {} more)", left.size() - 1) : ""),
                "--fit breaks lines and shifts captions, --transliterate replaces characters");
  return std::move(*track);
}

captions::CaptionTrack TrackOf(CaptionSource& source, const std::string& path,
                               const ProgressCallback& progress) {
  if (!source.pace.rate)
    throw Error(path,
                fmt::format("has {} pictures a second, a rate without captions",
                            PlainNumber(source.pace.picturesPerSecond)),
                AdviceForPace(source.pace));
  captions::CaptionTrack track;
  track.rate = *source.pace.rate;
  track.nominal = captions::InfoOf(track.rate).nominal;
  track.fromZero = true;
  const auto take = [&track](const CaptionedPicture& picture) {
    if (!picture.triplets.empty()) track.events.push_back({picture.number, picture.triplets});
  };
  source.Read(take, progress);
  return track;
}

std::unique_ptr<CaptionSource> OpenCaptionSource(const std::string& path, const CaptionTiming& timing,
                                                 const CaptionSourceOptions& options,
                                                 const ProgressCallback& progress) {
  if (IsCaptionFile(path) || IsAncFile(path)) {
    if (!options.stream.empty())
      throw Error(path, "is a caption file, which has no streams", "name no stream");
    return OpenFile(path, timing, options);
  }
  const MediaInput input(path);
  const std::vector<CaptionStream> others =
      input.isPipe() ? std::vector<CaptionStream>() : CaptionStreamsOf(path, progress);
  if (others.empty() && options.stream.empty())
    return std::make_unique<PictureSource>(input, timing, progress);
  return OpenStream(input, others, timing, options, progress);
}

std::vector<StyledService> DecodeStyled(CaptionSource& source, const ProgressCallback& progress) {
  return Decoded(source, progress).styled();
}

std::vector<CaptionService> DecodeCaptions(CaptionSource& source, const ProgressCallback& progress) {
  return Decoded(source, progress).services();
}

}  // namespace qlnmedia
