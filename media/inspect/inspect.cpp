// Gathers the report of `qlnmedia inspect`: container, streams, and the coded side of each video stream.

#include "inspect/inspect.h"

#include <algorithm>
#include <chrono>
#include <set>
#include <utility>

#include "base/library_messages.h"
#include "container/media_file.h"
#include "container/raw_end.h"
#include "inspect/caption_streams.h"
#include "inspect/captions.h"
#include "inspect/configuration.h"
#include "inspect/frame_packing.h"
#include "inspect/frames.h"
#include "inspect/parameter_sets.h"
#include "inspect/stream.h"
#include "inspect/summary.h"
#include "inspect/track_boxes.h"
#include "inspect/user_data.h"

namespace qlnmedia {

namespace {

// The layers of an HEVC stream of several, as the views of a stereo picture: those of its units.
void AddLayers(Section& section, const CodedStream& stream) {
  if (stream.codec != Codec::kHevc) return;
  std::set<int> layers;
  for (const CodedPacket& packet : stream.packets) {
    VisitUnits(packet.data, stream.config.framing, [&layers](ByteSpan unit) {
      if (unit.size() >= 2 && IsSlice(Codec::kHevc, UnitType(Codec::kHevc, unit)))
        layers.insert((unit[0] & 1) << 5 | unit[1] >> 3);
    });
  }
  if (layers.empty() || *layers.rbegin() == 0) return;
  section.Add("layers", "Layers", std::vector<int>(layers.begin(), layers.end()), "", "nuh_layer_id");
}

// The coded side of a stream: configuration record, parameter sets, the first frames.
void AddCodedStream(Section& section, const CodedStream& stream, const InspectOptions& options,
                    MessageSink& messages) {
  const StreamTimecodes timecodes(stream);
  timecodes.AddToStream(section);
  AddEncoderSettings(section, stream);
  AddLayers(section, stream);
  AddFramePacking(section, stream);
  AddConfiguration(section, stream, messages);
  AddParameterSets(section, stream, messages);
  if (stream.codec == Codec::kH264) {
    AddH264Frames(section, stream, options, timecodes);
  } else {
    AddHevcFrames(section, stream, options, timecodes);
  }
  messages.Take();  // of readers that were run for their results alone
}

bool HasCodedVideo(const std::vector<MediaStream>& streams) {
  return std::any_of(streams.begin(), streams.end(),
                     [](const MediaStream& stream) { return stream.coded.codec != VideoCodec::kOther; });
}

// All that container and streams say.
void AddDetails(Section& report, const MediaInput& input, const MediaFile& file, FirstPictures& first,
                const StreamCaptions& captions, const std::map<unsigned, CaptionStreamFacts>& beside,
                const InspectOptions& options, MessageSink& messages) {
  AddContainer(report, file);
  for (const MediaStream& described : file.streams()) {
    Section& section = AddStream(report, described);
    TrackBoxes boxes = ReadTrackBoxes(file, described);
    AddTrackBoxes(section, boxes);
    if (captions.found && captions.stream == described.index) AddCaptionServices(section, captions.services);
    if (file.isTransportStream()) AddAnnouncedServices(section, AnnouncedServicesOf(input, described.id));
    const auto facts = beside.find(described.index);
    if (facts != beside.end()) AddCaptionStream(section, facts->second);
    for (CodedStream& stream : first.coded) {
      if (stream.index != described.index) continue;
      stream.layeredUnits = std::move(boxes.layeredUnits);
      AddCodedStream(section, stream, options, messages);
    }
  }
}

// A note that the summary has, too.
void AddFileNote(Section& report, const std::string& note) {
  report.AddNote(note);
  report.MarkLast(ReportPart::kSummary);
}

}  // namespace

Section ReportOnFile(const std::string& path, const InspectOptions& options) {
  MessageSink messages;
  const MediaInput input(path);
  // A pipe may stand still, or go on for ever: what comes by then is what there is to tell.
  constexpr std::chrono::seconds kWaitForPipe{6};
  if (input.isPipe()) input.tape().WaitUntil(std::chrono::steady_clock::now() + kWaitForPipe);
  MediaFile file(input);
  file.RequireVideo();
  SurveyAlong survey(file);
  FirstPictures first =
      ReadFirstPictures(file, options.frames, [&survey](const MediaPacket& packet) { survey.Take(packet); });
  // What the packets behind these show of the file's end is not said.
  std::string note = input.isPipe() ? "" : EndNote(file);
  StreamCaptions captions;
  if (HasCodedVideo(file.streams())) captions = ReadFirstCaptions(file, first, survey.Finish());
  Section report;
  const std::map<unsigned, CaptionStreamFacts> beside = ReadCaptionStreams(file);
  AddSummary(report, file, first, captions, beside);
  if (options.details) AddDetails(report, input, file, first, captions, beside, options, messages);
  // A pipe goes on.
  if (input.isPipe() && input.tape().ended()) note = EndNote(file);
  if (!note.empty()) AddFileNote(report, note);
  if (input.isPipe())
    AddFileNote(report,
                "read from a pipe as far as the report needs: size, and where its head does not tell them, "
                "duration and bit rate want a file");
  return report;
}

Report InspectFile(const std::string& path, const InspectOptions& options) {
  return ReportOf(ReportOnFile(path, options));
}

}  // namespace qlnmedia
