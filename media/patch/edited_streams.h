// The streams of a file that a patch edits, each with its editor.
#ifndef MEDIA_PATCH_EDITED_STREAMS_H
#define MEDIA_PATCH_EDITED_STREAMS_H

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "patch/caption_file.h"
#include "patch/patch_input.h"
#include "qlnmedia/patch.h"
#include "qlnmedia/stream_editor.h"

namespace qlnmedia {

struct EditedStream {
  StreamDescription stream;
  std::unique_ptr<StreamSurvey> survey;  // null where nobody asks
  std::unique_ptr<StreamEditor> editor;
  // One more for each further sample description, for its private data alone.
  std::vector<std::unique_ptr<StreamEditor>> others;
  // Of the editor's counts: sets that were put in for it and are not the file's.
  int64_t borrowedSequenceSets = 0;
  int64_t borrowedVideoSets = 0;
};

// What an editor did, in words: "2 sequence parameter sets in the stream changed, ...". `record` is what the
// private data is called, `container` what was changed beside the stream.
std::string TextOfCounts(const EditCounts& counts, const std::string& record,
                         const std::vector<std::string>& container);

class EditedStreams {
 public:
  // Reads the file once where changes ask for it. Throws Error for streams that cannot be edited, saying why.
  // `in` and `options` must outlive this.
  EditedStreams(const PatchInput& in, const EditOptions& options);

  // By their indices.
  std::map<unsigned, EditedStream>& streams() { return streams_; }
  const std::map<unsigned, EditedStream>& streams() const { return streams_; }
  // True where the stream's pictures may change, and not its private data alone.
  bool ChangesPictures(unsigned index) const;
  bool HasCaptions(unsigned index) const { return index == captioned_; }
  // What was changed, one line each.
  std::vector<std::string> Summary() const;

 private:
  void FindStreams();
  void RequireTrueOfDolbyVision(unsigned index) const;
  void RequireClear(unsigned index) const;
  void Survey();
  bool NeedsSigns(const StreamDescription& stream) const;
  void MakeEditor(unsigned index, EditedStream& edited, CaptionProvider captions);
  std::string LineOf(unsigned index, const EditedStream& edited) const;
  [[noreturn]] void Fail(unsigned index, const std::string& what, const std::string& advice) const;

  const PatchInput& in_;
  const EditOptions& options_;
  std::map<unsigned, EditedStream> streams_;
  std::optional<unsigned> captioned_;         // the stream that gets captions
  std::unique_ptr<CaptionFile> captionFile_;  // null where there are none
};

}  // namespace qlnmedia

#endif
