// Gathers the report of `qlnmedia inspect`: container, streams, and the coded side of each video stream.

#include "inspect/inspect.h"

#include "base/library_messages.h"
#include "container/media_file.h"
#include "container/raw_end.h"
#include "inspect/captions.h"
#include "inspect/codec.h"
#include "inspect/stream.h"

namespace qlnmedia {

Section ReportOnFile(const std::string& path, const InspectOptions& options) {
  MessageSink messages;
  MediaFile file(path);
  file.RequireVideo();
  const std::vector<CodedStream> coded = ReadCodedStreams(file, options.frames);
  Section report;
  AddContainer(report, file);
  for (const MediaStream& described : file.streams()) {
    Section& section = AddStream(report, described);
    if (described.coded.codec != VideoCodec::kOther) AddCaptions(section, path, described.index);
    for (const CodedStream& stream : coded) {
      if (stream.index == described.index && stream.codec == Codec::kH264)
        ReportH264(section, stream, options, messages);
      if (stream.index == described.index && stream.codec == Codec::kHevc)
        ReportHevc(section, stream, options, messages);
    }
  }
  const std::string note = EndNote(file);
  if (!note.empty()) report.AddNote(note);
  return report;
}

}  // namespace qlnmedia
