// What `qlnmedia patch` is asked to do with captions.
#ifndef TOOLS_QLNMEDIA_CAPTION_OPTIONS_H
#define TOOLS_QLNMEDIA_CAPTION_OPTIONS_H

#include <string>

namespace qlnmedia {

struct CaptionOptions {
  std::string file;      // .scc or .mcc
  std::string offset;    // a timecode of that file; empty for its first whole hour
  bool replace = false;  // captions that the stream has are taken out
};

}  // namespace qlnmedia

#endif
