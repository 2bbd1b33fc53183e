// SEI messages in words, with the values that they carry.
#ifndef MEDIA_HTML_SEI_TEXT_H
#define MEDIA_HTML_SEI_TEXT_H

#include <optional>
#include <string>

#include "html/hrd.h"
#include "sets/sps_facts.h"
#include "units/units.h"

namespace qlnmedia::html {

// What the messages of a picture are read by; both may be missing.
struct SeiContext {
  const SpsFacts* sps = nullptr;
  const Hrd* hrd = nullptr;
};

// "recovery point: recovery_frame_cnt 0, exact": the name of a message, and its values where it is one of
// those that are read here; of others the size and the first bytes.
std::string SeiText(Codec codec, const SeiMessage& message, const SeiContext& context);

}  // namespace qlnmedia::html

#endif
