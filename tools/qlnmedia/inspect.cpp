// Gathers the report of `qlnmedia inspect`: container, streams, and the coded side of each video stream.

#include "qlnmedia/inspect.h"

#include "qlnmedia/caption_check.h"
#include "qlnmedia/caption_reader.h"
#include "qlnmedia/coded_stream.h"
#include "qlnmedia/inspect_codec.h"
#include "qlnmedia/inspect_stream.h"
#include "qlnmedia/media_file.h"
#include "qlnmedia/messages.h"
#include "qlnmedia/raw_end.h"

namespace qlnmedia {

Section InspectFile(const std::string& path, const InspectOptions& options) {
  MessageSink messages;
  MediaFile file(path);
  file.RequireVideo();
  const std::vector<CodedStream> coded = ReadCodedStreams(file, options.frames);
  Section report;
  AddContainer(report, file);
  for (unsigned i = 0; i < file.context()->nb_streams; ++i) {
    Section& section = AddStream(report, file, i);
    if (MayHaveCaptions(*file.context()->streams[i])) ReportCaptions(section, path, i);
    for (const CodedStream& stream : coded) {
      if (stream.index == i && stream.codec == Codec::kH264) ReportH264(section, stream, options, messages);
      if (stream.index == i && stream.codec == Codec::kHevc) ReportHevc(section, stream, options, messages);
    }
  }
  const std::string note = EndNote(file);
  if (!note.empty()) report.AddNote(note);
  return report;
}

}  // namespace qlnmedia
