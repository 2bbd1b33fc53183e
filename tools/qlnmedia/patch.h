// `qlnmedia patch`: changes what a stream and its container say, and leaves every coded slice as it is.
#ifndef TOOLS_QLNMEDIA_PATCH_H
#define TOOLS_QLNMEDIA_PATCH_H

#include <optional>
#include <string>
#include <vector>

#include "qlnmedia/caption_options.h"
#include "qlnmedia/hdr_values.h"
#include "qlnmedia/set_edit.h"

namespace qlnmedia {

struct PatchOptions {
  std::string in;
  std::string out;
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
  bool dryRun = false;
  bool verify = false;
  bool changesSets() const { return colour || fullRange; }
  // True if anything but captions changes; they alone go into MPEG-2 as well.
  bool beyondCaptions() const {
    return changesSets() || mastering || lightLevel || !timecode.empty() || interlaced || delimiters ||
           recoveryPoints;
  }
  bool any() const { return beyondCaptions() || captions; }
};

// What a run changed, one line each, as "stream 0: 12 parameter sets, avcC and container colour".
struct PatchResult {
  std::vector<std::string> lines;
};

// Patches a file. Throws ToolError where it cannot; the output then does not exist, or is what it was.
PatchResult PatchFile(const PatchOptions& options);

}  // namespace qlnmedia

#endif
