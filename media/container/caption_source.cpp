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
#include "container/picture_captions.h"
#include "container/pipe_captions.h"

namespace qlnmedia {

namespace {

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
                         return TrackOfAnc(ReadAncContents(path, index, progress), path, index, asked,
                                           damage);
                       }});
  return streams;
}

// By what a file begins with; none of files that have no such streams.
std::vector<CaptionStream> CaptionStreamsOf(const std::string& path, const ProgressCallback& progress) {
  constexpr uint8_t kSyncByte = 0x47;  // of a transport packet, behind its time in M2TS
  try {
    const mp4::FileSource source(path);
    if (source.size() < 8) return {};
    mp4::Reader reader(source);
    const uint32_t type = reader.U32(4);
    for (const uint32_t known : {mp4::FourCc("ftyp"), mp4::FourCc("moov"), mp4::FourCc("mdat"),
                                 mp4::FourCc("wide"), mp4::FourCc("free"), mp4::FourCc("skip")}) {
      if (type == known) return TracksOf(path);
    }
    if (reader.U8(0) == kSyncByte || reader.U8(4) == kSyncByte || mxf::FindHeaderPartition(source))
      return AncStreamsOf(path, progress);
  } catch (const ReadError&) {
    throw;
  } catch (const Error&) {  // whoever opens it as media says what is wrong
  }
  return {};
}

// What a file or a pipe has.
struct CaptionPlaces {
  std::vector<CaptionStream> beside;
  std::function<CaptionSurvey()>
      survey;  // of the pictures; throws NotApplicable where none may have captions
};

CaptionPlaces PlacesOfFile(const MediaInput& input, const ProgressCallback& progress) {
  return {CaptionStreamsOf(input.path(), progress),
          [input, progress] { return SurveyCaptions(input, SIZE_MAX, progress); }};
}

// Those of a pipe are read at once where there are several. Samples of tracks are not read there, since their
// tables may name any place.
CaptionPlaces PlacesOfPipe(const MediaInput& input, const ProgressCallback& progress) {
  CaptionPlaces places = {{}, [input, progress] { return SurveyCaptions(input, SIZE_MAX, progress); }};
  const std::string& path = input.path();
  if (HasAncStreams(input)) {
    const auto all = std::make_shared<PipeCaptions>(ReadPipeCaptions(input, progress));
    for (const auto& [index, contents] : all->ancillary)
      places.beside.push_back({index, "ancillary data", [path, all, index = index](auto asked, auto* damage) {
                                 return TrackOfAnc(all->ancillary.at(index), path, index, asked, damage);
                               }});
    places.survey = [path, all] {
      if (!all->pictures) throw NotApplicable(path, "has no H.264, HEVC or MPEG-2 stream");
      return *all->pictures;
    };
    return places;
  }
  for (const CaptionTrackPlace& track : FindCaptionTracks(*input.Boxes()))
    places.beside.push_back(
        {track.stream, track.format + " track", [path, track](auto, auto*) -> captions::CaptionTrack {
           throw Error(path,
                       fmt::format("stream {} is a {} track, which is not read from a pipe", track.stream,
                                   track.format),
                       "save it to a file first");
         }});
  return places;
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
  const auto isEarly = [](const captions::CaptionEvent& event) { return event.at < 0; };
  const auto early = std::count_if(opened.track.events.begin(), opened.track.events.end(), isEarly);
  if (early != 0 && options.told)
    options.told(
        fmt::format("{}: stream {}: captions of {} pictures stand in front of the first one; left out", path,
                    opened.stream->index, early));
  const captions::Rate rate = opened.track.rate;
  auto source = std::make_unique<TrackSource>(std::move(opened.track), rate);
  source->stream = opened.stream->index;
  source->dropFrame.reset();
  return source;
}

// One of several streams with captions: the one that is named, else the only one.
std::unique_ptr<CaptionSource> OpenStream(const std::string& path, const CaptionPlaces& places,
                                          const CaptionTiming& timing, const CaptionSourceOptions& options,
                                          const ProgressCallback& progress) {
  const std::vector<CaptionStream>& others = places.beside;
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
    pictures = OpenPictureCaptions(places.survey(), timing, progress);
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
  const CaptionPlaces places = input.isPipe() ? PlacesOfPipe(input, progress) : PlacesOfFile(input, progress);
  if (places.beside.empty() && options.stream.empty())
    return OpenPictureCaptions(places.survey(), timing, progress);
  return OpenStream(path, places, timing, options, progress);
}

std::vector<StyledService> DecodeStyled(CaptionSource& source, const ProgressCallback& progress) {
  return Decoded(source, progress).styled();
}

std::vector<CaptionService> DecodeCaptions(CaptionSource& source, const ProgressCallback& progress) {
  return Decoded(source, progress).services();
}

}  // namespace qlnmedia
