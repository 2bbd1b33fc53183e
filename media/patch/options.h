// What a patch shall change.
#ifndef MEDIA_PATCH_OPTIONS_H
#define MEDIA_PATCH_OPTIONS_H

#include <optional>
#include <string>

#include "base/progress.h"
#include "qlnmedia/stream_editor.h"

namespace qlnmedia {

struct CaptionOptions {
  std::string file;      // .scc or .mcc
  std::string offset;    // a timecode of that file; empty for its first whole hour
  bool replace = false;  // captions that the stream has are taken out
};

// The changes of every stream but for captions, which come from a file and go into one stream.
struct EditOptions : StreamChanges {
  std::optional<CaptionOptions> captions;
  ProgressCallback progress;
  bool any() const { return beyondCaptions() || captions; }
};

}  // namespace qlnmedia

#endif
