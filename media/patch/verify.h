// Reads a patched file back and holds it against its source, as an independent reader shows both.
#ifndef MEDIA_PATCH_VERIFY_H
#define MEDIA_PATCH_VERIFY_H

#include <cstdint>
#include <string>
#include <vector>

#include "qlnmedia/stream_editor.h"
#include "units/unit_types.h"

namespace qlnmedia {

// What must not change of a file's packets. Of H.264 and HEVC every unit counts but those that a patch puts
// in, takes out or changes (parameter sets but PPS, SEI, delimiters, filler, unspecified ones where `changes`
// take them out), of MPEG-2 all but user data, of other streams every byte; presentation and decoding times;
// and of MP4 and MOV, in the file's own units, durations, where `changes` leave the timing of parameter sets
// alone, and side data as well.
struct StreamKept {
  uint64_t packets = 0;
  uint64_t digest = 0;
};
std::vector<StreamKept> KeptOf(const std::string& file, const StreamChanges& changes);
// Throws Error, naming `name`, where those of an MP4 or MOV file differ from what they were. Says what was
// compared.
std::string RequireKept(const std::vector<StreamKept>& before, const std::vector<StreamKept>& after,
                        const std::string& name);

// Whether a patch may put in, take out or change units of a type.
bool MayChange(Codec codec, int type, const StreamChanges& changes);

// Holds one file against the other, packet by packet; of MP4 and MOV not the bytes, since whoever knows the
// tables compares samples. Throws Error, naming `name` (what `out` is going to be
// called) and the first difference. With `timecodeTrack` timecode tracks may differ, and one may have come
// in. Says what was compared.
std::string VerifyPatched(const std::string& in, const std::string& out, const StreamChanges& changes,
                          const std::string& name, bool timecodeTrack = false);

// What is said of a comparison that boxes and their samples alone were enough for.
std::string VerifiedText(uint64_t samples, uint64_t tracks);

}  // namespace qlnmedia

#endif
