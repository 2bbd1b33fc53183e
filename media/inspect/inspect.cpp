// Gathers the report of `qlnmedia inspect`: container, streams, and the coded side of each video stream.

#include "inspect/inspect.h"

#include <set>
#include <utility>

#include "base/library_messages.h"
#include "container/media_file.h"
#include "container/raw_end.h"
#include "inspect/captions.h"
#include "inspect/configuration.h"
#include "inspect/frames.h"
#include "inspect/parameter_sets.h"
#include "inspect/stream.h"
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
  AddConfiguration(section, stream, messages);
  AddParameterSets(section, stream, messages);
  if (stream.codec == Codec::kH264) {
    AddH264Frames(section, stream, options, timecodes);
  } else {
    AddHevcFrames(section, stream, options, timecodes);
  }
  messages.Take();  // of readers that were run for their results alone
}

}  // namespace

Section ReportOnFile(const std::string& path, const InspectOptions& options) {
  MessageSink messages;
  MediaFile file(path);
  file.RequireVideo();
  std::vector<CodedStream> coded = ReadCodedStreams(file, options.frames);
  Section report;
  AddContainer(report, file);
  for (const MediaStream& described : file.streams()) {
    Section& section = AddStream(report, described);
    TrackBoxes boxes = ReadTrackBoxes(file, described);
    AddTrackBoxes(section, boxes);
    if (described.coded.codec != VideoCodec::kOther) AddCaptions(section, path, described.index);
    if (file.isTransportStream()) AddAnnouncedServices(section, AnnouncedServicesOf(path, described.id));
    for (CodedStream& stream : coded) {
      if (stream.index != described.index) continue;
      stream.layeredUnits = std::move(boxes.layeredUnits);
      AddCodedStream(section, stream, options, messages);
    }
  }
  const std::string note = EndNote(file);
  if (!note.empty()) report.AddNote(note);
  return report;
}

}  // namespace qlnmedia
