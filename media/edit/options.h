// What a coded stream shall say when it has been edited; what is not set stays as it is.
#ifndef MEDIA_EDIT_OPTIONS_H
#define MEDIA_EDIT_OPTIONS_H

#include <optional>
#include <string>

#include "base/progress.h"
#include "hdr/values.h"
#include "sets/set_edit.h"

namespace qlnmedia {

struct CaptionOptions {
  std::string file;      // .scc or .mcc
  std::string offset;    // a timecode of that file; empty for its first whole hour
  bool replace = false;  // captions that the stream has are taken out
};

struct EditOptions {
  std::optional<ColourCodes> colour;
  std::optional<bool> fullRange;
  std::optional<MasteringDisplay> mastering;
  std::optional<LightLevel> lightLevel;
  std::string timecode;            // of the first picture in presentation order; empty for none
  std::string timecodeType;        // name of a TcType; empty for the one that the rate asks for
  std::string rate;                // frames a second to count timecodes by; empty for what the file says
  std::optional<bool> interlaced;  // HEVC: what the stream shall say; false is progressive
  bool delimiters = false;
  bool recoveryPoints = false;
  std::optional<CaptionOptions> captions;
  ProgressCallback progress;
  bool changesSets() const { return colour || fullRange; }
  // True if anything but captions changes; they alone go into MPEG-2 as well.
  bool beyondCaptions() const {
    return changesSets() || mastering || lightLevel || !timecode.empty() || interlaced || delimiters ||
           recoveryPoints;
  }
  bool any() const { return beyondCaptions() || captions; }
};

}  // namespace qlnmedia

#endif
