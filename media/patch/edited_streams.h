// The streams of a file that a patch edits, each with its editor.
#ifndef MEDIA_PATCH_EDITED_STREAMS_H
#define MEDIA_PATCH_EDITED_STREAMS_H

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "container/media_file.h"
#include "container/media_writer.h"
#include "patch/caption_file.h"
#include "qlnmedia/patch.h"
#include "qlnmedia/stream_editor.h"

namespace qlnmedia {

class EditedStreams {
 public:
  // Reads the file once where changes ask for it. Throws Error for streams that cannot be edited, saying why.
  // `in` and `options` must outlive this.
  EditedStreams(const MediaFile& in, const EditOptions& options);

  // Changes the parameters of the output's streams.
  void SetParametersOf(const MediaWriter& out) const;
  // Takes a packet of the input, in the file's order. Throws Error for one that begins another description of
  // its stream.
  void Push(const AVPacket& packet);
  // Changes a packet in place, each in the order in which it was pushed; false where packets that follow must
  // be pushed first. Packets of streams that nobody edits stay as they are.
  bool Pull(AVPacket* packet);
  void Finish();
  // What was changed, one line each.
  std::vector<std::string> Summary() const;

 private:
  struct Edited {
    StreamDescription stream;
    std::unique_ptr<StreamSurvey> survey;  // null where nobody asks
    std::unique_ptr<StreamEditor> editor;
  };
  void FindStreams();
  void Survey();
  bool NeedsSigns(const StreamDescription& stream) const;
  void MakeEditor(unsigned index, Edited& edited, CaptionProvider captions);
  std::string LineOf(unsigned index, const Edited& edited) const;
  [[noreturn]] void Fail(unsigned index, const std::string& what, const std::string& advice) const;

  const MediaFile& in_;
  const EditOptions& options_;
  std::map<unsigned, Edited> streams_;
  std::optional<unsigned> captioned_;         // the stream that gets captions
  std::unique_ptr<CaptionFile> captionFile_;  // null where there are none
};

}  // namespace qlnmedia

#endif
